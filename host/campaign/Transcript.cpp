#include "host/campaign/Transcript.h"

#include "host/campaign/Tally.h"
#include "lab/vocabulary/BusEvents.h"

#include <nlohmann/json.hpp>

namespace campaign {
namespace {

using nlohmann::json;

json EventOf(const Crossing& crossing) {
    const auto error = static_cast<std::uint32_t>(crossing.result) & 0xFFFF;
    const auto tookMs = static_cast<std::uint32_t>(crossing.endedMs - crossing.beganMs);
    switch (crossing.what) {
        case Crossing::What::CommandWrite:
            return lab::CommandEvent(crossing.before, crossing.result);
        case Crossing::What::CommandRead:
            return lab::ReplyEvent(crossing.after.first(crossing.transferred), crossing.result);
        case Crossing::What::Descriptor:
            return lab::DescriptorEvent(lab::LowByte(crossing.setup.value), 0, crossing.after,
                                        crossing.transferred, error);
        case Crossing::What::SetInterface:
            return lab::AlternateSettingEvent(crossing.setup.index, lab::LowByte(crossing.setup.value),
                                              error);
        case Crossing::What::Transfer:
            break;
    }
    return lab::TransferEvent(crossing.setup, crossing.after, crossing.transferred, error, tookMs);
}

}  // namespace

void Transcript::OnStep(const std::string& words) {
    stream_ << json{{"event", "step"}, {"text", words}}.dump() << '\n';
}

void Transcript::OnCrossing(const Crossing& crossing) {
    stream_ << EventOf(crossing).dump() << '\n';
}

void Transcript::OnUpdate(std::size_t camera, unsigned number) {
    stream_ << json{{"event", "update"}, {"camera", camera}, {"number", number}}.dump() << '\n';
}

void Transcript::OnUpdateEnd(const UpdateEnd& end) {
    stream_ << json{{"event", "update-end"},
                    {"how", NameOf(end.how)},
                    {"firmware", FirmwareInWords(end.verdict)}}
                   .dump()
            << '\n';
}

void Transcript::OnBroken(bool isByCrossing, std::string_view next) {
    stream_ << json{{"event", "broken"}, {"by_crossing", isByCrossing}, {"next", next}}.dump() << '\n';
}

}  // namespace campaign
