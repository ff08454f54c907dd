#include "prompt/IToastCntr.h"

#include <gtest/gtest.h>

#include "tests/support/FakeToastController.h"

#include <array>
#include <cstring>

namespace {

using test_support::FakeToastController;
using Bytes = std::array<unsigned char, 16>;

Bytes InMemory(const GUID& id) {
    Bytes bytes{};
    std::memcpy(bytes.data(), &id, bytes.size());
    return bytes;
}

TEST(IToastCntr, HasTheIdsThatTheServerIsRegisteredWith) {
    EXPECT_EQ(InMemory(kClsidToastController), (Bytes{0xF7, 0xBE, 0xC4, 0x20, 0x2C, 0xCA, 0xF7, 0x40, 0x9B,
                                                      0x2A, 0x33, 0x37, 0x8E, 0x54, 0xE6, 0x8C}));
    EXPECT_EQ(InMemory(kIidToastCntr), (Bytes{0xA1, 0x79, 0xE6, 0x45, 0x15, 0xAE, 0xDC, 0x45, 0x85, 0x4E,
                                              0x13, 0xD9, 0x0F, 0xD8, 0x64, 0xC5}));
    EXPECT_EQ(InMemory(kIidToastCntrEvents), (Bytes{0xF9, 0xD3, 0xE9, 0xBA, 0x47, 0xD0, 0x89, 0x4A, 0xB5,
                                                    0xAD, 0x86, 0x2D, 0x8A, 0x2B, 0x29, 0xD0}));
}

TEST(IToastCntr, HasItsMethodsInTheSlotsBehindThoseOfADispatchInterface) {
    FakeToastController server;
    auto* const controller = reinterpret_cast<IToastCntr*>(server.Unknown());

    EXPECT_EQ(controller->ShowUpdatePrompt(nullptr, nullptr), S_OK);
    EXPECT_EQ(controller->NotifyProgress(nullptr), S_OK);
    EXPECT_EQ(controller->NotifyComplete(), S_OK);

    const auto calls = server.Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].method, "ShowUpdatePrompt");
    EXPECT_EQ(calls[1].method, "NotifyProgress");
    EXPECT_EQ(calls[2].method, "NotifyComplete");
}

TEST(IToastCntr, IsADispatchInterface) {
    FakeToastController server;
    IDispatch* const dispatch = reinterpret_cast<IToastCntr*>(server.Unknown());
    UINT count = 0;
    EXPECT_EQ(dispatch->GetTypeInfoCount(&count), E_NOTIMPL);  // the fake's answer in slots 3 to 6
    EXPECT_TRUE(server.Calls().empty());
}

}  // namespace
