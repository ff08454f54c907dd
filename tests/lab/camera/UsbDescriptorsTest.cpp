#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/camera/UsbHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

// Every descriptor that a host can ask for, in both modes and at all speeds.

namespace lab::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Descriptors = std::vector<Bytes>;

constexpr std::array kSpeeds{Speed::Full, Speed::High, Speed::Super};

std::uint16_t WordAt(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes.at(offset) | bytes.at(offset + 1) << 8);
}

// One behind the other, each as long as it says. `width` is that of the length.
Descriptors Walk(const Bytes& bytes, std::size_t width = 1) {
    Descriptors found;
    for (std::size_t offset = 0; offset < bytes.size();) {
        const std::size_t length = width == 1 ? bytes[offset] : WordAt(bytes, offset);
        if (length < 2 * width || length > bytes.size() - offset) {
            throw std::runtime_error("a descriptor at " + std::to_string(offset) + " has a wrong length");
        }
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
        found.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
        offset += length;
    }
    return found;
}

std::vector<std::uint8_t> TypesOf(const Descriptors& descriptors) {
    std::vector<std::uint8_t> types;
    for (const Bytes& descriptor : descriptors) {
        types.push_back(descriptor[1]);
    }
    return types;
}

Bytes Utf16(const std::string& text) {
    Bytes bytes;
    for (const char character : text) {
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(character), 0});
    }
    return bytes;
}

UsbHost Host(BusMode mode, CameraSettings settings = {}) {
    UsbHost host(std::move(settings));
    if (mode == BusMode::Dfu) {
        host.PlugInDfuMode();
    } else {
        host.PlugIn(UsbState::Configured);
    }
    return host;
}

Bytes AskForMsOsSet(UsbHost& host) {
    return host.Get(0xC0, 0x4D, 0, 7, 0xFFFF).bytes;
}

TEST(UsbDescriptors, DeviceDescriptorWhileItRuns) {
    const Bytes expected{18, 1, 0x00, 0x02, 0xEF, 2, 1, 64, 0x1A, 0x2F, 0x00, 0x7E, 0x00, 0x01, 0, 0, 0, 1};
    EXPECT_EQ(Host(BusMode::Running).Descriptor(DescriptorType::Device).bytes, expected);
}

TEST(UsbDescriptors, DeviceDescriptorInDfuMode) {
    const Bytes expected{18, 1, 0x01, 0x02, 0, 0, 0, 64, 0x1A, 0x2F, 0x01, 0x7E, 0x00, 0x01, 0, 0, 0, 1};
    EXPECT_EQ(Host(BusMode::Dfu).Descriptor(DescriptorType::Device).bytes, expected);
}

TEST(UsbDescriptors, DeviceDescriptorAtSuperSpeedTellsPacketsOf512Bytes) {
    for (const BusMode mode : {BusMode::Running, BusMode::Dfu}) {
        const Bytes device = Host(mode, {.speed = Speed::Super}).Descriptor(DescriptorType::Device).bytes;
        EXPECT_EQ(WordAt(device, 2), 0x0300);
        EXPECT_EQ(device[7], 9);
    }
}

TEST(UsbDescriptors, DeviceQualifierIsThatOfTheMode) {
    for (const Speed speed : {Speed::Full, Speed::High}) {
        EXPECT_EQ(Host(BusMode::Running, {.speed = speed}).Descriptor(DescriptorType::DeviceQualifier).bytes,
                  (Bytes{10, 6, 0x00, 0x02, 0xEF, 2, 1, 64, 1, 0}));
        EXPECT_EQ(Host(BusMode::Dfu, {.speed = speed}).Descriptor(DescriptorType::DeviceQualifier).bytes,
                  (Bytes{10, 6, 0x01, 0x02, 0, 0, 0, 64, 1, 0}));
    }
}

TEST(UsbDescriptors, SuperSpeedHasNoOtherSpeed) {
    for (const BusMode mode : {BusMode::Running, BusMode::Dfu}) {
        UsbHost host = Host(mode, {.speed = Speed::Super});
        EXPECT_EQ(host.Descriptor(DescriptorType::DeviceQualifier).end, TransferEnd::Stall);
        EXPECT_EQ(host.Descriptor(DescriptorType::OtherSpeedConfiguration).end, TransferEnd::Stall);
    }
}

