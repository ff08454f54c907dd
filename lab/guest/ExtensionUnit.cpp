#include "lab/guest/ExtensionUnit.h"

#include <fcntl.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <sys/ioctl.h>

#include <array>
#include <utility>

#include "lab/guest/FileDescriptor.h"
#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

constexpr std::uint8_t kFromDevice = 0x80;
constexpr std::array<std::pair<std::string_view, std::uint8_t>, 8> kQueries{{
    {"SET_CUR", UVC_SET_CUR},
    {"GET_CUR", UVC_GET_CUR},
    {"GET_MIN", UVC_GET_MIN},
    {"GET_MAX", UVC_GET_MAX},
    {"GET_RES", UVC_GET_RES},
    {"GET_LEN", UVC_GET_LEN},
    {"GET_INFO", UVC_GET_INFO},
    {"GET_DEF", UVC_GET_DEF},
}};

}  // namespace

std::optional<std::uint8_t> UvcQuery(std::string_view name) {
    for (const auto& [text, query] : kQueries) {
        if (text == name) {
            return query;
        }
    }
    return std::nullopt;
}

bool IsFromDevice(std::uint8_t query) {
    return (query & kFromDevice) != 0;
}

void QueryExtensionUnit(const std::filesystem::path& videoNode, std::uint8_t unit, std::uint8_t selector,
                        std::uint8_t query, std::span<std::uint8_t> data) {
    const FileDescriptor node = FileDescriptor::Open(videoNode, O_RDWR);
    uvc_xu_control_query command{};
    command.unit = unit;
    command.selector = selector;
    command.query = query;
    command.size = static_cast<std::uint16_t>(data.size());
    command.data = data.data();
    Checked(ioctl(node.Number(), UVCIOC_CTRL_QUERY, &command), "the extension unit's control");
}

}  // namespace lab::guest
