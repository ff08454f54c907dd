#include <windows.h>
#include <objbase.h>
#include <wrl/client.h>

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "VeyraCameraToast.h"
#include "lab/rig/com/LastCall.h"
#include "lab/rig/com/WatchedToastController.h"
#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {
namespace {

using Microsoft::WRL::ComPtr;

decltype(&::CoInitializeEx) initialize = nullptr;
decltype(&::CoUninitialize) uninitialize = nullptr;
decltype(&::CoIncrementMTAUsage) incrementUsage = nullptr;
decltype(&::CoDecrementMTAUsage) decrementUsage = nullptr;
decltype(&::CoCreateInstance) createInstance = nullptr;

HRESULT WINAPI InitializeCounted(void* reserved, DWORD concurrency) {
    const HRESULT result = initialize(reserved, concurrency);
    Rig* const rig = Rig::Get();
    if (rig != nullptr && SUCCEEDED(result)) {
        rig->TheContracts().com.Entered();
    }
    return result;
}

void WINAPI UninitializeCounted() {
    uninitialize();
    if (Rig* const rig = Rig::Get()) {
        rig->TheContracts().com.Left();
    }
}

HRESULT WINAPI IncrementUsageCounted(CO_MTA_USAGE_COOKIE* cookie) {
    const HRESULT result = incrementUsage(cookie);
    Rig* const rig = Rig::Get();
    if (rig != nullptr && SUCCEEDED(result)) {
        rig->TheContracts().com.Kept();
    }
    return result;
}

HRESULT WINAPI DecrementUsageCounted(CO_MTA_USAGE_COOKIE cookie) {
    const HRESULT result = decrementUsage(cookie);
    Rig* const rig = Rig::Get();
    if (rig != nullptr && SUCCEEDED(result)) {
        rig->TheContracts().com.GivenBack();
    }
    return result;
}

// In the words of the laboratory's own toast controller.
PromptReports ReportsTo(Rig& rig) {
    const auto handling = [&rig](bool isHandling) { rig.HoldClock(isHandling); };
    if (!rig.Settings().recordsPrompts) {
        return {.called = {}, .answered = {}, .handling = handling};
    }
    return {
        [&rig](std::string_view method, const std::vector<std::wstring>& texts) {
            nlohmann::json utf8Texts = nlohmann::json::array();
            for (const std::wstring& text : texts) {
                utf8Texts.push_back(Utf8(text));
            }
            rig.Record({{"event", "prompt-call"}, {"method", method}, {"texts", utf8Texts}});
        },
        [&rig](LONG answer) {
            rig.Record({{"event", "answer"}, {"code", answer}, {"sinks", 1}});
        },
        handling,
    };
}

// What CoCreateInstance does, step by step: that would release the class factory at once.
HRESULT CreateToastController(IUnknown* outer, DWORD context, ComPtr<IUnknown>& proxy) {
    ComPtr<IClassFactory> factory;
    const HRESULT result =
        CoGetClassObject(__uuidof(ToastCntr), context, nullptr, IID_PPV_ARGS(factory.GetAddressOf()));
    if (FAILED(result)) {
        return result;
    }
    const HRESULT created =
        factory->CreateInstance(outer, __uuidof(IUnknown), reinterpret_cast<void**>(proxy.GetAddressOf()));
    AwaitEndOfLastCall();
    return created;
}

HRESULT WINAPI CreateInstanceWatched(REFCLSID classId, IUnknown* outer, DWORD context, REFIID iid,
                                     void** object) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr || object == nullptr || classId != __uuidof(ToastCntr)) {
        return createInstance(classId, outer, context, iid, object);
    }
    *object = nullptr;
    ComPtr<IUnknown> proxy;
    const HRESULT result = CreateToastController(outer, context, proxy);
    if (FAILED(result)) {
        return result;
    }
    ComPtr<IUnknown> watched;
    *watched.GetAddressOf() = new WatchedToastController(rig->TheContracts().com, proxy, ReportsTo(*rig));
    return watched->QueryInterface(iid, object);
}

}  // namespace

void RedirectCom() {
    Redirect("CoInitializeEx", &InitializeCounted, initialize);
    Redirect("CoUninitialize", &UninitializeCounted, uninitialize);
    Redirect("CoIncrementMTAUsage", &IncrementUsageCounted, incrementUsage);
    Redirect("CoDecrementMTAUsage", &DecrementUsageCounted, decrementUsage);
    Redirect("CoCreateInstance", &CreateInstanceWatched, createInstance);
}

}  // namespace lab::rig
