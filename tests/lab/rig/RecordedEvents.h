#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// Keeps what a part of the rig records, from any thread.
class RecordedEvents {
  public:
    void Add(const nlohmann::json& event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(event);
        changed_.notify_all();
    }

    [[nodiscard]] std::vector<nlohmann::json> All() {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    [[nodiscard]] std::vector<nlohmann::json> Named(const std::string& name) {
        std::vector<nlohmann::json> named;
        for (const auto& event : All()) {
            if (event.at("event") == name) {
                named.push_back(event);
            }
        }
        return named;
    }

    // Whether there were that many events of the name within ten seconds.
    [[nodiscard]] bool WaitFor(const std::string& name, std::size_t count) {
        const auto isOfThatName = [&](const nlohmann::json& event) { return event.at("event") == name; };
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            return static_cast<std::size_t>(std::ranges::count_if(events_, isOfThatName)) >= count;
        });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<nlohmann::json> events_;
};
