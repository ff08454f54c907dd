#include <windows.h>

#include <shobjidl.h>

#include "toast/program/ProgramAction.h"
#include "toast/program/ToastControllerRun.h"
#include "toast/registration/Registration.h"

namespace {

// The service writes the notification settings of an application of this name.
constexpr wchar_t kAppUserModelId[] = L"Morrow.Veyra.DFUToastCntl";
constexpr int kUsage = 2;

int ExitCodeOf(toast::ProgramAction action) {
    switch (action) {
        case toast::ProgramAction::kRegister:
            return static_cast<int>(toast::Register());
        case toast::ProgramAction::kUnregister:
            return static_cast<int>(toast::Unregister());
        case toast::ProgramAction::kServe:
            SetCurrentProcessExplicitAppUserModelID(kAppUserModelId);
            return static_cast<int>(toast::RunToastController());
        case toast::ProgramAction::kNone:
            break;
    }
    return kUsage;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
    return ExitCodeOf(toast::ActionOf(GetCommandLineW()));
}
