#include "check/SecurityDescriptor.h"

#include "check/Utf8.h"

#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <memory>

namespace check {
namespace {

struct LocalMemoryDeleter {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <typename Content>
using LocalMemory = std::unique_ptr<Content, LocalMemoryDeleter>;

}  // namespace

std::optional<AccessList> ReadFileAccess(const std::wstring& path, DWORD& error) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    constexpr SECURITY_INFORMATION kWanted = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    error = GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, kWanted, nullptr, nullptr, nullptr, nullptr,
                                  &descriptor);
    if (error != ERROR_SUCCESS) {
        return std::nullopt;
    }
    const LocalMemory<void> owner(descriptor);
    auto list = ReadAccessList(
        {static_cast<const std::uint8_t*>(descriptor), GetSecurityDescriptorLength(descriptor)});
    if (!list) {
        error = ERROR_INVALID_SECURITY_DESCR;
    }
    return list;
}

std::string NameOfSid(const std::string& sidText) {
    PSID sid = nullptr;
    if (!ConvertStringSidToSidW(Wide(sidText).c_str(), &sid)) {
        return sidText;
    }
    const LocalMemory<void> owner(sid);
    constexpr DWORD kCapacity = 256;
    std::array<wchar_t, kCapacity> name{};
    std::array<wchar_t, kCapacity> domain{};
    DWORD nameSize = kCapacity;
    DWORD domainSize = kCapacity;
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountSidW(nullptr, sid, name.data(), &nameSize, domain.data(), &domainSize, &use)) {
        return sidText;
    }
    return domain.front() == L'\0' ? Utf8(name.data()) : Utf8(domain.data()) + "\\" + Utf8(name.data());
}

}  // namespace check
