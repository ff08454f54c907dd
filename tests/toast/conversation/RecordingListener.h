#pragma once

#include <string>
#include <utility>
#include <vector>

#include "toast/conversation/ConversationListener.h"

// Writes down what follows from a conversation, one word for each.
class RecordingListener final : public toast::ConversationListener {
  public:
    // What has been heard since the last look.
    [[nodiscard]] std::vector<std::string> Heard() { return std::exchange(heard_, {}); }

    void Asked(const toast::Question& question) override { Write("asked " + Text(question)); }
    void Replaced(const toast::Question& question) override { Write("replaced " + Text(question)); }
    void Lapsed(const toast::Question& question) override { Write("lapsed " + Text(question)); }
    void Answered(std::int32_t answer, const std::vector<toast::ClientId>& clients) override {
        std::string text = "answered " + std::to_string(answer) + " to";
        for (const toast::ClientId client : clients) {
            text += " " + std::to_string(client);
        }
        Write(text);
    }
    void Started(std::optional<std::uint32_t> blocks) override { Write("started " + Text(blocks)); }
    void Ended(toast::Ending ending, std::uint32_t taken, std::optional<std::uint32_t> blocks) override {
        Write("ended " + std::to_string(static_cast<int>(ending)) + " " + std::to_string(taken) + " of " +
              Text(blocks));
    }

  private:
    static std::string Narrow(const std::wstring& text) {
        std::string narrow;
        for (const wchar_t character : text) {
            narrow += static_cast<char>(character);
        }
        return narrow;
    }
    static std::string Text(const toast::Question& question) {
        return Narrow(question.present) + " to " + Narrow(question.offered);
    }
    static std::string Text(std::optional<std::uint32_t> number) {
        return number ? std::to_string(*number) : "unknown";
    }
    void Write(std::string text) { heard_.push_back(std::move(text)); }

    std::vector<std::string> heard_;
};
