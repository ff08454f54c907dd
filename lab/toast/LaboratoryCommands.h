#pragma once

#include <memory>

#include <nlohmann/json_fwd.hpp>

#include "lab/toast/ServerParts.h"
#include "lab/toast/UserResponder.h"

namespace lab::toast {

// Carries out what the laboratory asks for: "respond", "fail" and "die". Each command is answered by one
// "done" event; what cannot be carried out as it stands is refused with the reason.
class LaboratoryCommands {
  public:
    // `responder` must outlive this object.
    LaboratoryCommands(std::shared_ptr<ServerParts> parts, UserResponder& responder);

    // What the wire's stage says: on the thread that opened it, before any command.
    void TakeStage(const nlohmann::json& stage);

    // On the wire's reader thread.
    void CarryOut(const nlohmann::json& command);

  private:
    void Respond(const nlohmann::json& command);
    void Hang(const nlohmann::json& command);
    void Fail(const nlohmann::json& command);
    void Die();

    const std::shared_ptr<ServerParts> parts_;
    UserResponder& responder_;
};

}  // namespace lab::toast
