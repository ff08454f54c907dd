#include <windows.h>

#include <cstdio>

#include "lab/toast/ServerAction.h"
#include "lab/toast/ServerRegistration.h"
#include "lab/toast/ToastControllerRun.h"

namespace {

using lab::toast::ServerAction;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int ExitCode(const char* action, HRESULT result) {
    if (SUCCEEDED(result)) {
        return 0;
    }
    std::fprintf(stderr, "VeyraCameraToastCntl: %s failed with 0x%08lX\n", action,
                 static_cast<unsigned long>(result));
    return kExitFailed;
}

}  // namespace

int main() {
    switch (lab::toast::ChooseServerAction(GetCommandLineW())) {
        case ServerAction::kRegister:
            return ExitCode("the registration", lab::toast::RegisterServer());
        case ServerAction::kUnregister:
            return ExitCode("the removal", lab::toast::UnregisterServer());
        case ServerAction::kServe:
            return ExitCode("the server", lab::toast::RunToastController());
        case ServerAction::kShowUsage:
            break;
    }
    std::fputs("usage: VeyraCameraToastCntl /RegServer | /UnregServer | /Embedding\n", stderr);
    return kExitUsage;
}
