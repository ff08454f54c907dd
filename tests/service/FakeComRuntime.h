#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <objbase.h>

#include <functional>
#include <string>
#include <vector>

// Stands in for the process-wide set-up of COM, which a real process can make only once, and records it. Only
// one exists at a time.
class FakeComRuntime : public test_support::OnlyOne<FakeComRuntime> {
  public:
    struct Initialisation {
        void* reserved;
        DWORD concurrency;
    };
    struct Security {
        void* descriptor;
        LONG serviceCount;
        const void* services;
        void* reserved1;
        DWORD authenticationLevel;
        DWORD impersonationLevel;
        void* authenticationList;
        DWORD capabilities;
        void* reserved3;
    };

    FakeComRuntime();

    HRESULT initialisationResult = S_OK;
    HRESULT securityResult = S_OK;
    // Told the name of each function that is called.
    std::function<void(const std::string& function)> report;

    std::vector<Initialisation> initialisations;
    std::vector<Security> securities;
    int uninitialisations = 0;

  private:
    static HRESULT WINAPI OnInitialise(void* reserved, DWORD concurrency);
    static HRESULT WINAPI OnSecurity(SECURITY_DESCRIPTOR* descriptor, LONG serviceCount,
                                     SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                     DWORD authenticationLevel, DWORD impersonationLevel,
                                     void* authenticationList, DWORD capabilities, void* reserved3);
    static void WINAPI OnUninitialise();
    static HRESULT WINAPI OnUsage(CO_MTA_USAGE_COOKIE* cookie);

    void Report(const std::string& function) const;

    test_support::ImportRedirect initialise_;
    test_support::ImportRedirect security_;
    test_support::ImportRedirect uninitialise_;
    test_support::ImportRedirect usage_;
};
