#pragma once

#include <filesystem>

namespace lab::guest {

// Where the kernel's file systems are mounted, where the image has its modules, and where files are that the
// host writes and reads. A test has folders of its own.
struct Places {
    std::filesystem::path sys = "/sys";
    std::filesystem::path dev = "/dev";
    std::filesystem::path modules = "/modules";
    std::filesystem::path files = "/tmp";
};

}  // namespace lab::guest
