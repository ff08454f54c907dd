#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <vector>

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Interface = std::array<std::uint8_t, 9>;

const Bytes kHeader{9, 2, 0, 0, 2, 1, 0, 0x80, 50};
constexpr Interface kVideo{9, 4, 0, 0, 0, 0x0E, 1, 0, 0};
constexpr Interface kDfu{9, 4, 3, 1, 0, 0xFE, 1, 2, 0};

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes operator+(Bytes left, const Interface& right) {
    return left + Bytes(right.begin(), right.end());
}

std::vector<Interface> InterfacesOf(const Bytes& configuration) {
    return VirtualCamera({.configurationDescriptor = configuration}).Interfaces();
}

TEST(DfuDescriptors, DeviceDescriptorNamesTheDfuProduct) {
    const Bytes expected{18, 1, 0x01, 0x02, 0, 0, 0, 64, 0x1A, 0x2F, 0x01, 0x7E, 0x00, 0x01, 0, 0, 0, 1};
    EXPECT_EQ(VirtualCamera({}).DeviceDescriptor(), expected);
}

TEST(DfuDescriptors, ConfigurationHasOneDfuInterfaceAndTheFunctionalDescriptor) {
    const Bytes expected{9, 0x02, 27,   0,    1,    1,    0, 0x80, 50,     // configuration
                         9, 0x04, 0,    0,    0,    0xFE, 1, 2,    0,      // interface
                         9, 0x21, 0x03, 0xE8, 0x03, 0x00, 4, 0x10, 0x01};  // 1000 ms, 1024 bytes, DFU 1.1
    EXPECT_EQ(VirtualCamera({}).ConfigurationDescriptor(), expected);
}

TEST(DfuDescriptors, FunctionalDescriptorTellsTheTransferSize) {
    const Bytes configuration = VirtualCamera({.transferSize = 0xABCD}).ConfigurationDescriptor();
    ASSERT_EQ(configuration.size(), 27U);
    EXPECT_EQ(configuration[23], 0xCD);
    EXPECT_EQ(configuration[24], 0xAB);
}

TEST(DfuDescriptors, OnlyTheSynchronousPersonalityIsManifestationTolerant) {
    for (const auto personality :
         {Personality::Kv400, Personality::Strict, Personality::Lenient, Personality::Synchronous}) {
        const Bytes configuration = VirtualCamera({.personality = personality}).ConfigurationDescriptor();
        ASSERT_EQ(configuration.size(), 27U);
        EXPECT_EQ((configuration[20] & 0x04) != 0, personality == Personality::Synchronous)
            << NameOf(personality);
    }
}

TEST(DfuDescriptors, InterfacesOfTheCamerasOwnConfiguration) {
    EXPECT_EQ(VirtualCamera({}).Interfaces(), (std::vector<Interface>{{9, 4, 0, 0, 0, 0xFE, 1, 2, 0}}));
}

TEST(DfuDescriptors, OverrideIsAnsweredAsItIs) {
    const Bytes configuration{1, 2, 3};
    EXPECT_EQ(VirtualCamera({.configurationDescriptor = configuration}).ConfigurationDescriptor(),
              configuration);
}

TEST(DfuDescriptors, InterfacesOfAnOverrideKeepTheirOrder) {
    const Bytes endpoint{7, 5, 0x81, 2, 0, 2, 0};
    EXPECT_EQ(InterfacesOf(kHeader + kVideo + endpoint + kDfu), (std::vector{kVideo, kDfu}));
    EXPECT_EQ(InterfacesOf(kHeader + kDfu + endpoint + kVideo), (std::vector{kDfu, kVideo}));
}

TEST(DfuDescriptors, WalkEndsAtALengthOfZeroOrOne) {
    for (const std::uint8_t length : {std::uint8_t{0}, std::uint8_t{1}}) {
        EXPECT_EQ(InterfacesOf(kHeader + kVideo + Bytes{length} + kDfu), std::vector{kVideo});
    }
    EXPECT_EQ(InterfacesOf(Bytes(64, 0)), std::vector<Interface>{});
}

TEST(DfuDescriptors, WalkEndsAtADescriptorThatReachesPastTheEnd) {
    Bytes cut = kHeader + kVideo + kDfu;
    cut.pop_back();
    EXPECT_EQ(InterfacesOf(cut), std::vector{kVideo});
    EXPECT_EQ(InterfacesOf(kHeader + Bytes{255, 4, 0}), std::vector<Interface>{});
}

TEST(DfuDescriptors, WalkSurvivesEveryTruncation) {
    const Bytes whole = kHeader + kVideo + kDfu;
    for (std::size_t length = 1; length <= whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(InterfacesOf(cut).size(), length < 18 ? 0U : length < 27 ? 1U : 2U) << length;
    }
}

TEST(DfuDescriptors, WalkPassesOverAnInterfaceDescriptorThatIsTooShort) {
    EXPECT_EQ(InterfacesOf(kHeader + Bytes{8, 4, 0, 0, 0, 0xFE, 1, 2} + kDfu), std::vector{kDfu});
}

TEST(DfuDescriptors, WalkTakesTheFirstNineBytesOfALongerInterfaceDescriptor) {
    EXPECT_EQ(InterfacesOf(kHeader + Bytes{11, 4, 3, 1, 0, 0xFE, 1, 2, 0, 0xAA, 0xBB} + kVideo).size(), 2U);
    EXPECT_EQ(InterfacesOf(kHeader + Bytes{10, 4, 3, 1, 0, 0xFE, 1, 2, 0, 0xAA})[0][8], 0);
}

TransferEnd GetStateAt(CameraDriver& driver, std::uint16_t index) {
    std::array<std::uint8_t, 1> data{};
    const SetupPacket setup{.requestType = 0xA1, .request = 5, .index = index, .length = 1};
    return driver.camera.ControlTransfer(setup, data, driver.nowMs).end;
}

TEST(DfuDescriptors, RequestsGoToTheInterfaceThatTheConfigurationNames) {
    CameraDriver driver = InDfuMode({.configurationDescriptor = kHeader + kVideo + kDfu});

    EXPECT_EQ(GetStateAt(driver, 3), TransferEnd::Ok);
    EXPECT_EQ(GetStateAt(driver, 0), TransferEnd::Stall);
    EXPECT_EQ(GetStateAt(driver, 0x0103), TransferEnd::Stall);
}

TEST(DfuDescriptors, ConfigurationWithoutADfuInterfaceTakesNoDfuRequest) {
    CameraDriver driver = InDfuMode({.configurationDescriptor = kHeader + kVideo});

    EXPECT_EQ(GetStateAt(driver, 0), TransferEnd::Stall);

    EXPECT_EQ(driver.camera.State(), DfuState::DfuIdle);
}

}  // namespace
}  // namespace lab::test
