#include "lab/served/ServerLoop.h"

#ifdef _WIN32
#include <winsock2.h>
#else
#include <poll.h>
#endif

#include <algorithm>
#include <chrono>
#include <climits>
#include <thread>
#include <utility>

namespace lab {
namespace {

#ifdef _WIN32
using Poll = WSAPOLLFD;

int Wait(std::vector<Poll>& polls, int waitMs) {
    return WSAPoll(polls.data(), static_cast<ULONG>(polls.size()), waitMs);
}
#else
using Poll = pollfd;

int Wait(std::vector<Poll>& polls, int waitMs) {
    return poll(polls.data(), polls.size(), waitMs);
}
#endif

}  // namespace

void ServerLoop::Add(std::unique_ptr<LoopMember> member) {
    members_.push_back(std::move(member));
}

void ServerLoop::RunOnce(std::uint32_t mostMs) {
    for (LoopMember* const member : Ready(Patience(mostMs))) {
        CallOrRemove(member, [this](LoopMember& each) { return each.Serve(clock_()); });
    }
    std::vector<LoopMember*> all;
    for (const auto& member : members_) {
        all.push_back(member.get());
    }
    for (LoopMember* const member : all) {
        CallOrRemove(member, [this](LoopMember& each) { return each.KeepUp(clock_()); });
    }
}

std::uint32_t ServerLoop::Patience(std::uint32_t mostMs) const {
    const std::uint64_t nowMs = clock_();
    std::uint64_t patienceMs = mostMs;
    for (const auto& member : members_) {
        if (const auto due = member->NextDeadline()) {
            patienceMs = std::min(patienceMs, *due > nowMs ? *due - nowMs : 0);
        }
    }
    return static_cast<std::uint32_t>(patienceMs);
}

std::vector<LoopMember*> ServerLoop::Ready(std::uint32_t waitMs) const {
    std::vector<Poll> polls;
    std::vector<LoopMember*> polled;
    for (const auto& member : members_) {
        if (member->Handle() != kNoSocket) {
            Poll poll{};
            poll.fd = member->Handle();
            poll.events = static_cast<short>(member->WantsToSend() ? POLLIN | POLLOUT : POLLIN);
            polls.push_back(poll);
            polled.push_back(member.get());
        }
    }
    std::vector<LoopMember*> ready;
    if (polls.empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(waitMs));
    } else if (Wait(polls, static_cast<int>(std::min<std::uint32_t>(waitMs, INT_MAX))) > 0) {
        for (std::size_t index = 0; index < polls.size(); ++index) {
            if (polls[index].revents != 0) {
                ready.push_back(polled[index]);
            }
        }
    }
    return ready;
}

// A member lives until its own call ends it.
template <typename Call>
void ServerLoop::CallOrRemove(LoopMember* member, const Call& call) {
    if (!call(*member)) {
        std::erase_if(members_, [member](const auto& each) { return each.get() == member; });
    }
}

}  // namespace lab
