#include "lab/guest/Presence.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/guest/UsbPath.h"

namespace lab::guest {
namespace {

using nlohmann::json;

constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kChanges{{
    {"add", "arrival"},
    {"bind", "ready"},
    {"remove", "removal"},
}};

std::string_view ChangeOf(std::string_view action) {
    for (const auto& [name, change] : kChanges) {
        if (name == action) {
            return change;
        }
    }
    return {};
}

template <typename Integer>
std::optional<Integer> WholeNumber(std::string_view text, int base) {
    Integer number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// As sysfs writes an id: four digits.
std::string IdText(std::uint16_t id) {
    std::array<char, 4> digits{'0', '0', '0', '0'};
    for (auto digit = digits.rbegin(); digit != digits.rend();
         ++digit, id = static_cast<std::uint16_t>(id >> 4)) {
        *digit = "0123456789abcdef"[id & 0x0F];
    }
    return {digits.begin(), digits.end()};
}

}  // namespace

std::optional<json> PresenceEvent(const Uevent& uevent) {
    const std::string_view change = ChangeOf(uevent.Field("ACTION"));
    if (change.empty() || uevent.Field("DEVTYPE") != "usb_device") {
        return std::nullopt;
    }
    const std::string_view folder = uevent.Field("DEVPATH");
    const std::string_view path = folder.substr(folder.rfind('/') + 1);
    // Vendor, product and release: "2f1a/7e01/100".
    const std::string_view product = uevent.Field("PRODUCT");
    const std::size_t first = product.find('/');
    const std::size_t second = product.find('/', first + 1);
    if (!IsUsbPath(path) || first == std::string_view::npos || second == std::string_view::npos) {
        return std::nullopt;
    }
    const auto vendorId = WholeNumber<std::uint16_t>(product.substr(0, first), 16);
    const auto productId = WholeNumber<std::uint16_t>(product.substr(first + 1, second - first - 1), 16);
    const auto bus = WholeNumber<std::uint32_t>(uevent.Field("BUSNUM"), 10);
    const auto number = WholeNumber<std::uint32_t>(uevent.Field("DEVNUM"), 10);
    if (!vendorId || !productId || !bus || !number) {
        return std::nullopt;
    }
    return json{{"event", "device"},
                {"change", change},
                {"path", path},
                {"vendor", IdText(*vendorId)},
                {"product", IdText(*productId)},
                {"bus", *bus},
                {"number", *number}};
}

}  // namespace lab::guest
