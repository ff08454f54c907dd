#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace lab::rig {

// The USB bus of another kernel: what is asked of it over the wire, and its answers. The commands are those
// of the laboratory's guest. The owner locks.
class KernelBus {
  public:
    // Sends a question on its way, an event for the wire; must not block for long.
    using Asker = std::function<void(const nlohmann::json& question)>;

    explicit KernelBus(Asker ask);
    ~KernelBus();
    KernelBus(const KernelBus&) = delete;
    KernelBus& operator=(const KernelBus&) = delete;

    // Has a command carried out and waits for the answer, the owner's lock given back meanwhile. What the
    // kernel refuses has the field "errno"; so has, with "ENODEV", what nobody answers any more.
    [[nodiscard]] nlohmann::json Ask(std::unique_lock<std::mutex>& owner, std::string_view command,
                                     nlohmann::json fields);
    // The answer to a question has come.
    void TakeAnswer(unsigned question, const nlohmann::json& answer);
    // No answer comes any more.
    void End();

  private:
    const Asker ask_;
    std::condition_variable answered_;
    unsigned lastQuestion_ = 0;
    std::map<unsigned, std::unique_ptr<nlohmann::json>> answers_;  // by their questions
    bool isEnded_ = false;
};

}  // namespace lab::rig
