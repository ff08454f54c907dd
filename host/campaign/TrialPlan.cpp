#include "host/campaign/TrialPlan.h"

#include "lab/camera/FlashMemory.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace campaign {
namespace {

using lab::Fault;

template <typename Value>
struct Word {
    std::string_view word;
    Value value;
    std::string_view text;
};

constexpr std::array<Word<Fault::Where>, 13> kPlaces{{
    {"de", Fault::Where::Detach, "DETACH"},
    {"dn", Fault::Where::Dnload, "DNLOAD"},
    {"up", Fault::Where::Upload, "UPLOAD"},
    {"gs", Fault::Where::GetStatus, "GETSTATUS"},
    {"cl", Fault::Where::ClrStatus, "CLRSTATUS"},
    {"ge", Fault::Where::GetState, "GETSTATE"},
    {"ab", Fault::Where::Abort, "ABORT"},
    {"cw", Fault::Where::CommandWrite, "the write of a firmware command"},
    {"cr", Fault::Where::CommandRead, "the read of a firmware command's reply"},
    {"gd", Fault::Where::GetDescriptor, "the read of a descriptor"},
    {"si", Fault::Where::SetInterface, "SET_INTERFACE"},
    {"fe", Fault::Where::FlashErase, "the erasure of a page"},
    {"fw", Fault::Where::FlashWrite, "the writing of a page"},
}};

constexpr std::array<Word<Fault::What>, 8> kWhats{{
    {"stall", Fault::What::Stall, "is refused"},
    {"time", Fault::What::Timeout, "is not answered"},
    {"pull", Fault::What::Unplug, "loses its camera"},
    {"code", Fault::What::Status, "tells bStatus"},
    {"state", Fault::What::State, "tells bState"},
    {"poll", Fault::What::PollTime, "asks for a poll time of"},
    {"short", Fault::What::ShortReply, "is answered in bytes"},
    {"echo", Fault::What::WrongEcho, "echoes"},
}};

constexpr std::array<Word<Circumstance::What>, 2> kCircumstances{{
    {"r", Circumstance::What::ArrivesAgain, "the camera arrives again, and has not lost power"},
    {"s", Circumstance::What::StaleError, "an earlier call has left its error"},
}};

constexpr unsigned kMostUpdates = 9;

// A stall without dfuERROR.
constexpr std::string_view kKeep = "keep";

template <typename Value, std::size_t Count>
const Word<Value>& WordOf(const std::array<Word<Value>, Count>& words, Value value) {
    return *std::ranges::find(words, value, &Word<Value>::value);
}

bool HasValue(Fault::What what) {
    return what >= Fault::What::Status;
}

std::string TextOf(const PlannedFault& planned) {
    const Fault& fault = planned.fault;
    std::string text = std::to_string(planned.update);
    text += WordOf(kPlaces, fault.where).word;
    text += std::to_string(fault.skip) + "-";
    text += fault.what == Fault::What::Stall && !fault.setsError ? kKeep : WordOf(kWhats, fault.what).word;
    const bool hasPart = fault.moment == Fault::Moment::Middle && fault.value != 0;
    if (HasValue(fault.what)) {
        text += std::to_string(fault.value);
    }
    if (fault.moment != Fault::Moment::Before) {
        text += fault.moment == Fault::Moment::Middle ? "-mid" : "-after";
        text += hasPart ? std::to_string(fault.value) : "";
    }
    if (fault.count != 1) {
        text += "-for" + std::to_string(fault.count);
    }
    return text;
}

// Takes texts and numbers off the front of a text.
class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    [[nodiscard]] bool IsEmpty() const { return rest_.empty(); }

    bool Take(std::string_view word) {
        if (!rest_.starts_with(word)) {
            return false;
        }
        rest_.remove_prefix(word.size());
        return true;
    }
    template <typename Number>
    bool TakeNumber(Number& number) {
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        if (error != std::errc{}) {
            return false;
        }
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }
    template <typename Value, std::size_t Count>
    bool TakeWord(const std::array<Word<Value>, Count>& words, Value& value) {
        const auto found = std::ranges::find_if(words, [this](const auto& word) { return Take(word.word); });
        if (found != words.end()) {
            value = found->value;
        }
        return found != words.end();
    }

  private:
    std::string_view rest_;
};

bool TakeMoment(Reader& reader, Fault& fault) {
    if (reader.Take("-after")) {
        fault.moment = Fault::Moment::After;
    } else if (reader.Take("-mid")) {
        fault.moment = Fault::Moment::Middle;
        reader.TakeNumber(fault.value);
    }
    return !reader.Take("-for") || reader.TakeNumber(fault.count);
}

std::optional<PlannedFault> FaultOf(std::string_view text) {
    PlannedFault planned;
    Fault& fault = planned.fault;
    Reader reader(text);
    if (!reader.TakeNumber(planned.update) || planned.update == 0 || !reader.TakeWord(kPlaces, fault.where) ||
        !reader.TakeNumber(fault.skip) || !reader.Take("-")) {
        return std::nullopt;
    }
    if (reader.Take(kKeep)) {
        fault.what = Fault::What::Stall;
        fault.setsError = false;
    } else if (!reader.TakeWord(kWhats, fault.what) ||
               (HasValue(fault.what) && !reader.TakeNumber(fault.value))) {
        return std::nullopt;
    }
    if (!TakeMoment(reader, fault) || !reader.IsEmpty()) {
        return std::nullopt;
    }
    return planned;
}

