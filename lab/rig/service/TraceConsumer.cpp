#include "lab/rig/service/TraceConsumer.h"

#include <stdexcept>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/rig/text/GuidText.h"
#include "lab/vocabulary/HexText.h"
#include "lab/vocabulary/StageFields.h"

namespace lab::rig {

TraceConsumer::Message TraceConsumer::MessageOf(const nlohmann::json& command) {
    const auto group = GuidFromText(command.at("group").get<std::string>());
    if (!group) {
        throw std::runtime_error("a trace message has a group with braces");
    }
    Message message{*group,
                    ToNumber<USHORT>("number", command.at("number")),
                    ToNumber<ULONG>("process", command.value("process", nlohmann::json(0U))),
                    {}};
    for (const auto& argument : command.at("arguments")) {
        const auto bytes = BytesFromHex(argument.get<std::string>());
        if (!bytes) {
            throw std::runtime_error("an argument is no hexadecimal text: " + argument.dump());
        }
        message.payload.insert(message.payload.end(), bytes->begin(), bytes->end());
    }
    return message;
}

void TraceConsumer::Begin() {
    const std::lock_guard lock(mutex_);
    isRecording_ = true;
    messages_.clear();
}

void TraceConsumer::End() {
    const std::lock_guard lock(mutex_);
    isRecording_ = false;
    changed_.notify_all();
}

void TraceConsumer::Tell(Message message) {
    const std::lock_guard lock(mutex_);
    if (isRecording_) {
        messages_.push_back(std::move(message));
        changed_.notify_all();
    }
}

void TraceConsumer::Process(PEVENT_RECORD_CALLBACK callback, void* context) {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return !messages_.empty() || !isRecording_; });
        if (messages_.empty()) {
            return;
        }
        Message message = std::move(messages_.front());
        messages_.pop_front();
        lock.unlock();
        EVENT_RECORD record{};
        record.EventHeader.Flags = EVENT_HEADER_FLAG_TRACE_MESSAGE;
        record.EventHeader.ProviderId = message.group;
        record.EventHeader.EventDescriptor.Id = message.number;
        record.EventHeader.ProcessId = message.processId;
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        record.EventHeader.TimeStamp.LowPart = now.dwLowDateTime;
        record.EventHeader.TimeStamp.HighPart = static_cast<LONG>(now.dwHighDateTime);
        record.UserData = message.payload.data();
        record.UserDataLength = static_cast<USHORT>(message.payload.size());
        record.UserContext = context;
        callback(&record);
        lock.lock();
    }
}

}  // namespace lab::rig
