#include "service/CommandLine.h"
#include "service/FDUService.h"

namespace {

// Constructed before wmain, for every start of the executable: also with "-install" and "-remove".
FDUService updateService;

}  // namespace

int wmain(int argc, wchar_t** argv) {
    RunCommandLine(argc, argv, updateService);
    return 0;  // also after a failure
}
