#include "check/WindowsProbes.h"

#include "camera/MediaFoundationPlatform.h"
#include "check/ComApartment.h"
#include "check/ControlLength.h"
#include "check/RegistryReader.h"
#include "check/ToastControllerQuery.h"
#include "check/Utf8.h"
#include "check/VideoSources.h"
#include "check/Words.h"

#include <objbase.h>

#include <array>
#include <string>

using Microsoft::WRL::ComPtr;

namespace check {
namespace {

constexpr std::uint32_t kNotInitialised = 0xC00D36B0;  // MF_E_PLATFORM_NOT_INITIALIZED
constexpr unsigned kOldestMajorVersion = 10;
constexpr DWORD kDirectoryCapacity = 520;

std::string Result(HRESULT result) {
    return Hex(static_cast<std::uint32_t>(result));
}

Probe AskVersion() {
    const std::wstring key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    const DWORD major = RegistryReader::Read(key, L"CurrentMajorVersionNumber").Number();
    const std::string seen =
        std::to_string(major) + ", build " + Utf8(RegistryReader::Read(key, L"CurrentBuildNumber").Text());
    return Asked(0, "windows-version", "Windows' version",
                 major >= kOldestMajorVersion ? seen : "10 or later", seen);
}

Probe AskSecurity() {
    const HRESULT result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    return Asked(14, "com-security", "CoInitializeSecurity without a security descriptor", Result(S_OK),
                 Result(result));
}

// Media Foundation is asked before it is started, as the service never does.
std::vector<Probe> AskMedia(std::vector<ComPtr<IMFActivate>>& sources) {
    std::vector<ComPtr<IMFActivate>> none;
    const HRESULT before = ListVideoSources(none);
    none.clear();
    MediaFoundationPlatform platform;
    const HRESULT started = platform.EnsureStarted();
    const HRESULT after = FAILED(started) ? started : ListVideoSources(sources);
    return {
        Asked(1, "media-before-start", "listing cameras before MFStartup", Hex(kNotInitialised),
              Result(before)),
        Asked(1, "media-after-start", "listing cameras after MFStartup", Result(S_OK), Result(after)),
    };
}

// The calling thread enters COM and leaves it again, as the service's main thread does at its end.
Probe AskKeptApartment() {
    CO_MTA_USAGE_COOKIE cookie = nullptr;
    HRESULT result = CoIncrementMTAUsage(&cookie);
    std::string seen = Result(result);
    if (SUCCEEDED(result)) {
        { const ComApartment apartment; }
        APTTYPE type = APTTYPE_CURRENT;
        APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
        result = CoGetApartmentType(&type, &qualifier);
        seen = FAILED(result)        ? Result(result)
               : type == APTTYPE_MTA ? "the multithreaded apartment"
                                     : "apartment " + std::to_string(static_cast<int>(type));
        CoDecrementMTAUsage(cookie);
    }
    return Asked(2, "com-kept", "the apartment after the last CoUninitialize, kept by CoIncrementMTAUsage",
                 "the multithreaded apartment", seen);
}

Probe AskServiceTimeout() {
    const auto value = RegistryReader::Read(L"SYSTEM\\CurrentControlSet\\Control", L"ServicesPipeTimeout");
    const std::string seen =
        value.error == ERROR_FILE_NOT_FOUND ? "30000 ms" : std::to_string(value.Number()) + " ms";
    return Asked(6, "service-timeout", "how long Windows waits for a service (ServicesPipeTimeout)",
                 "30000 ms", seen);
}

std::string LinkOf(IMFActivate& source) {
    WCHAR* allocated = nullptr;
    UINT32 length = 0;
    std::string link;
    if (SUCCEEDED(source.GetAllocatedString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK,
                                            &allocated, &length)) &&
        allocated != nullptr) {
        link = Utf8(std::wstring_view(allocated, length));
    }
    CoTaskMemFree(allocated);
    return link;
}

Probe AskLinks(const std::vector<ComPtr<IMFActivate>>& sources) {
    std::vector<std::string> links;
    links.reserve(sources.size());
    for (const ComPtr<IMFActivate>& source : sources) {
        links.push_back(LinkOf(*source.Get()));
    }
    return ProbeLinks(links);
}

Probe AskControlLength(const std::vector<ComPtr<IMFActivate>>& sources) {
    constexpr const char* kQuestion = "how much a read of the firmware command's control gives";
    for (const ComPtr<IMFActivate>& source : sources) {
        if (const auto length = ReadControlLength(source)) {
            return Asked(11, "control-length", kQuestion, "1024 bytes", std::to_string(*length) + " bytes");
        }
    }
    return NotAsked(11, "control-length", kQuestion,
                    "no camera of the family is present, or it does not answer");
}

std::vector<Probe> AskCom() {
    const auto isEnabled = RegistryReader::Read(L"SOFTWARE\\Microsoft\\Ole", L"EnableDCOM");
    std::vector<Probe> probes{Asked(13, "com-enabled", "whether services may reach COM servers (EnableDCOM)",
                                    "Y",
                                    isEnabled.error == ERROR_SUCCESS ? Utf8(isEnabled.Text()) : "not set")};
    constexpr const char* kQuestion = "how the toast controller's AppID is registered";
    const ToastControllerState controller = QueryToastController();
    if (!controller.isRegistered) {
        probes.push_back(NotAsked(13, "toast-controller", kQuestion, "no toast controller is registered"));
        return probes;
    }
    probes.push_back(
        Asked(13, "toast-controller", kQuestion, "Interactive User, launch granted, access granted",
              (controller.runAs.empty() ? "no RunAs" : controller.runAs) + ", launch " +
                  std::string(Word(controller.launch)) + ", access " + std::string(Word(controller.access))));
    return probes;
}

Probe AskWindowsDirectory() {
    std::array<wchar_t, kDirectoryCapacity> own{};
    std::array<wchar_t, kDirectoryCapacity> shared{};
    GetWindowsDirectoryW(own.data(), kDirectoryCapacity);
    GetSystemWindowsDirectoryW(shared.data(), kDirectoryCapacity);
    return Asked(15, "windows-directory", "the Windows directory of a program that is terminal server aware",
                 Utf8(shared.data()), Utf8(own.data()));
}

Probe AskSmartAppControl() {
    const auto state = RegistryReader::Read(L"SYSTEM\\CurrentControlSet\\Control\\CI\\Policy",
                                            L"VerifiedAndReputablePolicyState");
    constexpr const char* kQuestion = "Smart App Control, which blocks programs that are not signed";
    if (state.error != ERROR_SUCCESS && state.error != ERROR_FILE_NOT_FOUND) {
        return NotAsked(16, "smart-app-control", kQuestion,
                        "its state cannot be read (" + Code(static_cast<std::uint32_t>(state.error)) + ")");
    }
    constexpr std::array<const char*, 3> kStates{"off", "on", "evaluating"};
    const DWORD number = state.Number();
    return Asked(16, "smart-app-control", kQuestion, "off",
                 number < kStates.size() ? kStates[number] : "state " + std::to_string(number));
}

// What Windows remembers of devices' answers to the request for the Microsoft OS descriptor.
Probe AskOsDescriptors() {
    const std::wstring key = L"SYSTEM\\CurrentControlSet\\Control\\usbflags";
    const std::wstring beginning = key + L"\\";
    std::vector<RememberedAnswer> answers;
    for (const std::wstring& name : RegistryReader::SubKeys(key)) {
        std::string text = Utf8(name);
        if (EqualsIgnoringCase(std::string_view(text).substr(0, 7), "2F1A7E0")) {
            answers.push_back({std::move(text), RegistryReader::Read(beginning + name, L"osvc").data});
        }
    }
    return ProbeOsDescriptors(answers);
}

}  // namespace

