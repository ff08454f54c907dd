#include "ProductVersion.h"
#include "check/CheckArguments.h"
#include "check/Collection.h"
#include "check/Console.h"
#include "check/ImageQuery.h"
#include "check/Judgement.h"
#include "check/MachineQuery.h"
#include "check/Rehearsal.h"
#include "check/StatusReport.h"
#include "check/Utf8.h"
#include "check/WindowsProbes.h"
#include "check/Words.h"

#include <algorithm>
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

int ShowRehearsal(const check::CheckArguments& arguments) {
    check::ImageState image;
    if (arguments.image) {
        image = check::QueryImage(check::Wide(*arguments.image));
        if (!image.isReadable) {
            throw check::UsageError("the image cannot be read (" + check::Code(image.error) +
                                    "): " + image.path);
        }
    }
    check::MachineState machine = check::QueryMachine();
    if (arguments.image) {
        machine.image = image;
    }
    const check::Judgement judgement = check::Judge(machine);
    const check::Rehearsal rehearsal = check::Rehearse(machine, judgement, arguments.blockSize);
    const std::string text = arguments.isJson
                                 ? check::RehearsalJson(machine, judgement, rehearsal, PRODUCT_VERSION_TEXT)
                                 : check::RehearsalText(machine, judgement, rehearsal);
    return check::WriteOutput(text) ? check::ExitCodeOf(judgement.verdict) : kFailed;
}

void Complain(const char* what, const char* hint) {
    std::string line = std::string("VeyraCameraDfuCheck: ") + what + hint;
    std::replace_if(
        line.begin(), line.end(), [](char character) { return static_cast<unsigned char>(character) < 0x20; },
        '?');
    check::WriteError(line + "\n");
}

int Collect(const check::CheckArguments& arguments) {
    const std::string failure =
        check::Collection(arguments.cabinet).Make(arguments.seconds, PRODUCT_VERSION_TEXT);
    if (failure.empty()) {
        return 0;
    }
    Complain(failure.c_str(), "");
    return kFailed;
}

int ShowProbes(bool isJson) {
    const std::vector<check::Probe> probes = check::AskWindows();
    const std::string text =
        isJson ? check::ProbesJson(probes, PRODUCT_VERSION_TEXT) : check::ProbesText(probes);
    return check::WriteOutput(text) ? check::ExitCodeOf(probes) : kFailed;
}

int Run(const check::CheckArguments& arguments) {
    switch (arguments.command) {
        case check::Command::Help:
            return check::WriteOutput(check::UsageText()) ? 0 : kFailed;
        case check::Command::Version:
            return check::WriteOutput("VeyraCameraDfuCheck " PRODUCT_VERSION_TEXT "\n") ? 0 : kFailed;
        case check::Command::Status:
            return ShowStatus(arguments.isJson);
        case check::Command::Rehearse:
            return ShowRehearsal(arguments);
        case check::Command::Windows:
            return ShowProbes(arguments.isJson);
        case check::Command::Collect:
            return Collect(arguments);
    }
    return kFailed;
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
