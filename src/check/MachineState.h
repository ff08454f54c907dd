#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What was found of a machine, without a judgement. Texts are UTF-8. Error fields hold Win32 codes or
// HRESULTs, 0 where nothing failed.

namespace check {

// As the service control manager numbers them.
enum class StartType : std::uint32_t { Boot = 0, System = 1, Automatic = 2, Manual = 3, Disabled = 4 };
enum class RunState : std::uint32_t {
    Unknown = 0,
    Stopped = 1,
    StartPending = 2,
    StopPending = 3,
    Running = 4,
    ContinuePending = 5,
    PausePending = 6,
    Paused = 7,
};

// The accounts that may change a file or folder, besides administrators and Windows itself.
struct WritersState {
    std::uint32_t error = 0;  // why Windows does not tell
    std::vector<std::string> names;
};

struct ServiceState {
    bool isInstalled = false;
    std::uint32_t error = 0;  // why that could not be told, or why its configuration was not
    bool isMarkedForDeletion = false;
    StartType startType = StartType::Manual;
    bool isDelayed = false;  // an automatic start that waits for the others
    RunState runState = RunState::Unknown;
    std::uint32_t processId = 0;
    std::uint32_t exitCode = 0;  // of its last run, as it reported it
    std::string account;
    std::string commandLine;
    bool isQuoted = false;
    std::string program;  // the file that the command line means
    bool programExists = false;
    std::uint32_t programError = 0;  // why it cannot be told whether it exists
    std::string programVersion;      // empty when the file has none
    std::string startedInstead;      // the file that Windows finds before it, since the path is not quoted
    WritersState programWriters;
    WritersState folderWriters;
    bool hasNamesake = false;  // there is a service of the name that the uninstall monitor deletes
};

struct UpdateModeState {
    bool isServiceControlled = false;
    std::uint32_t error = 0;  // why nothing could be read; 2 when there is no key or no value
    std::string text;         // what stands there
};

// What a security descriptor says to the service's account.
enum class Permission { NotSet, Granted, Refused, Unreadable };

struct ImageState {
    std::string path;
    bool exists = false;
    bool isHidden = false;  // Windows lets whoever asks neither read it nor see whether it exists
    bool isReadable = false;
    std::uint32_t error = 0;       // why it is not
    std::uint64_t size = 0;        // bytes
    std::string sha256;            // lower case
    std::string version;           // empty when the file is too short
    bool isIn32BitFolder = false;  // there is one where a 32-bit tool puts it
    // Whether the service may read it; not set for an image that lies elsewhere.
    Permission ofService = Permission::NotSet;
};

struct ToastControllerState {
    bool isRegistered = false;
    std::uint32_t error = 0;  // why its registration could not be read
    bool isOurs = false;      // registered as the package's own
    std::string classId;      // under which the service looks for it
    std::string commandLine;
    std::string program;
    bool programExists = false;
    std::uint32_t programError = 0;
    std::string programVersion;
    WritersState programWriters;
    std::string appId;
    std::string runAs;
    Permission launch = Permission::NotSet;
    Permission access = Permission::NotSet;
    bool isInSystemFolder = false;        // where the service's start looks for one to register
    std::vector<std::uint32_t> sessions;  // those in which its program runs
};

// One of the ways in which Windows lists a camera.
struct CameraListing {
    std::string link;
    std::string category;  // "sensor camera", "video camera", "capture" or "other"
};

// A camera of the maker.
struct CameraState {
    std::string name;
    std::string device;  // what the links of one camera have in common
    std::vector<CameraListing> listings;
    std::uint32_t openError = 0;     // why Media Foundation does not open it
    std::uint32_t unitError = 0;     // why no extension unit was found
    std::string version;             // empty when it did not tell
    std::uint32_t versionError = 0;  // why it did not
};

struct CamerasState {
    std::uint32_t mediaError = 0;  // Media Foundation did not start or does not list
    std::vector<CameraState> cameras;
    unsigned others = 0;  // cameras of other makers
};

struct DfuDeviceState {
    std::string link;
    bool wasTried = false;  // never while the service runs
    bool opens = false;
    std::string failedStep;  // the step of opening that failed
    std::uint32_t error = 0;
    std::uint16_t transferSize = 0;  // bytes
};

struct DfuDevicesState {
    std::uint32_t error = 0;
    std::vector<DfuDeviceState> devices;
};

struct MachineState {
    ServiceState service;
    UpdateModeState updateMode;
    ImageState image;
    ToastControllerState toastController;
    CamerasState cameras;
    DfuDevicesState dfuDevices;
    bool isNobodyLoggedOn = false;  // false, too, when Windows does not tell
};

}  // namespace check
