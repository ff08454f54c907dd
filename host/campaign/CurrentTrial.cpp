#include "host/campaign/CurrentTrial.h"

#include <algorithm>
#include <array>
#include <csignal>

#include <unistd.h>

// Only in a program that a sanitizer is linked to.
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace campaign {
namespace {

constexpr unsigned kMostSeconds = 60;
constexpr int kDied = 3;

std::array<char, 512> line{};
std::size_t length = 0;
bool isWatched = false;

void Say() {
    const ssize_t written = write(STDOUT_FILENO, line.data(), length);
    static_cast<void>(written);
}

void SayAndEnd(int) {
    Say();
    _exit(kDied);
}

void Append(std::string_view text) {
    const std::size_t taken = std::min(text.size(), line.size() - length);
    std::copy_n(text.begin(), taken, line.begin() + static_cast<std::ptrdiff_t>(length));
    length += taken;
}

}  // namespace

void CurrentTrial::Watch() {
    isWatched = true;
    if (__sanitizer_set_death_callback != nullptr) {
        __sanitizer_set_death_callback(&Say);
    } else {
        std::signal(SIGSEGV, &SayAndEnd);
    }
    std::signal(SIGABRT, &SayAndEnd);
    std::signal(SIGALRM, &SayAndEnd);
}

void CurrentTrial::Set(std::string_view id) {
    length = 0;
    Append("\n{\"died\": \"");
    Append(id);
    Append("\"}\n");
    if (isWatched) {
        alarm(kMostSeconds);
    }
}

}  // namespace campaign
