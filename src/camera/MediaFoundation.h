#pragma once

#include <windows.h>
#include <mfapi.h>
#include <mfidl.h>

// mingw-w64's library has this function of Media Foundation, its headers do not declare it.
extern "C" HRESULT WINAPI MFCreateDeviceSourceActivate(IMFAttributes* attributes, IMFActivate** activation);
