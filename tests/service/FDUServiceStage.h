#pragma once

#include "service/FDUService.h"

#include "tests/service/FakeComRuntime.h"
#include "tests/service/FakeServiceLife.h"
#include "tests/service/SystemFolders.h"
#include "tests/support/FakeActivation.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/FakeToastController.h"
#include "tests/support/FakeUsbBus.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"
#include "tests/support/TraceRecorder.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// An update mode in which the service does nothing.
struct OtherMode {
    const char* name;
    std::optional<std::wstring> text;
};

inline const std::vector<OtherMode> kOtherModes{{"Disabled", L"Disabled"},
                                                {"Auto", L"Auto"},
                                                {"None", std::nullopt},
                                                {"OtherCase", L"service controlled"},
                                                {"Longer", L"Service Controlled2"}};

inline std::string NameOfMode(const testing::TestParamInfo<OtherMode>& mode) {
    return mode.param.name;
}

// The machine around an update service: the toast controller is registered and there, the update mode is
// "Service Controlled", a trace session takes everything, and there is neither camera nor image. The registry
// is the machine's own.
class FDUServiceStage : public testing::Test, public test_support::OnlyOne<FDUServiceStage> {
  protected:
    FDUServiceStage();
    ~FDUServiceStage() override;

    // Without a text there is no setting.
    void SetUpdateMode(const std::optional<std::wstring>& text);
    // The registration of the toast controller fails from now on, with this status of its last call.
    void FailToastController(LSTATUS status) { settingStatus_ = status; }

    // The service; made when it is first asked for.
    FDUService& Service();
    // Ends it, in real time: that is what the toast controller's last answer, which it waits for, takes.
    void EndService();
    // The service as it is made, with its traces forgotten.
    FDUService& MadeService();

    // The texts of "NotifyProgress", in order.
    [[nodiscard]] std::vector<std::wstring> ProgressTexts() const;
    // The numbers of the update service's own trace messages, in order.
    [[nodiscard]] std::vector<USHORT> TraceNumbers() const;
    // The only text of its message of that number, terminator included.
    [[nodiscard]] std::string TracedText(USHORT number) const;
    // What `act` traces, these numbers, goes to a session of this level, and not to one of the level below.
    void ExpectTracedFrom(UCHAR level, const std::vector<USHORT>& numbers, const std::function<void()>& act);
    // What entered (">") and left ("<") the scope trace, in order.
    [[nodiscard]] std::vector<std::string> Scopes() const;

    // What the fakes of COM and of the service's life were called for, in order.
    std::vector<std::string> calls_;

    test_support::TraceRecorder traces_;
    test_support::FakeClock clock_;
    FakeServiceLife life_;
    SystemFolders folders_;
    FakeComRuntime com_;
    test_support::FakeConfigurationManager devices_;
    test_support::FakeUsbBus bus_;
    test_support::FakeMediaFoundation cameras_{test_support::FakeMediaFoundation::Platform::NotStarted};
    test_support::FakeToastController toast_;
    test_support::FakeActivation activation_{toast_.Unknown()};
    std::unique_ptr<FDUService> service_;

  private:
    static LSTATUS WINAPI OnSetKeyValue(HKEY parent, const wchar_t* path, const wchar_t* name, DWORD type,
                                        const void* data, DWORD size);
    static void CleanRegistry();

    LSTATUS settingStatus_ = ERROR_SUCCESS;
    test_support::ImportRedirect setKeyValue_;
};
