#include "toast/server/AdvisedSinks.h"

#include <objbase.h>

#include <utility>

namespace toast {

AdvisedSinks::AdvisedSinks(ObjectsGetter objects) : objects_(std::move(objects)) {}

void AdvisedSinks::ForgetObjects() {
    const std::lock_guard lock(mutex_);
    objects_ = nullptr;
}

DWORD AdvisedSinks::Add(Microsoft::WRL::ComPtr<IDispatch> sink) {
    const std::lock_guard lock(mutex_);
    const DWORD cookie = ++lastCookie_;
    auto died = [weak = weak_from_this(), cookie](SinkMailbox::Death death) {
        if (const auto self = weak.lock()) {
            self->Died(cookie, death);
        }
    };
    mailboxes_.emplace(cookie, std::make_shared<SinkMailbox>(std::move(sink), std::move(died)));
    return cookie;
}

// What is removed is released after the lock is left: the release goes to the client's process.
bool AdvisedSinks::Remove(DWORD cookie) {
    Mailboxes::node_type removed;
    const std::lock_guard lock(mutex_);
    removed = mailboxes_.extract(cookie);
    return !removed.empty();
}

void AdvisedSinks::Fire(LONG answer) {
    for (const auto& [cookie, mailbox] : All()) {
        mailbox->Fire(answer);
    }
}

void AdvisedSinks::Probe() {
    for (const auto& [cookie, mailbox] : All()) {
        mailbox->Probe();
    }
}

void AdvisedSinks::Died(DWORD cookie, SinkMailbox::Death death) {
    if (!Remove(cookie) || death != SinkMailbox::Death::kClient) {
        return;
    }
    std::vector<Microsoft::WRL::ComPtr<IUnknown>> objects;
    {
        const std::lock_guard lock(mutex_);
        if (mailboxes_.empty() && objects_) {
            objects = objects_();
        }
    }
    for (const auto& object : objects) {
        CoDisconnectObject(object.Get(), 0);
    }
}

AdvisedSinks::Mailboxes AdvisedSinks::All() const {
    const std::lock_guard lock(mutex_);
    return mailboxes_;
}

}  // namespace toast
