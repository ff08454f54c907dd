#include "tests/support/ImportRedirect.h"

#include <stdexcept>

#include "lab/rig/process/ImportTable.h"

namespace test_support {

ImportRedirect::ImportRedirect(const char* functionName, void* replacement)
    : functionName_(functionName), original_(lab::rig::RedirectImport(functionName, replacement)) {
    if (original_ == nullptr) {
        throw std::runtime_error("this program does not import " + functionName_);
    }
}

ImportRedirect::~ImportRedirect() {
    lab::rig::RedirectImport(functionName_.c_str(), original_);
}

}  // namespace test_support
