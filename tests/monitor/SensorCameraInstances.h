#pragma once

#include <string>

// The machine's registry key of sensor-camera interfaces, as Windows keeps it: empty of instances or missing
// at first, filled by the test. Whatever was there before is removed, and so is everything at the end.
class SensorCameraInstances {
  public:
    SensorCameraInstances();
    ~SensorCameraInstances();

    SensorCameraInstances(const SensorCameraInstances&) = delete;
    SensorCameraInstances& operator=(const SensorCameraInstances&) = delete;

    // Where the instance's "Device Parameters" are.
    static std::wstring ParametersKey(const std::wstring& name);

    // The class key alone.
    void AddClassKey();
    // An instance without "Device Parameters".
    void AddBareInstance(const std::wstring& name);
    // An instance whose "Device Parameters" hold no group name.
    void AddUnnamedInstance(const std::wstring& name);
    // An instance with a group name, or the change of its group name.
    void AddInstance(const std::wstring& name, const std::wstring& groupName);
    // An instance whose group name has this type and these bytes.
    void AddInstanceWithData(const std::wstring& name, unsigned long type, const std::string& data);

    // Removes the class key and everything in it.
    void Clear();
};
