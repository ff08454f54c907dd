#include "lab/camera/UvcDescriptors.h"

#include "lab/camera/UvcTypes.h"

#include <array>

namespace lab {
namespace {

constexpr std::uint8_t kVideoClass = 0x0E;
constexpr std::uint8_t kControlSubclass = 1;
constexpr std::uint8_t kStreamingSubclass = 2;
constexpr std::uint8_t kCollectionSubclass = 3;
constexpr std::uint16_t kUvcVersion = 0x0110;

// Subtypes of the descriptors of type CS_INTERFACE.
enum class ControlSubtype : std::uint8_t {
    Header = 1,
    InputTerminal = 2,
    OutputTerminal = 3,
    ProcessingUnit = 5,
    ExtensionUnit = 6,
};
enum class StreamingSubtype : std::uint8_t {
    InputHeader = 0x01,
    FormatMjpeg = 0x06,
    FrameMjpeg = 0x07,
    ColorFormat = 0x0D,
};

using UnitCode = std::array<std::uint8_t, 16>;

// {C9606CCB-594C-4D25-AF47-CCC496435995}, by which the driver of the firmware's extension unit is found.
constexpr UnitCode kFirmwareUnit{0xCB, 0x6C, 0x60, 0xC9, 0x4C, 0x59, 0x25, 0x4D,
                                 0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95};
// Two that nobody knows.
constexpr UnitCode kForeignUnit{0x51, 0x0E, 0x8A, 0x7C, 0x2B, 0x60, 0x1D, 0x49,
                                0x9E, 0x33, 0x07, 0xB4, 0xD2, 0x58, 0xA6, 0x1F};
constexpr UnitCode kBrokenUnit{0x94, 0xD7, 0x3B, 0xE0, 0x6C, 0x12, 0xF5, 0x4A,
                               0x81, 0x2E, 0xC9, 0x40, 0x5D, 0xBB, 0x73, 0x68};

template <typename Subtype>
DescriptorWriter& BeginClassSpecific(DescriptorWriter& writer, Subtype subtype) {
    return writer.Begin(DescriptorType::ClassSpecificInterface).Byte(static_cast<std::uint8_t>(subtype));
}

void WriteInterface(DescriptorWriter& writer, std::uint8_t number, std::uint8_t alternate,
                    std::uint8_t endpoints, std::uint8_t subclass) {
    writer.Begin(DescriptorType::Interface)
        .Bytes({number, alternate, endpoints, kVideoClass, subclass, 0, 0});
}

void WriteProcessingUnit(DescriptorWriter& writer, const VideoTopology::Unit& unit) {
    BeginClassSpecific(writer, ControlSubtype::ProcessingUnit)
        .Bytes({unit.id, unit.source})
        .Word(0)  // no digital zoom
        .Byte(2)
        .Word(0)  // no controls
        .Bytes({0, 0});
}

void WriteExtensionUnit(DescriptorWriter& writer, const VideoTopology::Unit& unit, const UnitCode& code) {
    constexpr std::uint8_t kOneControl = 0x01;
    BeginClassSpecific(writer, ControlSubtype::ExtensionUnit)
        .Byte(unit.id)
        .Bytes(code)
        .Bytes({1, 1, unit.source, 1, kOneControl, 0});
}

void WriteUnit(DescriptorWriter& writer, const VideoTopology::Unit& unit) {
    switch (unit.node) {
        case TopologyNode::Processing:
            WriteProcessingUnit(writer, unit);
            break;
        case TopologyNode::Foreign:
            WriteExtensionUnit(writer, unit, kForeignUnit);
            break;
        case TopologyNode::Broken:
            WriteExtensionUnit(writer, unit, kBrokenUnit);
            break;
        case TopologyNode::ExtensionUnit:
            WriteExtensionUnit(writer, unit, kFirmwareUnit);
            break;
    }
}

void WriteControlInterface(DescriptorWriter& writer, const VideoTopology& topology) {
    constexpr std::uint16_t kCamera = 0x0201;
    constexpr std::uint16_t kStreaming = 0x0101;
    WriteInterface(writer, kVideoControlInterface, 0, 0, kControlSubclass);
    BeginClassSpecific(writer, ControlSubtype::Header)
        .Word(kUvcVersion)
        .OpenTotal()
        .Long(VideoFrame::kClockHz)
        .Bytes({1, kVideoStreamingInterface});
    BeginClassSpecific(writer, ControlSubtype::InputTerminal)
        .Byte(VideoTopology::kCameraTerminal)
        .Word(kCamera)
        .Bytes({0, 0})
        .Word(0)
        .Word(0)
        .Word(0)               // no optical zoom
        .Bytes({3, 0, 0, 0});  // no controls
    for (const VideoTopology::Unit& unit : topology.Units()) {
        WriteUnit(writer, unit);
    }
    BeginClassSpecific(writer, ControlSubtype::OutputTerminal)
        .Byte(topology.OutputTerminal())
        .Word(kStreaming)
        .Bytes({0, topology.OutputSource(), 0});
    writer.CloseTotal();
}

void WriteFormat(DescriptorWriter& writer, std::uint8_t terminal) {
    constexpr std::uint8_t kDiscreteIntervals = 1;
    constexpr std::uint32_t kBitsPerSecond = VideoFrame::kLargest * 8 * 30;
    BeginClassSpecific(writer, StreamingSubtype::InputHeader)
        .Byte(1)
        .OpenTotal()
        .Bytes({kVideoEndpoint, 0, terminal, 0, 0, 0, 1, 0});
    BeginClassSpecific(writer, StreamingSubtype::FormatMjpeg)
        .Bytes({VideoFrame::kFormatIndex, 1, 0, VideoFrame::kFrameIndex, 0, 0, 0, 0});
    BeginClassSpecific(writer, StreamingSubtype::FrameMjpeg)
        .Bytes({VideoFrame::kFrameIndex, 0})
        .Word(VideoFrame::kWidth)
        .Word(VideoFrame::kHeight)
        .Long(kBitsPerSecond)
        .Long(kBitsPerSecond)
        .Long(VideoFrame::kLargest)
        .Long(VideoFrame::kInterval)
        .Byte(kDiscreteIntervals)
        .Long(VideoFrame::kInterval);
    BeginClassSpecific(writer, StreamingSubtype::ColorFormat).Bytes({1, 1, 4});
    writer.CloseTotal();
}

void WriteEndpoint(DescriptorWriter& writer, Speed speed) {
    constexpr std::uint8_t kAsynchronousIsochronous = 0x05;
    const std::uint16_t packetSize = VideoPacketSize(speed);
    writer.Begin(DescriptorType::Endpoint)
        .Bytes({kVideoEndpoint, kAsynchronousIsochronous})
        .Word(packetSize)
        .Byte(1);
    if (speed == Speed::Super) {
        writer.Begin(DescriptorType::EndpointCompanion).Bytes({0, 0}).Word(packetSize);
    }
}

}  // namespace

void WriteVideoFunction(DescriptorWriter& writer, const VideoTopology& topology, Speed speed) {
    writer.Begin(DescriptorType::InterfaceAssociation)
        .Bytes({kVideoControlInterface, 2, kVideoClass, kCollectionSubclass, 0, 0});
    WriteControlInterface(writer, topology);
    WriteInterface(writer, kVideoStreamingInterface, 0, 0, kStreamingSubclass);
    WriteFormat(writer, topology.OutputTerminal());
    WriteInterface(writer, kVideoStreamingInterface, 1, 1, kStreamingSubclass);
    WriteEndpoint(writer, speed);
}

std::uint16_t VideoPacketSize(Speed speed) {
    constexpr std::uint16_t kMostAtFullSpeed = 1023;
    constexpr std::uint16_t kMost = 1024;
    return speed == Speed::Full ? kMostAtFullSpeed : kMost;
}

}  // namespace lab
