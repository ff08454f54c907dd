#include "diagnostics/TraceScope.h"

#include "diagnostics/TraceProvider.h"

TraceScope::TraceScope(const char* functionName, const void* object)
    : functionName_(functionName), object_(object) {
    TraceProvider::EmitScope("==>", functionName_);
}

TraceScope::~TraceScope() {
    TraceProvider::EmitScope("<==", functionName_);
}

std::optional<TraceScope> TraceScope::EnterWhenTraced(const char* functionName, const void* object) {
    if (!TraceProvider::IsEnabled(TraceLevel::Scope)) {
        return std::nullopt;
    }
    return std::optional<TraceScope>(std::in_place, functionName, object);
}