TEST(UsbDescriptors, OtherSpeedConfigurationIsThatOfTheOtherSpeed) {
    for (const BusMode mode : {BusMode::Running, BusMode::Dfu}) {
        UsbHost full = Host(mode, {.speed = Speed::Full});
        UsbHost high = Host(mode, {.speed = Speed::High});
        Bytes expected = high.Descriptor(DescriptorType::Configuration).bytes;
        expected[1] = 7;
        EXPECT_EQ(full.Descriptor(DescriptorType::OtherSpeedConfiguration).bytes, expected);
        expected = full.Descriptor(DescriptorType::Configuration).bytes;
        expected[1] = 7;
        EXPECT_EQ(high.Descriptor(DescriptorType::OtherSpeedConfiguration).bytes, expected);
    }
}

TEST(UsbDescriptors, ConfigurationWhileItRuns) {
    const Descriptors expected{
        {9, 2, 190, 0, 2, 1, 0, 0x80, 50},
        {8, 0x0B, 0, 2, 0x0E, 3, 0, 0},
        {9, 4, 0, 0, 0, 0x0E, 1, 0, 0},
        {13, 0x24, 1, 0x10, 0x01, 78, 0, 0x00, 0x6C, 0xDC, 0x02, 1, 1},
        {18, 0x24, 2, 1, 0x01, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0},
        {12, 0x24, 5, 2, 1, 0, 0, 2, 0, 0, 0, 0},
        {26,   0x24, 6,    3,    0xCB, 0x6C, 0x60, 0xC9, 0x4C, 0x59, 0x25, 0x4D, 0xAF,
         0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95, 1,    1,    2,    1,    1,    0},
        {9, 0x24, 3, 4, 0x01, 0x01, 0, 3, 0},
        {9, 4, 1, 0, 0, 0x0E, 2, 0, 0},
        {14, 0x24, 1, 1, 61, 0, 0x81, 0, 4, 0, 0, 0, 1, 0},
        {11, 0x24, 6, 1, 1, 0, 1, 0, 0, 0, 0},
        {30,   0x24, 7,    1,    0,    0x00, 0x05, 0xD0, 0x02, 0x00, 0x00, 0x5E, 0x1A, 0x00, 0x00,
         0x5E, 0x1A, 0x00, 0x20, 0x1C, 0x00, 0x15, 0x16, 0x05, 0x00, 1,    0x15, 0x16, 0x05, 0x00},
        {6, 0x24, 0x0D, 1, 1, 4},
        {9, 4, 1, 1, 1, 0x0E, 2, 0, 0},
        {7, 5, 0x81, 5, 0x00, 0x04, 1},
    };
    EXPECT_EQ(Walk(Host(BusMode::Running).Descriptor(DescriptorType::Configuration).bytes), expected);
}

TEST(UsbDescriptors, TheVideoEndpointIsThatOfTheSpeed) {
    const auto endOf = [](Speed speed, std::size_t count) {
        const Bytes bytes =
            Host(BusMode::Running, {.speed = speed}).Descriptor(DescriptorType::Configuration).bytes;
        return Bytes(bytes.end() - static_cast<std::ptrdiff_t>(count), bytes.end());
    };
    EXPECT_EQ(endOf(Speed::Full, 7), (Bytes{7, 5, 0x81, 5, 0xFF, 0x03, 1}));
    EXPECT_EQ(endOf(Speed::High, 7), (Bytes{7, 5, 0x81, 5, 0x00, 0x04, 1}));
    EXPECT_EQ(endOf(Speed::Super, 13), (Bytes{7, 5, 0x81, 5, 0x00, 0x04, 1, 6, 0x30, 0, 0, 0x00, 0x04}));
}

TEST(UsbDescriptors, UnitsAreTheNodesOfTheTopology) {
    const auto unitsOf = [](CameraSettings settings) {
        std::vector<std::array<std::uint8_t, 3>> units;  // subtype, number, source
        const Bytes bytes =
            Host(BusMode::Running, std::move(settings)).Descriptor(DescriptorType::Configuration).bytes;
        for (const Bytes& each : Walk(bytes)) {
            if (each[1] == 0x24 && each[2] == 5 && each.size() == 12) {
                units.push_back({5, each[3], each[4]});
            } else if (each[1] == 0x24 && each[2] == 6 && each.size() == 26) {
                units.push_back({6, each[3], each[22]});
            } else if (each[1] == 0x24 && each[2] == 3) {
                units.push_back({3, each[3], each[7]});
            }
        }
        return units;
    };
    using Units = std::vector<std::array<std::uint8_t, 3>>;
    constexpr auto kUnit = TopologyNode::ExtensionUnit;
    EXPECT_EQ(unitsOf({}), (Units{{5, 2, 1}, {6, 3, 2}, {3, 4, 3}}));
    EXPECT_EQ(unitsOf({.hasExtensionUnit = false}), (Units{{5, 2, 1}, {3, 3, 2}}));
    EXPECT_EQ(unitsOf({.nodes = {}}), (Units{{3, 2, 1}}));
    EXPECT_EQ(unitsOf({.nodes = {TopologyNode::Foreign, kUnit, TopologyNode::Broken, kUnit}}),
              (Units{{6, 2, 1}, {6, 3, 2}, {6, 4, 3}, {6, 5, 4}, {3, 6, 5}}));
}

