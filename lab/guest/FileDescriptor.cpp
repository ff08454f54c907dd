#include "lab/guest/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include "lab/guest/KernelError.h"

namespace lab::guest {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        Close();
        number_ = std::exchange(other.number_, -1);
    }
    return *this;
}

FileDescriptor FileDescriptor::Open(const std::filesystem::path& path, int flags) {
    return FileDescriptor(Checked(open(path.c_str(), flags | O_CLOEXEC), path.native()));
}

void FileDescriptor::Close() {
    if (number_ >= 0) {
        close(std::exchange(number_, -1));
    }
}

}  // namespace lab::guest
