#pragma once

#include <cstdint>

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    bool operator==(const GUID&) const = default;
};
static_assert(sizeof(GUID) == 16);

using REFIID = const GUID&;

// The id of a COM interface; specialised beside each interface.
template <typename Interface>
inline constexpr GUID kInterfaceId{};

// A macro, because its argument is a type.
#define __uuidof(type) (kInterfaceId<type>)
