#include "lab/guest/FirstProcess.h"

#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

struct Mount {
    const char* kind;
    const char* folder;
};

constexpr std::array<Mount, 4> kMounts{
    {{"proc", "/proc"}, {"sysfs", "/sys"}, {"devtmpfs", "/dev"}, {"tmpfs", "/tmp"}}};
constexpr mode_t kFolderMode = 0755;

}  // namespace

void MountFileSystems() {
    for (const auto& [kind, folder] : kMounts) {
        if (mkdir(folder, kFolderMode) != 0 && errno != EEXIST) {
            throw KernelError(errno, std::string("making ") + folder);
        }
        Checked(mount(kind, folder, kind, 0, nullptr), std::string("mounting ") + folder);
    }
}

void PowerOff() {
    reboot(RB_POWER_OFF);
}

}  // namespace lab::guest
