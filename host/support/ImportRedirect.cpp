#include "tests/support/ImportRedirect.h"

#include "host/compat/ImportTable.h"

// The redirect of the tests, on the host's table in place of a program's import table.

namespace test_support {

ImportRedirect::ImportRedirect(const char* functionName, void* replacement)
    : entry_(host::ImportTable::Find(functionName)), original_(*entry_) {
    *entry_ = replacement;
}

ImportRedirect::~ImportRedirect() {
    *entry_ = original_;
}

}  // namespace test_support
