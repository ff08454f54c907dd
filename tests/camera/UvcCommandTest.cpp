#include "camera/UvcCommand.h"

#include "tests/support/FakeKsControl.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <type_traits>

namespace {

using test_support::FakeKsControl;
using test_support::KsCall;

constexpr GUID kSet{0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}};

// Sets and gets in the open.
class OpenUvcCommand : public UvcCommand {
  public:
    using UvcCommand::Get;
    using UvcCommand::Set;
    using UvcCommand::UvcCommand;
};

// A plain KSPROPERTY, without a node: 24 bytes.
std::vector<BYTE> PlainProperty(BYTE id, BYTE flags) {
    return {0x44, 0x33, 0x22, 0x11, 0x66, 0x55, 0x88, 0x77, 0x99,  0xAA, 0xBB, 0xCC,
            0xDD, 0xEE, 0xFF, 0x01, id,   0,    0,    0,    flags, 0,    0,    0};
}

TEST(UvcCommand, WritesWithAPlainPropertyAndAClearedByteCount) {
    FakeKsControl control;
    OpenUvcCommand command(&control, kSet, 7);
    std::array<BYTE, 5> data{1, 2, 3, 4, 5};

    EXPECT_EQ(command.Set(data), S_OK);

    const auto calls = control.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation, KsCall::Operation::Property);
    EXPECT_EQ(calls[0].descriptor, PlainProperty(7, 2));
    EXPECT_EQ(calls[0].data, data.data());
    EXPECT_EQ(calls[0].dataLength, 5u);
    EXPECT_EQ(calls[0].dataBefore, (std::vector<BYTE>{1, 2, 3, 4, 5}));
    ASSERT_NE(calls[0].bytesReturned, nullptr);
    EXPECT_EQ(calls[0].bytesReturnedBefore, 0u);
}

TEST(UvcCommand, ReadsWithAPlainPropertyAndAClearedByteCount) {
    FakeKsControl control;
    OpenUvcCommand command(&control, kSet, 7);
    std::array<BYTE, 9> data{};
    ULONG bytesReturned = 0xDDDDDDDD;

    EXPECT_EQ(command.Get(data, bytesReturned), S_OK);

    const auto calls = control.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation, KsCall::Operation::Property);
    EXPECT_EQ(calls[0].descriptor, PlainProperty(7, 1));
    EXPECT_EQ(calls[0].data, data.data());
    EXPECT_EQ(calls[0].dataLength, 9u);
    ASSERT_NE(calls[0].bytesReturned, nullptr);
    EXPECT_EQ(calls[0].bytesReturnedBefore, 0u);
    EXPECT_EQ(bytesReturned, 0u);
}

TEST(UvcCommand, TellsHowManyBytesTheDriverReturned) {
    FakeKsControl control;
    control.SetAnswer([](const KsCall& call) {
        *call.bytesReturned = 3;
        return S_OK;
    });
    OpenUvcCommand command(&control, kSet, 1);
    std::array<BYTE, 9> data{};
    ULONG bytesReturned = 0;

    EXPECT_EQ(command.Get(data, bytesReturned), S_OK);

    EXPECT_EQ(bytesReturned, 3u);
}

TEST(UvcCommand, ReturnsThePropertyCallsResultUnchanged) {
    for (const HRESULT result : {S_FALSE, E_FAIL, E_POINTER, HRESULT_FROM_WIN32(ERROR_GEN_FAILURE)}) {
        FakeKsControl control;
        control.SetAnswer([result](const KsCall&) { return result; });
        OpenUvcCommand command(&control, kSet, 1);
        std::array<BYTE, 4> data{};
        ULONG bytesReturned = 0;

        EXPECT_EQ(command.Set(data), result);
        EXPECT_EQ(command.Get(data, bytesReturned), result);
    }
}

TEST(UvcCommand, HoldsOneReferenceAndReleasesItInItsVirtualDestructor) {
    FakeKsControl control;
    std::unique_ptr<UvcCommand> command = std::make_unique<OpenUvcCommand>(&control, kSet, 1);
    EXPECT_EQ(control.References(), 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<UvcCommand>);

    command.reset();

    EXPECT_EQ(control.References(), 0);
}

}  // namespace
