#pragma once

#include <filesystem>
#include <utility>

namespace lab::guest {

// Owns a file descriptor of the kernel's, and closes it.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    // Takes over `number`, which may be negative for none.
    explicit FileDescriptor(int number) : number_(number) {}
    ~FileDescriptor() { Close(); }
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    // Opens a file with the flags of open(2); no program that is started gets it. Throws std::system_error,
    // which names the file.
    [[nodiscard]] static FileDescriptor Open(const std::filesystem::path& path, int flags);

    [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
    [[nodiscard]] int Number() const { return number_; }
    void Close();

  private:
    int number_ = -1;
};

}  // namespace lab::guest
