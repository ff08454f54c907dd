#pragma once

#include <optional>

// Traces that a function was entered and left. Made at the top of a traced function, and only when a session
// asks for scopes; the messages themselves are of level 4.
class TraceScope {
  public:
    // Emits the entry message. `functionName` is a string constant; `object` the traced object, kept for the
    // debugger.
    TraceScope(const char* functionName, const void* object);
    // Emits the exit message.
    ~TraceScope();

    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

    // A scope when the session's level is at least 8 and its flag bit 0 is set, else nothing.
    [[nodiscard]] static std::optional<TraceScope> EnterWhenTraced(const char* functionName,
                                                                   const void* object);

    // The traced object, not owned.
    [[nodiscard]] const void* Object() const { return object_; }

  private:
    const char* functionName_;
    const void* object_;
};
