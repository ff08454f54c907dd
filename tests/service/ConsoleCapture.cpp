#include "tests/service/ConsoleCapture.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

namespace {

constexpr int kOutput = 1;
constexpr int kErrors = 2;

std::filesystem::path NewTemporaryFile(const wchar_t* prefix) {
    std::array<wchar_t, MAX_PATH> path{};
    const std::wstring folder = std::filesystem::temp_directory_path().wstring();
    if (GetTempFileNameW(folder.c_str(), prefix, 0, path.data()) == 0) {
        throw std::runtime_error("no temporary file");
    }
    return path.data();
}

}  // namespace

ConsoleCapture::ConsoleCapture() : output_(kOutput, L"out"), errors_(kErrors, L"err") {}

ConsoleCapture::~ConsoleCapture() = default;

std::string ConsoleCapture::TakeOutput() {
    const std::string all = output_.Text();
    const std::string fresh = all.substr(taken_);
    taken_ = all.size();
    return fresh;
}

std::string ConsoleCapture::Errors() const {
    return errors_.Text();
}

ConsoleCapture::Stream::Stream(int descriptor, const wchar_t* prefix)
    : descriptor_(descriptor), path_(NewTemporaryFile(prefix)) {
    std::fflush(nullptr);
    saved_ = _dup(descriptor_);
    const int file =
        _wopen(path_.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_TEXT | _O_APPEND, _S_IREAD | _S_IWRITE);
    if (saved_ < 0 || file < 0 || _dup2(file, descriptor_) != 0) {
        throw std::runtime_error("the stream cannot be sent to a file");
    }
    _close(file);
}

ConsoleCapture::Stream::~Stream() {
    std::fflush(nullptr);
    _dup2(saved_, descriptor_);
    _close(saved_);
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

std::string ConsoleCapture::Stream::Text() const {
    std::ostringstream text;
    if (std::filesystem::file_size(path_) > 0) {  // an empty source would set the failure bit
        text << std::ifstream(path_).rdbuf();
    }
    return text.str();
}
