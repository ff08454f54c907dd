#include "tests/support/ImportRedirect.h"

#include <utility>

#include "host/compat/ImportTable.h"

// The redirect of the tests, on the host's table in place of a program's import table.

namespace test_support {

ImportRedirect::ImportRedirect(const char* functionName, void* replacement)
    : functionName_(functionName),
      original_(std::exchange(*host::ImportTable::Find(functionName), replacement)) {}

ImportRedirect::~ImportRedirect() {
    *host::ImportTable::Find(functionName_.c_str()) = original_;
}

}  // namespace test_support
