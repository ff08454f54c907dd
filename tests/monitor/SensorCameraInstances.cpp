#include "tests/monitor/SensorCameraInstances.h"

#include <windows.h>

#include <stdexcept>

namespace {

const std::wstring kClassKey =
    L"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{24e552d7-6523-47f7-a647-d3465bf1f5ca}";

std::wstring ParametersKey(const std::wstring& name) {
    return kClassKey + L"\\" + name + L"\\#GLOBAL\\Device Parameters";
}

void CreateKey(const std::wstring& path) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        throw std::runtime_error("the key of sensor-camera interfaces cannot be written");
    }
    RegCloseKey(key);
}

void SetGroupName(const std::wstring& name, DWORD type, const void* data, std::size_t size) {
    if (RegSetKeyValueW(HKEY_LOCAL_MACHINE, ParametersKey(name).c_str(), L"FSSensorGroupName", type, data,
                        static_cast<DWORD>(size)) != ERROR_SUCCESS) {
        throw std::runtime_error("a group name cannot be written");
    }
}

}  // namespace

SensorCameraInstances::SensorCameraInstances() {
    Clear();
}

SensorCameraInstances::~SensorCameraInstances() {
    Clear();
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
    CreateKey(ParametersKey(name));
    SetGroupName(name, REG_SZ, groupName.c_str(), (groupName.size() + 1) * sizeof(wchar_t));
}

void SensorCameraInstances::AddInstanceWithData(const std::wstring& name, unsigned long type,
                                                const std::string& data) {
    CreateKey(ParametersKey(name));
    SetGroupName(name, type, data.data(), data.size());
}

void SensorCameraInstances::Clear() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey.c_str());
}