TEST(UsbDescriptors, OnlyTheFirmwaresUnitHasItsCode) {
    const CameraSettings settings{
        .nodes = {TopologyNode::Foreign, TopologyNode::ExtensionUnit, TopologyNode::Broken}};
    std::set<Bytes> codes;
    for (const Bytes& each :
         Walk(Host(BusMode::Running, settings).Descriptor(DescriptorType::Configuration).bytes)) {
        if (each[1] == 0x24 && each.size() == 26) {
            codes.emplace(each.begin() + 4, each.begin() + 20);
        }
    }
    EXPECT_EQ(codes.size(), 3U);
}

TEST(UsbDescriptors, AsManyUnitsAsCanBeNumbered) {
    const std::vector<TopologyNode> most(253, TopologyNode::Foreign);
    EXPECT_EQ(UsbHost({.nodes = most}).device.State(), UsbState::Absent);
    const std::vector<TopologyNode> tooMany(254, TopologyNode::Foreign);
    EXPECT_THROW(UsbHost({.nodes = tooMany}), std::length_error);
}

TEST(UsbDescriptors, ARuntimeDeviceHasADfuInterfaceBehindItsVideo) {
    const Bytes bytes = Host(BusMode::Running, {.personality = Personality::Strict, .transferSize = 2048})
                            .Descriptor(DescriptorType::Configuration)
                            .bytes;
    EXPECT_EQ(bytes[4], 3);
    EXPECT_EQ(Bytes(bytes.end() - 18, bytes.end()),
              (Bytes{9, 4, 2, 0, 0, 0xFE, 1, 1, 0, 9, 0x21, 3, 0xE8, 3, 0x00, 8, 0x10, 1}));
}

TEST(UsbDescriptors, ConfigurationInDfuModeIsTheCameras) {
    for (const auto& [name, personality] : kPersonalities) {
        UsbHost host = Host(BusMode::Dfu, {.personality = personality});
        EXPECT_EQ(host.Descriptor(DescriptorType::Configuration).bytes,
                  host.device.Camera().ConfigurationDescriptor())
            << name;
    }
}

TEST(UsbDescriptors, AReplacedConfigurationIsToldAsItIs) {
    const Bytes replaced{9, 2, 99, 0, 1, 1, 0, 0x80, 50, 9, 4};
    UsbHost host = Host(BusMode::Dfu, {.configurationDescriptor = replaced});
    EXPECT_EQ(host.Descriptor(DescriptorType::Configuration).bytes, replaced);
    UsbHost running = Host(BusMode::Running, {.configurationDescriptor = replaced});
    EXPECT_EQ(running.Descriptor(DescriptorType::Configuration).bytes,
              Host(BusMode::Running).Descriptor(DescriptorType::Configuration).bytes);
}

TEST(UsbDescriptors, BinaryObjectStoreInDfuModeAnnouncesTheMsOsSet) {
    const Bytes expected{5,    0x0F, 33,   0,    1,  //
                         28,   0x10, 5,    0,    0xDF, 0x60, 0xDD, 0xD8, 0x89, 0x45, 0xC7, 0x4C, 0x9C, 0xD2,
                         0x65, 0x9D, 0x9E, 0x64, 0x8A, 0x9F, 0x00, 0x00, 0x03, 0x06, 162,  0,    0x4D, 0};
    for (const Speed speed : {Speed::Full, Speed::High}) {
        EXPECT_EQ(Host(BusMode::Dfu, {.speed = speed}).Descriptor(DescriptorType::BinaryObjectStore).bytes,
                  expected);
    }
}

