#pragma once

#include <string>

namespace test_support {

// Swaps one entry of the running program's import table for a test's function, and puts the original back
// when it goes out of scope. Works for every function that the program imports by name from a DLL, whichever
// the DLL; throws std::runtime_error when the program imports no function of that name (a test that would
// redirect nothing must not pass). Redirects of one function nest: the last one made is the first to go.
//
// The redirected function must have the signature and calling convention of the original. Call it through
// Original<F>() to pass on what is not the test's own.
class ImportRedirect {
  public:
    template <typename Function>
    ImportRedirect(const char* functionName, Function* replacement)
        : ImportRedirect(functionName, reinterpret_cast<void*>(replacement)) {}
    ImportRedirect(const char* functionName, void* replacement);
    ~ImportRedirect();

    ImportRedirect(const ImportRedirect&) = delete;
    ImportRedirect& operator=(const ImportRedirect&) = delete;

    template <typename Function>
    [[nodiscard]] Function* Original() const {
        return reinterpret_cast<Function*>(original_);
    }

  private:
    std::string functionName_;
    void* original_;
};

}  // namespace test_support
