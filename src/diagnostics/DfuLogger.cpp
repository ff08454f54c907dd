#include "diagnostics/DfuLogger.h"

void DfuLogger::LogText(const char* text) const {
    if (logStream_ != nullptr) {
        *logStream_ << text;
    }
}

void DfuLogger::LogFailure(const char* step, HRESULT status) const {
    LogLine(step, " Failed with status", static_cast<long>(status));
}
