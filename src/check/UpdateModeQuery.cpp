#include "check/UpdateModeQuery.h"

#include "check/RegistryReader.h"
#include "check/Utf8.h"
#include "check/UpdateModeValue.h"

namespace check {

UpdateModeState QueryUpdateMode() {
    UpdateModeState state;
    const auto value =
        RegistryReader::Read(L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU", L"DFUAutoMode");
    state.error = static_cast<std::uint32_t>(value.error);
    if (value.error == ERROR_SUCCESS) {
        state.isServiceControlled = IsServiceControlled(value.data);
        state.text = value.type == REG_SZ || value.type == REG_EXPAND_SZ
                         ? Utf8(value.Text())
                         : "(a value of type " + std::to_string(value.type) + ")";
    }
    return state;
}

}  // namespace check