std::vector<Probe> AskWindows() {
    const Probe kept = AskKeptApartment();
    const ComApartment apartment;
    const Probe security = AskSecurity();
    std::vector<ComPtr<IMFActivate>> sources;
    std::vector<Probe> probes{AskVersion()};
    for (Probe& probe : AskMedia(sources)) {
        probes.push_back(std::move(probe));
    }
    probes.push_back(kept);
    probes.push_back(NotAsked(3, "deleted-service", "a deleted service that is still open",
                              "it would take a service to delete"));
    probes.push_back(
        NotAsked(4, "installer", "what an installer's search finds", "it would take an installation"));
    probes.push_back(NotAsked(5, "late-handler", "a control handler that takes longer than 30 s",
                              "it would take a download that long"));
    probes.push_back(AskServiceTimeout());
    probes.push_back(NotAsked(7, "driver-start", "a device's interface before its driver",
                              "it would take a camera that is plugged in meanwhile"));
    probes.push_back(AskLinks(sources));
    probes.push_back(NotAsked(9, "transfer-limits", "the time and the length of control transfers",
                              "it would take transfers to a camera in DFU mode"));
    probes.push_back(NotAsked(10, "unplug-errors", "the errors of an unplugged device",
                              "it would take a camera that is unplugged meanwhile"));
    probes.push_back(AskControlLength(sources));
    probes.push_back(NotAsked(12, "late-removals", "the order of removals and arrivals",
                              "it would take a camera that goes into DFU mode"));
    for (Probe& probe : AskCom()) {
        probes.push_back(std::move(probe));
    }
    probes.push_back(security);
    probes.push_back(AskWindowsDirectory());
    probes.push_back(AskSmartAppControl());
    probes.push_back(NotAsked(17, "alternate-setting", "what selecting an alternate setting sends",
                              "it would send SET_INTERFACE"));
    probes.push_back(AskOsDescriptors());
    return probes;
}

}  // namespace check
