#include "lab/camera/MsOsDescriptors.h"

#include "lab/camera/DescriptorWriter.h"

#include <string_view>

namespace lab {
namespace {

using namespace std::string_view_literals;

enum class MsOsType : std::uint16_t { SetHeader = 0x00, CompatibleId = 0x03, RegistryProperty = 0x04 };

constexpr std::uint16_t kMultipleTexts = 7;  // REG_MULTI_SZ
constexpr auto kPropertyName = u"DeviceInterfaceGUIDs\0"sv;
constexpr auto kPropertyData = u"{8F3A1C52-6B0D-4E97-A1D4-2C75E9B08F36}\0\0"sv;

constexpr std::uint16_t BytesOf(std::u16string_view text) {
    return static_cast<std::uint16_t>(text.size() * sizeof(char16_t));
}

DescriptorWriter& BeginMsOs(DescriptorWriter& writer, MsOsType type) {
    return writer.BeginWide(static_cast<std::uint16_t>(type));
}

}  // namespace

std::vector<std::uint8_t> MakeMsOsSet() {
    DescriptorWriter writer;
    BeginMsOs(writer, MsOsType::SetHeader).Long(kMsOsWindowsVersion).OpenTotal();
    BeginMsOs(writer, MsOsType::CompatibleId)
        .Bytes({'W', 'I', 'N', 'U', 'S', 'B', 0, 0})
        .Bytes({0, 0, 0, 0, 0, 0, 0, 0});
    BeginMsOs(writer, MsOsType::RegistryProperty)
        .Word(kMultipleTexts)
        .Word(BytesOf(kPropertyName))
        .Text(kPropertyName)
        .Word(BytesOf(kPropertyData))
        .Text(kPropertyData);
    return writer.Finish();
}

}  // namespace lab
