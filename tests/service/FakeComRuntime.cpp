#include "tests/service/FakeComRuntime.h"

FakeComRuntime::FakeComRuntime()
    : initialise_("CoInitializeEx", OnInitialise),
      security_("CoInitializeSecurity", OnSecurity),
      uninitialise_("CoUninitialize", OnUninitialise),
      usage_("CoIncrementMTAUsage", OnUsage) {}

void FakeComRuntime::Report(const std::string& function) const {
    if (report) {
        report(function);
    }
}

HRESULT WINAPI FakeComRuntime::OnInitialise(void* reserved, DWORD concurrency) {
    current_->initialisations.push_back({reserved, concurrency});
    current_->Report("CoInitializeEx");
    return current_->initialisationResult;
}

HRESULT WINAPI FakeComRuntime::OnSecurity(SECURITY_DESCRIPTOR* descriptor, LONG serviceCount,
                                          SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                          DWORD authenticationLevel, DWORD impersonationLevel,
                                          void* authenticationList, DWORD capabilities, void* reserved3) {
    current_->securities.push_back({descriptor, serviceCount, services, reserved1, authenticationLevel,
                                    impersonationLevel, authenticationList, capabilities, reserved3});
    current_->Report("CoInitializeSecurity");
    return current_->securityResult;
}

void WINAPI FakeComRuntime::OnUninitialise() {
    ++current_->uninitialisations;
    current_->Report("CoUninitialize");
}

HRESULT WINAPI FakeComRuntime::OnUsage(CO_MTA_USAGE_COOKIE* cookie) {
    *cookie = nullptr;
    current_->Report("CoIncrementMTAUsage");
    return S_OK;
}