TEST(UsbDescriptors, BinaryObjectStoreAtSuperSpeed) {
    const Descriptors running{
        {5, 0x0F, 22, 0, 2}, {7, 0x10, 2, 0x02, 0, 0, 0}, {10, 0x10, 3, 0, 0x0E, 0, 1, 10, 0xF4, 0x01}};
    UsbHost host = Host(BusMode::Running, {.speed = Speed::Super});
    EXPECT_EQ(Walk(host.Descriptor(DescriptorType::BinaryObjectStore).bytes), running);

    UsbHost inDfuMode = Host(BusMode::Dfu, {.speed = Speed::Super});
    const Bytes bytes = inDfuMode.Descriptor(DescriptorType::BinaryObjectStore).bytes;
    EXPECT_EQ(WordAt(bytes, 2), 50);
    EXPECT_EQ(bytes[4], 3);
    EXPECT_EQ(Walk(bytes).size(), 4U);
}

TEST(UsbDescriptors, TheRunningCameraHasNoBinaryObjectStoreBelowSuperSpeed) {
    for (const Speed speed : {Speed::Full, Speed::High}) {
        UsbHost host = Host(BusMode::Running, {.speed = speed});
        EXPECT_EQ(host.Descriptor(DescriptorType::BinaryObjectStore).end, TransferEnd::Stall);
    }
}

