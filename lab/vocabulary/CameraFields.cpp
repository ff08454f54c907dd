#include "lab/vocabulary/CameraFields.h"

#include <algorithm>
#include <charconv>

#include "lab/vocabulary/StageFields.h"
#include "lab/vocabulary/HexText.h"

namespace lab {
namespace {

using nlohmann::json;

constexpr std::array<std::pair<std::string_view, DfuTraits::Detach>, 4> kDetaches{{
    {"accepted", DfuTraits::Detach::Accepted},
    {"restarts", DfuTraits::Detach::Restarts},
    {"restarts in dfu mode", DfuTraits::Detach::RestartsInDfuMode},
    {"stalls", DfuTraits::Detach::Stalls},
}};

constexpr std::array<std::pair<std::string_view, DfuTraits::Upload>, 3> kUploads{{
    {"status block", DfuTraits::Upload::StatusBlock},
    {"flash", DfuTraits::Upload::Flash},
    {"stalls", DfuTraits::Upload::Stalls},
}};

constexpr std::array<std::pair<std::string_view, DfuTraits::Manifestation>, 3> kManifestations{{
    {"waits for reset", DfuTraits::Manifestation::WaitsForReset},
    {"resets itself", DfuTraits::Manifestation::ResetsItself},
    {"tolerant", DfuTraits::Manifestation::Tolerant},
}};

constexpr std::array<std::pair<std::string_view, DfuTraits::SetInterface>, 3> kSetInterfaces{{
    {"ignored", DfuTraits::SetInterface::Ignored},
    {"resets state", DfuTraits::SetInterface::ResetsState},
    {"stalls", DfuTraits::SetInterface::Stalls},
}};

constexpr std::array<std::pair<std::string_view, DfuTraits::BootCheck>, 2> kBootChecks{{
    {"record", DfuTraits::BootCheck::Record},
    {"first page", DfuTraits::BootCheck::FirstPage},
}};

constexpr std::array<std::pair<std::string_view, bool DfuTraits::*>, 13> kSwitches{{
    {"drops_blocks_in_upload", &DfuTraits::dropsBlocksInUpload},
    {"busy_first", &DfuTraits::isBusyFirst},
    {"answers_while_writing", &DfuTraits::answersWhileWriting},
    {"deaf_while_writing", &DfuTraits::isDeafWhileWriting},
    {"answers_while_manifesting", &DfuTraits::answersWhileManifesting},
    {"stalls_in_place", &DfuTraits::stallsInPlace},
    {"hides_status", &DfuTraits::hidesStatus},
    {"hides_write_time", &DfuTraits::hidesWriteTime},
    {"writes_at_once", &DfuTraits::writesAtOnce},
    {"takes_empty_image", &DfuTraits::takesEmptyImage},
    {"addresses_blocks", &DfuTraits::addressesBlocks},
    {"puts_back", &DfuTraits::putsBack},
    {"hid_in_front", &DfuTraits::hasHidInFront},
}};

constexpr std::array<std::pair<std::string_view, Fault::Where>, 13> kWheres{{
    {"DETACH", Fault::Where::Detach},
    {"DNLOAD", Fault::Where::Dnload},
    {"UPLOAD", Fault::Where::Upload},
    {"GETSTATUS", Fault::Where::GetStatus},
    {"CLRSTATUS", Fault::Where::ClrStatus},
    {"GETSTATE", Fault::Where::GetState},
    {"ABORT", Fault::Where::Abort},
    {"COMMAND-WRITE", Fault::Where::CommandWrite},
    {"COMMAND-READ", Fault::Where::CommandRead},
    {"GET-DESCRIPTOR", Fault::Where::GetDescriptor},
    {"SET-INTERFACE", Fault::Where::SetInterface},
    {"FLASH-ERASE", Fault::Where::FlashErase},
    {"FLASH-WRITE", Fault::Where::FlashWrite},
}};

constexpr std::array<std::pair<std::string_view, Fault::What>, 8> kWhats{{
    {"stall", Fault::What::Stall},
    {"timeout", Fault::What::Timeout},
    {"unplug", Fault::What::Unplug},
    {"status", Fault::What::Status},
    {"state", Fault::What::State},
    {"poll", Fault::What::PollTime},
    {"short", Fault::What::ShortReply},
    {"echo", Fault::What::WrongEcho},
}};

constexpr std::array<std::pair<std::string_view, Fault::Moment>, 3> kMoments{{
    {"before", Fault::Moment::Before},
    {"middle", Fault::Moment::Middle},
    {"after", Fault::Moment::After},
}};

constexpr std::array<std::pair<std::string_view, TopologyNode>, 4> kNodes{{
    {"processing", TopologyNode::Processing},
    {"foreign", TopologyNode::Foreign},
    {"broken", TopologyNode::Broken},
    {"extension-unit", TopologyNode::ExtensionUnit},
}};

constexpr std::array<std::pair<std::string_view, Speed>, 3> kSpeeds{{
    {"full", Speed::Full},
    {"high", Speed::High},
    {"super", Speed::Super},
}};

std::array<std::uint8_t, 4> ToVersion(const json& value) {
    const auto text = value.get<std::string>();
    std::array<std::uint8_t, 4> version{};
    const char* position = text.data();
    const char* const end = position + text.size();
    for (std::size_t index = 0; index < version.size(); ++index) {
        if (index != 0 && (position == end || *position++ != '.')) {
            Refuse("version", value);
        }
        const auto [next, error] = std::from_chars(position, end, version[index]);
        if (error != std::errc{}) {
            Refuse("version", value);
        }
        position = next;
    }
    if (position != end) {
        Refuse("version", value);
    }
    return version;
}

std::vector<std::uint8_t> ToBytes(const std::string& field, const json& value) {
    auto bytes = BytesFromHex(value.get<std::string>());
    if (!bytes) {
        Refuse(field, value);
    }
    return *std::move(bytes);
}

Fault ToFault(const json& fields) {
    Fault fault;
    for (const auto& [field, value] : fields.items()) {
        if (field == "where") {
            fault.where = ToChoice(field, value, kWheres);
        } else if (field == "what") {
            fault.what = ToChoice(field, value, kWhats);
        } else if (field == "skip") {
            fault.skip = ToNumber<unsigned>(field, value);
        } else if (field == "count") {
            fault.count = ToNumber<unsigned>(field, value);
        } else if (field == "value") {
            fault.value = ToNumber<std::uint32_t>(field, value);
        } else if (field == "sets_error") {
            fault.setsError = value.get<bool>();
        } else if (field == "moment") {
            fault.moment = ToChoice(field, value, kMoments);
        } else {
            throw std::runtime_error("a fault has no field " + field);
        }
    }
    return fault;
}

std::vector<TopologyNode> ToNodes(const json& list) {
    std::vector<TopologyNode> nodes;
    for (const json& node : list) {
        nodes.push_back(ToChoice("node", node, kNodes));
    }
    return nodes;
}

// The personality's traits with those that the stage tells.
DfuTraits ToTraits(Personality personality, const json& fields) {
    DfuTraits traits = TraitsOf(personality);
    for (const auto& [field, value] : fields.items()) {
        if (field == "detach") {
            traits.detach = ToChoice(field, value, kDetaches);
        } else if (field == "upload") {
            traits.upload = ToChoice(field, value, kUploads);
        } else if (field == "manifestation") {
            traits.manifestation = ToChoice(field, value, kManifestations);
        } else if (field == "set_interface") {
            traits.setInterface = ToChoice(field, value, kSetInterfaces);
        } else if (field == "boot_check") {
            traits.bootCheck = ToChoice(field, value, kBootChecks);
        } else {
            traits.*ToChoice("trait", field, kSwitches) = value.get<bool>();
        }
    }
    return traits;
}

template <typename Value, std::size_t Count>
std::string_view WordOf(const std::array<std::pair<std::string_view, Value>, Count>& words, Value value) {
    return std::ranges::find(words, value, &std::pair<std::string_view, Value>::second)->first;
}

template <typename Value, std::size_t Count>
void WriteWhereOther(json& fields, const char* field,
                     const std::array<std::pair<std::string_view, Value>, Count>& words, Value value,
                     Value usual) {
    if (value != usual) {
        fields[field] = WordOf(words, value);
    }
}

// In what the traits depart from the personality's.
json WriteTraits(const DfuTraits& traits, const DfuTraits& usual) {
    json fields = json::object();
    WriteWhereOther(fields, "detach", kDetaches, traits.detach, usual.detach);
    WriteWhereOther(fields, "upload", kUploads, traits.upload, usual.upload);
    WriteWhereOther(fields, "manifestation", kManifestations, traits.manifestation, usual.manifestation);
    WriteWhereOther(fields, "set_interface", kSetInterfaces, traits.setInterface, usual.setInterface);
    WriteWhereOther(fields, "boot_check", kBootChecks, traits.bootCheck, usual.bootCheck);
    for (const auto& [name, member] : kSwitches) {
        if (traits.*member != usual.*member) {
            fields[std::string(name)] = traits.*member;
        }
    }
    return fields;
}

}  // namespace

CameraSettings ReadCameraFields(const json& fields, json& others) {
    CameraSettings camera;
    for (const auto& [field, value] : fields.items()) {
        if (field == "version") {
            camera.version = ToVersion(value);
        } else if (field == "personality") {
            camera.personality = ToChoice(field, value, kPersonalities);
        } else if (field == "traits") {
            camera.traits = ToTraits(
                ToChoice("personality", fields.value("personality", "kv400"), kPersonalities), value);
        } else if (field == "transfer_size") {
            camera.transferSize = ToNumber<std::uint16_t>(field, value);
        } else if (field == "block_ms") {
            camera.blockMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "manifest_ms") {
            camera.manifestMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "manifests_at_once") {
            camera.manifestsAtOnce = value.get<bool>();
        } else if (field == "reset_ms") {
            camera.resetMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "detach_ms") {
            camera.detachMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "enumerate_ms") {
            camera.enumerateMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "faults") {
            camera.faults = ReadFaults(value);
        } else if (field == "configuration_descriptor") {
            camera.configurationDescriptor = ToBytes(field, value);
        } else if (field == "has_extension_unit") {
            camera.hasExtensionUnit = value.get<bool>();
        } else if (field == "nodes") {
            camera.nodes = ToNodes(value);
        } else if (field == "two_banks") {
            camera.hasTwoBanks = value.get<bool>();
        } else if (field == "page_size") {
            camera.pageSize = ToNumber<std::uint16_t>(field, value);
        } else if (field == "speed") {
            camera.speed = ToChoice(field, value, kSpeeds);
        } else if (field == "timeout_ms") {
            camera.timeoutMs = ToNumber<std::uint32_t>(field, value);
        } else if (field == "driver_ms") {
            camera.driverStartMs =
                value == "never" ? std::nullopt : std::optional(ToNumber<std::uint32_t>(field, value));
        } else {
            others[field] = value;
        }
    }
    return camera;
}

std::vector<Fault> ReadFaults(const json& list) {
    std::vector<Fault> faults;
    for (const json& fields : list) {
        faults.push_back(ToFault(fields));
    }
    return faults;
}

json WriteCameraFields(const CameraSettings& camera) {
    json fields = {
        {"personality", WordOf(kPersonalities, camera.personality)},
        {"transfer_size", camera.transferSize},
        {"block_ms", camera.blockMs},
        {"manifest_ms", camera.manifestMs},
        {"two_banks", camera.hasTwoBanks},
        {"page_size", camera.pageSize},
    };
    if (const json traits = WriteTraits(TraitsOf(camera), TraitsOf(camera.personality)); !traits.empty()) {
        fields["traits"] = traits;
    }
    return fields;
}

json WriteFault(const Fault& fault) {
    return {{"where", WordOf(kWheres, fault.where)},
            {"what", WordOf(kWhats, fault.what)},
            {"skip", fault.skip},
            {"count", fault.count},
            {"value", fault.value},
            {"sets_error", fault.setsError},
            {"moment", WordOf(kMoments, fault.moment)}};
}

}  // namespace lab
