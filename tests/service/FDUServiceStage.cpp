#include "tests/service/FDUServiceStage.h"

namespace {

const wchar_t* const kUpdateModeKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU";
const wchar_t* const kToastClassKey = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
const wchar_t* const kSettingsKey =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Notifications\\Settings\\Morrow.Veyra.DFUToastCntl";

}  // namespace

FDUServiceStage::FDUServiceStage() : setKeyValue_("RegSetKeyValueW", OnSetKeyValue) {
    CleanRegistry();
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kToastClassKey, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
    RegCloseKey(key);
    SetUpdateMode(L"Service Controlled");

    traces_.EnableSession(8);
    const auto report = [this](const std::string& function) { calls_.push_back(function); };
    com_.report = report;
    activation_.report = report;
    life_.report = report;
}

FDUServiceStage::~FDUServiceStage() {
    EndService();
    CleanRegistry();
}

void FDUServiceStage::CleanRegistry() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kUpdateModeKey);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kToastClassKey);
    RegDeleteTreeW(HKEY_CURRENT_USER, kSettingsKey);
}

void FDUServiceStage::SetUpdateMode(const std::optional<std::wstring>& text) {
    if (!text) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kUpdateModeKey);
        return;
    }
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kUpdateModeKey, L"DFUAutoMode", REG_SZ, text->c_str(),
                    static_cast<DWORD>((text->size() + 1) * sizeof(wchar_t)));
}

FDUService& FDUServiceStage::Service() {
    if (!service_) {
        service_ = std::make_unique<FDUService>();
    }
    return *service_;
}

void FDUServiceStage::EndService() {
    clock_.InRealTime([this] { service_.reset(); });
}

FDUService& FDUServiceStage::MadeService() {
    Service();
    traces_.Forget();
    return *service_;
}

std::vector<std::wstring> FDUServiceStage::ProgressTexts() const {
    std::vector<std::wstring> texts;
    for (const auto& call : toast_.CallsOf("NotifyProgress")) {
        texts.push_back(call.texts.at(0));
    }
    return texts;
}

std::vector<USHORT> FDUServiceStage::TraceNumbers() const {
    return traces_.Numbers(test_support::kUpdateServiceGroup);
}

std::string FDUServiceStage::TracedText(USHORT number) const {
    const auto messages = traces_.Find(test_support::kUpdateServiceGroup, number);
    EXPECT_EQ(messages.size(), 1u) << "messages of number " << number;
    if (messages.size() != 1 || messages[0].arguments.size() != 1) {
        return "no single text";
    }
    return messages[0].arguments[0];
}

void FDUServiceStage::ExpectTracedFrom(UCHAR level, const std::vector<USHORT>& numbers,
                                       const std::function<void()>& act) {
    traces_.EnableSession(static_cast<UCHAR>(level - 1));
    traces_.Forget();
    act();
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{});
    traces_.EnableSession(level);
    act();
    EXPECT_EQ(TraceNumbers(), numbers);
}

std::vector<std::string> FDUServiceStage::Scopes() const {
    std::vector<std::string> scopes;
    for (const auto& message : traces_.Find(test_support::kScopeGroup, 12)) {
        const std::string& direction = message.arguments.at(0);
        const std::string& function = message.arguments.at(2);
        scopes.push_back((direction == std::string("==>", 4) ? "> " : "< ") + std::string(function.c_str()));
    }
    return scopes;
}

LSTATUS WINAPI FDUServiceStage::OnSetKeyValue(HKEY parent, const wchar_t* path, const wchar_t* name,
                                              DWORD type, const void* data, DWORD size) {
    if (parent == HKEY_CURRENT_USER) {
        current_->calls_.emplace_back("RegSetKeyValueW");
        if (current_->settingStatus_ != ERROR_SUCCESS) {
            return current_->settingStatus_;
        }
    }
    return current_->setKeyValue_.Original<decltype(RegSetKeyValueW)>()(parent, path, name, type, data, size);
}
