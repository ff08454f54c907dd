#include "lab/rig/service/BroadcastRecord.h"

#include <windows.h>
#include <dbt.h>

#include <algorithm>
#include <cstring>

namespace lab::rig {

std::vector<std::byte> BroadcastRecord(const InterfaceEvent& event) {
    constexpr std::size_t kNameOffset = offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name);
    const std::size_t nameSize = (event.link.size() + 1) * sizeof(wchar_t);
    const std::size_t size = std::max(kNameOffset + nameSize, sizeof(DEV_BROADCAST_DEVICEINTERFACE_W));
    std::vector<std::byte> record(size);
    DEV_BROADCAST_DEVICEINTERFACE_W header{};
    header.dbcc_size = static_cast<DWORD>(size);
    header.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    header.dbcc_classguid = event.interfaceClass;
    std::memcpy(record.data(), &header, kNameOffset);
    std::memcpy(record.data() + kNameOffset, event.link.c_str(), nameSize);
    return record;
}

}  // namespace lab::rig
