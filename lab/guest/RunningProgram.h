#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "lab/guest/FileDescriptor.h"

namespace lab::guest {

// A program that runs beside this one: it reads nothing, and what it writes to standard output and error is
// kept. Poll both descriptors, and call TakeOutput when one is ready or the time is over. The destructor
// kills it, and all that it has started in its process group.
class RunningProgram {
  public:
    using Clock = std::chrono::steady_clock;

    // What is written beyond it is dropped.
    static constexpr std::size_t kMostOutput = 1024 * 1024;

    // `words`: the program, looked up on the PATH when it has no slash, and its arguments. Throws
    // std::system_error when it cannot be started.
    RunningProgram(const std::vector<std::string>& words, std::chrono::milliseconds limit);
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // Readable when it has written something; closed (-1) once nobody can write any more.
    [[nodiscard]] int Output() const { return output_.Number(); }
    // Readable when it has ended.
    [[nodiscard]] int Process() const { return process_.Number(); }
    [[nodiscard]] Clock::time_point Deadline() const { return deadline_; }

    // Takes what it has written by now. A program whose time is over is killed first. Whether it has ended:
    // then everything below is final.
    bool TakeOutput();

    [[nodiscard]] const std::string& Text() const { return text_; }
    // Its exit code, or the negative number of the signal that has ended it.
    [[nodiscard]] int Status() const { return status_; }
    [[nodiscard]] bool IsOutOfTime() const { return isOutOfTime_; }

  private:
    void ReadOutput();
    void Kill();

    Clock::time_point deadline_;
    pid_t number_ = 0;
    FileDescriptor process_;
    FileDescriptor output_;
    std::string text_;
    int status_ = 0;
    bool isOutOfTime_ = false;
    bool hasEnded_ = false;
};

}  // namespace lab::guest
