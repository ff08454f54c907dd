#include "toast/window/ProgramIcon.h"

namespace toast {

HICON ProgramIcon() {
    return static_cast<HICON>(LoadImageW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(PROGRAM_ICON),
                                         IMAGE_ICON, 0, 0, LR_DEFAULTSIZE | LR_SHARED));
}

}  // namespace toast
