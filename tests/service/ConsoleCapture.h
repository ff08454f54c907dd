#pragma once

#include <filesystem>
#include <string>

// Takes what the program writes to standard output and standard error while it lives, and hands
// it out as it comes. A writer that does not flush is not seen before its next flush.
class ConsoleCapture {
  public:
    ConsoleCapture();
    ~ConsoleCapture();

    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    // What has reached standard output since the last call.
    [[nodiscard]] std::string TakeOutput();
    // All that has reached standard error so far.
    [[nodiscard]] std::string Errors() const;

  private:
    // One of the two streams, sent to a temporary file.
    class Stream {
      public:
        Stream(int descriptor, const wchar_t* prefix);
        ~Stream();

        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        [[nodiscard]] std::string Text() const;

      private:
        int descriptor_;
        int saved_;
        std::filesystem::path path_;
    };

    Stream output_;
    Stream errors_;
    std::size_t taken_ = 0;
};