TEST(UsbDescriptors, MsOsSetBindsWinUsbAndNamesAnInterfaceClass) {
    UsbHost host = Host(BusMode::Dfu);
    Bytes property{132, 0, 4, 0, 7, 0, 42, 0};
    const Bytes name = Utf16(std::string("DeviceInterfaceGUIDs") + '\0');
    property.insert(property.end(), name.begin(), name.end());
    property.insert(property.end(), {80, 0});
    const Bytes data = Utf16("{8F3A1C52-6B0D-4E97-A1D4-2C75E9B08F36}" + std::string(2, '\0'));
    property.insert(property.end(), data.begin(), data.end());
    const Descriptors expected{{10, 0, 0, 0, 0x00, 0x00, 0x03, 0x06, 162, 0},
                               {20, 0, 3, 0, 'W', 'I', 'N', 'U', 'S', 'B', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                               property};
    EXPECT_EQ(Walk(AskForMsOsSet(host), 2), expected);
}

TEST(UsbDescriptors, MsOsSetIsAskedForByItsCodeAndIndexInDfuModeOnly) {
    UsbHost host = Host(BusMode::Dfu);
    EXPECT_EQ(host.Get(0xC0, 0x4D, 0, 4, 64).end, TransferEnd::Stall);
    EXPECT_EQ(host.Get(0xC0, 0x4C, 0, 7, 64).end, TransferEnd::Stall);
    EXPECT_EQ(host.Get(0xC1, 0x4D, 0, 7, 64).end, TransferEnd::Stall);
    EXPECT_EQ(host.Set(0x40, 0x4D, 0, 7), TransferEnd::Stall);
    EXPECT_EQ(AskForMsOsSet(host).size(), 162U);
    UsbHost running = Host(BusMode::Running);
    EXPECT_EQ(running.Get(0xC0, 0x4D, 0, 7, 64).end, TransferEnd::Stall);
}

TEST(UsbDescriptors, StringsTellWhoseCameraItIs) {
    UsbHost host = Host(BusMode::Running, {.serialNumber = "KV4000007"});
    const auto string = [&host](std::uint8_t index) {
        return host.Descriptor(DescriptorType::String, index, 0xFF, 0x0409).bytes;
    };
    const auto expected = [](const std::string& text) {
        Bytes bytes = Utf16(text);
        bytes.insert(bytes.begin(), {static_cast<std::uint8_t>(2 + bytes.size()), 3});
        return bytes;
    };
    const Bytes device = host.Descriptor(DescriptorType::Device).bytes;
    EXPECT_EQ(Bytes(device.begin() + 14, device.begin() + 17), (Bytes{1, 2, 3}));
    EXPECT_EQ(host.Descriptor(DescriptorType::String).bytes, (Bytes{4, 3, 0x09, 0x04}));
    EXPECT_EQ(string(1), expected("Veyra"));
    EXPECT_EQ(string(2), expected("KV400 camera"));
    EXPECT_EQ(string(3), expected("KV4000007"));
    EXPECT_EQ(host.Descriptor(DescriptorType::String, 4, 0xFF, 0x0409).end, TransferEnd::Stall);
    EXPECT_EQ(host.Descriptor(DescriptorType::String, 0xEE, 0xFF, 0).end, TransferEnd::Stall);
    EXPECT_EQ(host.Descriptor(DescriptorType::String, 3, 0xFF, 0x0407).end, TransferEnd::Stall);

    UsbHost inDfuMode = Host(BusMode::Dfu, {.serialNumber = "KV4000007"});
    EXPECT_EQ(inDfuMode.Descriptor(DescriptorType::String, 2, 0xFF, 0x0409).bytes,
              expected("KV400 boot loader"));
    EXPECT_EQ(inDfuMode.Descriptor(DescriptorType::String, 3, 0xFF, 0x0409).bytes, expected("KV4000007"));
}

TEST(UsbDescriptors, ACameraWithoutASerialNumberHasNoStrings) {
    UsbHost host = Host(BusMode::Running);
    for (std::uint8_t index = 0; index < 4; ++index) {
        EXPECT_EQ(host.Descriptor(DescriptorType::String, index, 0xFF, 0x0409).end, TransferEnd::Stall);
    }
}

TEST(UsbDescriptors, TheLongestSerialNumberFillsItsDescriptor) {
    UsbHost host = Host(BusMode::Running, {.serialNumber = std::string(126, 'K')});
    EXPECT_EQ(host.Descriptor(DescriptorType::String, 3, 0xFF, 0x0409).bytes.size(), 254U);
    EXPECT_THROW(UsbHost({.serialNumber = std::string(127, 'K')}), std::length_error);
}

TEST(UsbDescriptors, WhatDoesNotExistStalls) {
    for (const BusMode mode : {BusMode::Running, BusMode::Dfu}) {
        UsbHost host = Host(mode);
        for (unsigned type = 0; type < 256; ++type) {
            const bool exists =
                type == 1 || type == 2 || type == 6 || type == 7 || (type == 0x0F && mode == BusMode::Dfu);
            const auto descriptor = DescriptorType{static_cast<std::uint8_t>(type)};
            EXPECT_EQ(host.Descriptor(descriptor).end, exists ? TransferEnd::Ok : TransferEnd::Stall) << type;
            EXPECT_EQ(host.Descriptor(descriptor, 1).end, TransferEnd::Stall) << type;
        }
        EXPECT_EQ(host.Get(0x81, 6, 0x2100, 0, 9).end, TransferEnd::Stall);
    }
}

// What a configuration promises of what follows its head, with every count in it.
void ExpectConfigurationHolds(const Bytes& configuration) {
    ASSERT_EQ(WordAt(configuration, 2), configuration.size());
    std::set<std::uint8_t> interfaces;
    std::map<std::pair<std::uint8_t, std::uint8_t>, int> settings;
    int endpointsLeft = 0;
    std::size_t classSpecific = 0;  // bytes that the total of the open class-specific header still counts
    for (const Bytes& each : Walk(configuration)) {
        const bool isClassSpecific = each[1] == 0x24;
        if (!isClassSpecific) {
            EXPECT_EQ(classSpecific, 0U);
        }
        if (each[1] == 4) {
            EXPECT_EQ(each.size(), 9U);
            EXPECT_EQ(endpointsLeft, 0);
            endpointsLeft = each[4];
            interfaces.insert(each[2]);
            EXPECT_EQ(++settings[std::pair(each[2], each[3])], 1);
        } else if (each[1] == 5) {
            EXPECT_EQ(each.size(), 7U);
            --endpointsLeft;
        } else if (isClassSpecific && each[2] == 1) {
            classSpecific = WordAt(each, each.size() == 13 ? 5 : 4) - each.size();
        } else if (isClassSpecific) {
            ASSERT_GE(classSpecific, each.size());
            classSpecific -= each.size();
        }
    }
    EXPECT_EQ(endpointsLeft, 0);
    EXPECT_EQ(interfaces.size(), configuration[4]);
    EXPECT_EQ(*interfaces.rbegin(), interfaces.size() - 1);
}

// A shorter wLength gets that much of the same, a longer one no more.
void ExpectCutExactly(UsbHost& host, DescriptorType type, std::uint8_t index, std::uint16_t language) {
    const Bytes whole = host.Descriptor(type, index, 0xFFFF, language).bytes;
    for (std::size_t length = 0; length <= whole.size() + 2; ++length) {
        const Reading cut = host.Descriptor(type, index, static_cast<std::uint16_t>(length), language);
        const std::size_t expected = std::min(length, whole.size());
        ASSERT_EQ(cut.end, TransferEnd::Ok);
        ASSERT_EQ(cut.bytes, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(expected)));
    }
}

