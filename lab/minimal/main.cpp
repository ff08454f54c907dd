#include <windows.h>
#include <winusb.h>

#include "lab/minimal/MinimalService.h"

int main() {
    // Does nothing; because of it the rig, which stands in for this function's DLL, is loaded.
    WinUsb_Free(nullptr);
    return lab::RunMinimalService();
}
