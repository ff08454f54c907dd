#pragma once

#include <windows.h>

#include <ostream>

// Base of the classes that write diagnostic lines. Holds the narrow stream that they go to: not owned,
// possibly null (then nothing is written), and not synchronised. The stream must outlive the object.
class DfuLogger {
  public:
    // The stream, or null.
    [[nodiscard]] std::ostream* LogStream() const { return logStream_; }
    void SetLogStream(std::ostream* logStream) { logStream_ = logStream; }

  protected:
    explicit DfuLogger(std::ostream* logStream = nullptr) : logStream_(logStream) {}
    DfuLogger(const DfuLogger&) = default;
    DfuLogger& operator=(const DfuLogger&) = default;
    ~DfuLogger() = default;

    // Writes the values one after the other with the stream's ordinary formatting and ends the line with
    // std::endl.
    template <typename... Values>
    void LogLine(const Values&... values) const {
        if (logStream_ != nullptr) {
            WriteLine(values...);
        }
    }

    // Writes the text as it stands: it carries its own line break and is not flushed.
    void LogText(const char* text) const;

    // The failure form: the failing step's text, " Failed with status" and the status in signed decimal. That
    // no blank stands before the status is deliberate: the lines are matched by that form.
    void LogFailure(const char* step, HRESULT status) const;

  private:
    // Apart, so that a caller without a stream pays for the question alone.
    template <typename... Values>
    void WriteLine(const Values&... values) const {
        (*logStream_ << ... << values) << std::endl;
    }

    std::ostream* logStream_;
};
