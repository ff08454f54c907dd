#include "tests/monitor/SensorCameraInstances.h"

#include "tests/support/Text.h"

#include <windows.h>

#include <stdexcept>

namespace {

const std::wstring kClassKey =
    L"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{24e552d7-6523-47f7-a647-d3465bf1f5ca}";

void CreateKey(const std::wstring& path) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        throw std::runtime_error("the key of sensor-camera interfaces cannot be written");
    }
    RegCloseKey(key);
}

}  // namespace

SensorCameraInstances::SensorCameraInstances() {
    Clear();
}

SensorCameraInstances::~SensorCameraInstances() {
    Clear();
}

std::wstring SensorCameraInstances::ParametersKey(const std::wstring& name) {
    return kClassKey + L"\\" + name + L"\\#GLOBAL\\Device Parameters";
}

void SensorCameraInstances::AddClassKey() {
    CreateKey(kClassKey);
}

void SensorCameraInstances::AddBareInstance(const std::wstring& name) {
    CreateKey(kClassKey + L"\\" + name);
}

void SensorCameraInstances::AddUnnamedInstance(const std::wstring& name) {
    CreateKey(ParametersKey(name));
}

void SensorCameraInstances::AddInstance(const std::wstring& name, const std::wstring& groupName) {
    AddInstanceWithData(name, REG_SZ, test_support::TerminatedBytes(groupName));
}

void SensorCameraInstances::AddInstanceWithData(const std::wstring& name, unsigned long type,
                                                const std::string& data) {
    // The system counts a terminator that it finds behind the data: there is to be none.
    const std::string withoutTerminatorBehind = data + "behind";
    if (RegSetKeyValueW(HKEY_LOCAL_MACHINE, ParametersKey(name).c_str(), L"FSSensorGroupName", type,
                        withoutTerminatorBehind.data(), static_cast<DWORD>(data.size())) != ERROR_SUCCESS) {
        throw std::runtime_error("a group name cannot be written");
    }
}

void SensorCameraInstances::Clear() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey.c_str());
}
