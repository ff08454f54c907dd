#include "host/bench/PresentLinks.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kFewest = 10;

// About 90 characters. Vendor, product and instance differ from link to link; some devices are composite.
void AppendLink(std::vector<wchar_t>& list, std::size_t number, bool isCamera) {
    constexpr std::array kVendors{0x046DU, 0x8087U, 0x05ACU, 0x2F1BU, 0x0BDAU, 0x1D6BU, 0x2F1AU};
    std::array<wchar_t, 128> link{};
    const auto id = static_cast<unsigned>(number);
    const unsigned vendor = isCamera ? 0x2F1AU : kVendors[number % kVendors.size()];
    const unsigned product = isCamera ? 0x7E01U + id % 2 : 0x8000U | (id * 7919U & 0x7FFFU);
    const int length = std::swprintf(link.data(), link.size(),
                                     L"\\\\?\\USB#VID_%04X&PID_%04X&MI_%02X#%x&%08x&0&%04x#"
                                     L"{a5dcbf10-6530-11d2-901f-00c04fb951ed}",
                                     vendor, product, id % 6, 5 + id % 4, id * 2654435761U, id % 6);
    list.insert(list.end(), link.begin(), link.begin() + length + 1);
}

std::vector<wchar_t> MakeList(std::size_t count) {
    if (count < kFewest) {
        throw std::invalid_argument("too few links");
    }
    std::vector<wchar_t> list;
    for (std::size_t number = 0; number < count; ++number) {
        AppendLink(list, number, number == count / 3 || number == count * 2 / 3);
    }
    list.push_back(L'\0');
    return list;
}

}  // namespace

PresentLinks::PresentLinks(std::size_t count)
    : list_(MakeList(count)),
      getListSize_("CM_Get_Device_Interface_List_SizeW", &GetListSize),
      getList_("CM_Get_Device_Interface_ListW", &GetList) {}

void PresentLinks::MustBeAllMatching(std::size_t found) {
    if (found != kMatching) {
        throw std::runtime_error("not the matching links were found");
    }
}

CONFIGRET WINAPI PresentLinks::GetListSize(ULONG* length, GUID*, DEVINSTID_W, ULONG) {
    *length = static_cast<ULONG>(current_->list_.size());
    return CR_SUCCESS;
}

CONFIGRET WINAPI PresentLinks::GetList(GUID*, DEVINSTID_W, wchar_t* buffer, ULONG length, ULONG) {
    if (length < current_->list_.size()) {
        return CR_BUFFER_SMALL;
    }
    std::copy(current_->list_.begin(), current_->list_.end(), buffer);
    return CR_SUCCESS;
}

}  // namespace bench
