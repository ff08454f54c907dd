// The minimal service with one thing more, which the product's start does too: it sets COM up and activates
// the toast controller.

#include <windows.h>
#include <winusb.h>

#include "lab/minimal/MinimalService.h"
#include "lab/minimal/ToastActivation.h"

int main() {
    // Does nothing; because of it the rig, which stands in for this function's DLL, is loaded.
    WinUsb_Free(nullptr);
    const lab::ToastActivation activation;
    return lab::RunMinimalService();
}
