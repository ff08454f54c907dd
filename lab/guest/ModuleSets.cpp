#include "lab/guest/ModuleSets.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "lab/guest/Command.h"
#include "lab/guest/FileDescriptor.h"
#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

void LoadModule(const std::filesystem::path& path) {
    const FileDescriptor file = FileDescriptor::Open(path, O_RDONLY);
    if (syscall(SYS_finit_module, file.Number(), "", 0) != 0 && errno != EEXIST) {
        throw KernelError(errno, "loading " + path.filename().native());
    }
}

}  // namespace

ModuleSets::ModuleSets(const std::filesystem::path& folder) : folder_(folder) {
    std::ifstream file(folder / "sets");
    if (!file.is_open()) {
        throw std::runtime_error("the image has no " + (folder / "sets").native());
    }
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        auto& files = sets_[name];
        for (std::string module; words >> module;) {
            files.push_back(module);
        }
    }
}

void ModuleSets::Load(std::string_view set) const {
    const auto found = sets_.find(set);
    if (found == sets_.end()) {
        throw InvalidCommand("the image has no such modules");
    }
    for (const std::string& file : found->second) {
        LoadModule(folder_ / file);
    }
}

}  // namespace lab::guest
