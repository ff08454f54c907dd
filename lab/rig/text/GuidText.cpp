#include "lab/rig/text/GuidText.h"

#include <objbase.h>

#include "lab/wire/Utf8.h"

namespace lab::rig {

std::string GuidText(const GUID& guid) {
    wchar_t text[39];
    StringFromGUID2(guid, text, 39);
    return Utf8(text);
}

std::optional<GUID> GuidFromText(const std::string& text) {
    GUID guid{};
    if (text.size() != 38 || FAILED(CLSIDFromString(WideFromUtf8(text).c_str(), &guid))) {
        return std::nullopt;
    }
    return guid;
}

}  // namespace lab::rig
