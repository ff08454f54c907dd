#include "lab/guest/RunningProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

// posix_spawn's two records, which are to be given back.
class SpawnPlan {
  public:
    explicit SpawnPlan(int output) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
        posix_spawnattr_init(&attributes_);
        // A process group of its own: it is killed with all that it has started.
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attributes_, 0);
    }
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    // The number of the process.
    pid_t Start(const std::vector<std::string>& words) const {
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        pid_t number = 0;
        const int error =
            posix_spawnp(&number, arguments.front(), &actions_, &attributes_, arguments.data(), environ);
        if (error != 0) {
            throw KernelError(error, "starting " + words.front());
        }
        return number;
    }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

bool IsReadable(int descriptor) {
    pollfd entry{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&entry, 1, 0) > 0;
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& words, std::chrono::milliseconds limit)
    : deadline_(Clock::now() + limit) {
    std::array<int, 2> ends{};
    Checked(pipe2(ends.data(), O_CLOEXEC), "a pipe");
    output_ = FileDescriptor(ends[0]);
    const FileDescriptor input(ends[1]);
    Checked(fcntl(output_.Number(), F_SETFL, O_NONBLOCK), "a pipe");
    number_ = SpawnPlan(input.Number()).Start(words);
    process_ = FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, number_, 0)));
    if (!process_.IsOpen()) {
        const int error = errno;
        Kill();
        throw KernelError(error, "watching " + words.front());
    }
}

RunningProgram::~RunningProgram() {
    Kill();
}

bool RunningProgram::TakeOutput() {
    if (hasEnded_) {
        return true;
    }
    // Asked first: what is read afterwards is all that it has written.
    bool isEnding = IsReadable(process_.Number());
    if (!isEnding && Clock::now() >= deadline_) {
        isOutOfTime_ = true;
        isEnding = true;
    }
    if (isEnding) {
        Kill();
    }
    ReadOutput();
    return hasEnded_;
}

void RunningProgram::ReadOutput() {
    std::array<char, 65536> buffer{};
    while (output_.IsOpen()) {
        const ssize_t length = read(output_.Number(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0 && errno == EAGAIN) {
            return;
        }
        if (length <= 0) {
            output_.Close();
            return;
        }
        text_.append(buffer.data(), std::min(static_cast<std::size_t>(length), kMostOutput - text_.size()));
    }
}

// Also for one that has ended by itself: its group may have others, and somebody has to ask for its status.
void RunningProgram::Kill() {
    if (hasEnded_) {
        return;
    }
    kill(-number_, SIGKILL);
    int status = 0;
    while (waitpid(number_, &status, 0) < 0 && errno == EINTR) {
    }
    status_ = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    hasEnded_ = true;
}

}  // namespace lab::guest