void ExpectEveryDescriptorHolds(UsbHost& host, bool isSuper) {
    const auto read = [&host](DescriptorType type) { return host.Descriptor(type).bytes; };
    EXPECT_EQ(Walk(read(DescriptorType::Device)).size(), 1U);
    EXPECT_EQ(read(DescriptorType::Device).size(), 18U);
    ExpectConfigurationHolds(read(DescriptorType::Configuration));
    ExpectCutExactly(host, DescriptorType::Device, 0, 0);
    ExpectCutExactly(host, DescriptorType::Configuration, 0, 0);
    for (std::uint8_t index = 0; index < 4; ++index) {
        EXPECT_EQ(Walk(host.Descriptor(DescriptorType::String, index, 0xFF, 0x0409).bytes).size(), 1U);
        ExpectCutExactly(host, DescriptorType::String, index, 0x0409);
    }
    if (!isSuper) {
        EXPECT_EQ(Walk(read(DescriptorType::DeviceQualifier)),
                  Descriptors{read(DescriptorType::DeviceQualifier)});
        ExpectConfigurationHolds(read(DescriptorType::OtherSpeedConfiguration));
        ExpectCutExactly(host, DescriptorType::DeviceQualifier, 0, 0);
        ExpectCutExactly(host, DescriptorType::OtherSpeedConfiguration, 0, 0);
    }
    const Bytes store = read(DescriptorType::BinaryObjectStore);
    if (!store.empty()) {
        EXPECT_EQ(WordAt(store, 2), store.size());
        EXPECT_EQ(Walk(store).size(), 1U + store[4]);
        ExpectCutExactly(host, DescriptorType::BinaryObjectStore, 0, 0);
    }
    const Bytes set = AskForMsOsSet(host);
    if (!set.empty()) {
        EXPECT_EQ(WordAt(set, 8), set.size());
        EXPECT_EQ(Walk(set, 2).size(), 3U);
        EXPECT_EQ(WordAt(store, store.size() - 4), set.size());
    }
}

std::vector<DfuTraits> TraitsThatDescriptorsTell() {
    std::vector<DfuTraits> all;
    for (const bool isRuntimeDevice : {false, true}) {
        for (const bool hasHidInFront : {false, true}) {
            for (const auto manifestation :
                 {DfuTraits::Manifestation::WaitsForReset, DfuTraits::Manifestation::ResetsItself,
                  DfuTraits::Manifestation::Tolerant}) {
                all.push_back({.isRuntimeDevice = isRuntimeDevice,
                               .manifestation = manifestation,
                               .hasHidInFront = hasHidInFront});
            }
        }
    }
    for (const auto& [name, personality] : kPersonalities) {
        all.push_back(TraitsOf(personality));
    }
    return all;
}

class EveryDescriptor : public testing::TestWithParam<Speed> {};

TEST_P(EveryDescriptor, IsAsLongAsItSays) {
    for (const DfuTraits& traits : TraitsThatDescriptorsTell()) {
        for (const bool hasExtensionUnit : {true, false}) {
            const CameraSettings settings{.traits = traits,
                                          .hasExtensionUnit = hasExtensionUnit,
                                          .speed = GetParam(),
                                          .serialNumber = "KV4000001"};
            const bool isSuper = GetParam() == Speed::Super;
            UsbHost running = Host(BusMode::Running, settings);
            ExpectEveryDescriptorHolds(running, isSuper);
            if (hasExtensionUnit) {
                UsbHost inDfuMode = Host(BusMode::Dfu, settings);
                ExpectEveryDescriptorHolds(inDfuMode, isSuper);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Speeds, EveryDescriptor, testing::ValuesIn(kSpeeds));

TEST(UsbDescriptors, CompanionsFollowEachEndpointAtSuperSpeedAlone) {
    for (const Speed speed : kSpeeds) {
        UsbHost host = Host(BusMode::Running, {.speed = speed});
        const auto types = TypesOf(Walk(host.Descriptor(DescriptorType::Configuration).bytes));
        EXPECT_EQ(types.back(), speed == Speed::Super ? 0x30 : 0x05);
    }
}

}  // namespace
}  // namespace lab::test
