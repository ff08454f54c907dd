#include "lab/toast/ScriptedFailures.h"

namespace lab::toast {

bool ScriptedFailures::Set(const std::string& method, HRESULT result) {
    const std::lock_guard lock(mutex_);
    const auto found = results_.find(method);
    if (found == results_.end()) {
        return false;
    }
    found->second = result;
    return true;
}

void ScriptedFailures::Clear() {
    const std::lock_guard lock(mutex_);
    for (auto& [method, result] : results_) {
        result = S_OK;
    }
}

bool ScriptedFailures::Knows(const std::string& method) const {
    const std::lock_guard lock(mutex_);
    return results_.contains(method);
}

HRESULT ScriptedFailures::ResultOf(const std::string& method) const {
    const std::lock_guard lock(mutex_);
    const auto found = results_.find(method);
    return found == results_.end() ? S_OK : found->second;
}

}  // namespace lab::toast
