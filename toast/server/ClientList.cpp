#include "toast/server/ClientList.h"

namespace toast {

ClientId ClientList::Add(const std::shared_ptr<AdvisedSinks>& sinks) {
    const std::lock_guard lock(mutex_);
    std::erase_if(clients_, [](const auto& client) { return client.second.expired(); });
    clients_.emplace(++lastId_, sinks);
    return lastId_;
}

void ClientList::Fire(LONG answer, const std::vector<ClientId>& clients) {
    std::vector<std::shared_ptr<AdvisedSinks>> asked;
    {
        const std::lock_guard lock(mutex_);
        for (const ClientId client : clients) {
            const auto found = clients_.find(client);
            if (found != clients_.end()) {
                asked.push_back(found->second.lock());
            }
        }
    }
    for (const auto& sinks : asked) {
        if (sinks != nullptr) {
            sinks->Fire(answer);
        }
    }
}

void ClientList::ProbeAll() {
    std::vector<std::shared_ptr<AdvisedSinks>> all;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [client, sinks] : clients_) {
            all.push_back(sinks.lock());
        }
    }
    for (const auto& sinks : all) {
        if (sinks != nullptr) {
            sinks->Probe();
        }
    }
}

}  // namespace toast
