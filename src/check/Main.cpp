#include "ProductVersion.h"
#include "check/CheckArguments.h"
#include "check/Console.h"
#include "check/Judgement.h"
#include "check/MachineQuery.h"
#include "check/StatusReport.h"
#include "check/Utf8.h"

#include <exception>
#include <span>

namespace {

constexpr int kUsage = 2;
constexpr int kFailed = 3;

int ShowStatus(bool isJson) {
    const check::MachineState machine = check::QueryMachine();
    const check::Judgement judgement = check::Judge(machine);
    const std::string text = isJson ? check::StatusJson(machine, judgement, PRODUCT_VERSION_TEXT)
                                    : check::StatusText(machine, judgement);
    return check::WriteOutput(text) ? check::ExitCodeOf(judgement.verdict) : kFailed;
}

int Run(const check::CheckArguments& arguments) {
    switch (arguments.command) {
        case check::Command::Help:
            return check::WriteOutput(check::UsageText()) ? 0 : kFailed;
        case check::Command::Version:
            return check::WriteOutput("VeyraCameraDfuCheck " PRODUCT_VERSION_TEXT "\n") ? 0 : kFailed;
        case check::Command::Status:
            return ShowStatus(arguments.isJson);
    }
    return kFailed;
}

void Complain(const char* what, const char* hint) {
    check::WriteError(std::string("VeyraCameraDfuCheck: ") + what + hint + "\n");
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    try {
        std::vector<std::string> words;
        for (const wchar_t* word :
             std::span(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0)) {
            words.push_back(check::Utf8(word));
        }
        return Run(check::ReadArguments(words));
    } catch (const check::UsageError& error) {
        Complain(error.what(), " (--help tells how it is used)");
        return kUsage;
    } catch (const std::exception& error) {
        Complain(error.what(), "");
        return kFailed;
    }
}
