#include "check/VersionList.h"

#include "check/FileInspector.h"
#include "check/RegistryReader.h"
#include "check/Utf8.h"
#include "check/Words.h"
#include "win32/SystemDirectory.h"

#include <array>

namespace check {
namespace {

constexpr std::array kSystemFiles{"mf.dll",
                                  "mfplat.dll",
                                  "winusb.dll",
                                  "drivers\\winusb.sys",
                                  "drivers\\usbvideo.sys",
                                  "drivers\\usbccgp.sys"};
constexpr const wchar_t* kUsbKey = L"SYSTEM\\CurrentControlSet\\Enum\\USB";
constexpr const wchar_t* kClassKey = L"SYSTEM\\CurrentControlSet\\Control\\Class\\";
constexpr std::string_view kVendor = "VID_2F1A";

std::string OrNone(const std::string& version) {
    return version.empty() ? "none" : version;
}

std::string Windows() {
    const std::wstring key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    return std::to_string(RegistryReader::Read(key, L"CurrentMajorVersionNumber").Number()) + "." +
           std::to_string(RegistryReader::Read(key, L"CurrentMinorVersionNumber").Number()) + "." +
           Utf8(RegistryReader::Read(key, L"CurrentBuildNumber").Text()) + "." +
           std::to_string(RegistryReader::Read(key, L"UBR").Number()) + " " +
           Utf8(RegistryReader::Read(key, L"EditionID").Text());
}

// The driver of one device instance, without the instance's own name.
std::string DriverOf(const std::wstring& instanceKey) {
    const std::string service = Utf8(RegistryReader::Read(instanceKey, L"Service").Text());
    const std::wstring driver = RegistryReader::Read(instanceKey, L"Driver").Text();
    const std::wstring key = kClassKey + driver;
    const std::string version =
        driver.empty() ? "" : Utf8(RegistryReader::Read(key, L"DriverVersion").Text());
    const std::string provider =
        driver.empty() ? "" : Utf8(RegistryReader::Read(key, L"ProviderName").Text());
    return (service.empty() ? "no driver" : service) + ", version " + OrNone(version) + ", " +
           (provider.empty() ? "no provider" : provider);
}

}  // namespace

std::string ListVersions(const MachineState& machine, std::string_view programVersion) {
    std::string list = "Windows " + Windows() + "\n";
    list += "VeyraCameraDfuCheck " + std::string(programVersion) + "\n";
    list += "VeyraCameraDfuService " + OrNone(machine.service.programVersion) + "\n";
    list += "VeyraCameraToastCntl " + OrNone(machine.toastController.programVersion) + "\n";
    const std::string folder = Utf8(win32::SystemDirectory()) + "\\";
    for (const char* file : kSystemFiles) {
        list += std::string(file) + " " + OrNone(FileInspector::VersionOf(folder + file)) + "\n";
    }
    for (const std::wstring& device : RegistryReader::SubKeys(kUsbKey)) {
        if (!EqualsIgnoringCase(Utf8(device).substr(0, kVendor.size()), kVendor)) {
            continue;
        }
        const std::wstring key = std::wstring(kUsbKey) + L"\\" + device;
        for (const std::wstring& instance : RegistryReader::SubKeys(key)) {
            list += "USB\\" + Utf8(device) + " " + DriverOf(key + L"\\" + instance) + "\n";
        }
    }
    return list;
}

}  // namespace check
