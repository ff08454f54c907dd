#pragma once

// Nothing of Media Foundation is needed here.
#include <windows.h>
