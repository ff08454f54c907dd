#pragma once

#include "service/DFUServiceBase.h"

// What the executable does when it is started: "-install" and "-remove" (also with "/", in any case) install
// and remove the service; another switch does nothing; no switch prints the usage text and hands the process
// to the service control manager until `service` has stopped. Everything is printed on standard output,
// failures too, with their Win32 code, and changes no exit code. For the main thread; `service` is not owned.
void RunCommandLine(int argc, wchar_t** argv, DFUServiceBase& service);
