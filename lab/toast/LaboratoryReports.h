#pragma once

#include "lab/wire/Wire.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace lab::toast {

// What the server tells the laboratory, one event of the transcript each. Tells nobody while no wire is open.
// All members may be called from every thread.
class LaboratoryReports {
  public:
    // The wire is not owned: close the reports before it goes.
    void Open(Wire& wire);
    void Close();

    void PromptCall(std::string_view method, const std::vector<std::wstring>& texts);
    void Advised(DWORD cookie);
    void Unadvised(DWORD cookie);
    // `result` is the first failure of a sink, not negative when all took the answer.
    void Answer(LONG code, std::size_t sinks, HRESULT result);

    // How a command ended.
    void Done(std::string_view command);
    void Refused(std::string_view command, std::string_view why);

  private:
    void Send(const nlohmann::json& event);

    std::mutex mutex_;
    Wire* wire_ = nullptr;
};

}  // namespace lab::toast
