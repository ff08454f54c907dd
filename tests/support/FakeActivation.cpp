#include "tests/support/FakeActivation.h"

namespace test_support {

FakeActivation::FakeActivation(IUnknown* object)
    : object_(object), create_("CoCreateInstance", OnCreate), run_("OleRun", OnRun) {}

HRESULT WINAPI FakeActivation::OnCreate(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                                        void** created) {
    FakeActivation& activation = *current_;
    activation.creations.push_back({classId, outer, context, interfaceId});
    if (activation.report) {
        activation.report("CoCreateInstance");
    }
    *created = nullptr;
    if (FAILED(activation.creationResult)) {
        return activation.creationResult;
    }
    return activation.object_->QueryInterface(interfaceId, created);
}

HRESULT WINAPI FakeActivation::OnRun(IUnknown* unknown) {
    FakeActivation& activation = *current_;
    activation.runs.push_back(unknown);
    if (activation.report) {
        activation.report("OleRun");
    }
    return activation.runResult;
}

}  // namespace test_support
