#pragma once

#include <filesystem>

namespace lab::guest {

// Where the kernel's file systems are mounted, and where the image has its modules. A test has folders of its
// own.
struct Places {
    std::filesystem::path sys = "/sys";
    std::filesystem::path dev = "/dev";
    std::filesystem::path modules = "/modules";
};

}  // namespace lab::guest