std::optional<Circumstance> CircumstanceOf(std::string_view text) {
    Circumstance circumstance;
    Reader reader(text);
    const bool isRead = reader.TakeNumber(circumstance.update) && circumstance.update != 0 &&
                        reader.TakeWord(kCircumstances, circumstance.what) && reader.IsEmpty();
    return isRead ? std::optional(circumstance) : std::nullopt;
}

std::vector<std::string_view> Split(std::string_view text) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find('.');
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

}  // namespace

unsigned TrialPlan::LastUpdate() const {
    unsigned last = 1;
    for (const PlannedFault& planned : faults) {
        last = std::max(last, planned.update);
    }
    for (const Circumstance& circumstance : circumstances) {
        last = std::max(last, circumstance.update);
    }
    return last;
}

bool TrialPlan::Has(unsigned update, Circumstance::What what) const {
    return std::ranges::any_of(circumstances, [&](const Circumstance& circumstance) {
        return circumstance.update == update && circumstance.what == what;
    });
}

std::vector<Fault> TrialPlan::FaultsOf(unsigned update) const {
    std::vector<Fault> chosen;
    for (const PlannedFault& planned : faults) {
        if (planned.update == update) {
            chosen.push_back(planned.fault);
        }
    }
    return chosen;
}

std::vector<std::uint8_t> TrialPlan::Image(unsigned update) const {
    // A linear congruential generator: no part of an image is like another, or like that of another image.
    std::uint32_t number = seed * 0x9E37'79B9U + update;
    std::vector<std::uint8_t> image(imageSize);
    for (std::uint8_t& byte : image) {
        number = number * 1'664'525U + 1'013'904'223U;
        byte = static_cast<std::uint8_t>(number >> 24);
    }
    const std::array<std::uint8_t, 4> version{0, static_cast<std::uint8_t>(2 + update), 10, 5};
    std::ranges::copy(version, image.begin() + lab::FlashMemory::kVersionOffset);
    return image;
}

std::string IdOf(const TrialPlan& plan) {
    std::string id(plan.kind->name);
    id += "." + std::to_string(plan.imageSize) + "x" + std::to_string(plan.seed);
    for (const PlannedFault& planned : plan.faults) {
        id += "." + TextOf(planned);
    }
    for (const Circumstance& circumstance : plan.circumstances) {
        id += "." + std::to_string(circumstance.update);
        id += WordOf(kCircumstances, circumstance.what).word;
    }
    return id;
}

std::optional<TrialPlan> PlanOf(std::string_view id) {
    const std::vector<std::string_view> parts = Split(id);
    if (parts.size() < 2) {
        return std::nullopt;
    }
    TrialPlan plan{.kind = FindKind(parts[0])};
    Reader image(parts[1]);
    if (plan.kind == nullptr || !image.TakeNumber(plan.imageSize) || !image.Take("x") ||
        !image.TakeNumber(plan.seed) || !image.IsEmpty() || plan.imageSize < kSmallestImage ||
        plan.imageSize > 1U << 20) {
        return std::nullopt;
    }
    for (std::size_t part = 2; part < parts.size(); ++part) {
        const std::optional<Circumstance> circumstance = CircumstanceOf(parts[part]);
        const std::optional<PlannedFault> planned = FaultOf(parts[part]);
        if (circumstance) {
            plan.circumstances.push_back(*circumstance);
        } else if (planned) {
            plan.faults.push_back(*planned);
        } else {
            return std::nullopt;
        }
    }
    if (plan.LastUpdate() > kMostUpdates) {
        return std::nullopt;
    }
    // One plan has one text.
    return IdOf(plan) == id ? std::optional(plan) : std::nullopt;
}

std::string InWords(const PlannedFault& planned) {
    const Fault& fault = planned.fault;
    std::string words = "update " + std::to_string(planned.update) + ", number " +
                        std::to_string(fault.skip) + " of its kind: ";
    words += WordOf(kPlaces, fault.where).text;
    words += " ";
    words += WordOf(kWhats, fault.what).text;
    if (HasValue(fault.what)) {
        words += " " + std::to_string(fault.value);
    }
    switch (fault.moment) {
        case Fault::Moment::Before:
            break;
        case Fault::Moment::Middle:
            words += ", in the middle";
            break;
        case Fault::Moment::After:
            words += ", after it was done";
            break;
    }
    if (fault.what == Fault::What::Stall && !fault.setsError) {
        words += ", and nothing changes";
    }
    if (fault.count != 1) {
        words += fault.count == 0 ? ", from there on" : ", " + std::to_string(fault.count) + " times";
    }
    return words;
}

std::string InWords(const Circumstance& circumstance) {
    std::string words = "update " + std::to_string(circumstance.update) + ": ";
    words += WordOf(kCircumstances, circumstance.what).text;
    return words;
}

}  // namespace campaign
