// A client that asks, sets the event that its first argument names, and stays until it is killed.
#include <windows.h>

#include <objbase.h>
#include <ocidl.h>
#include <oleauto.h>
#include <wrl/client.h>

#include "prompt/IToastCntr.h"
#include "tests/toast/server/TestSink.h"

int main(int, char** arguments) {
    using Microsoft::WRL::ComPtr;
    const ComPtr<TestSink> sink(new TestSink);
    ComPtr<IToastCntr> controller;
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> events;
    DWORD cookie = 0;
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) ||
        FAILED(CoCreateInstance(kClsidToastController, nullptr, CLSCTX_LOCAL_SERVER, kIidToastCntr,
                                reinterpret_cast<void**>(controller.GetAddressOf()))) ||
        FAILED(controller->QueryInterface(__uuidof(IConnectionPointContainer), &container)) ||
        FAILED(container->FindConnectionPoint(kIidToastCntrEvents, &events)) ||
        FAILED(events->Advise(sink.Get(), &cookie)) ||
        FAILED(controller->ShowUpdatePrompt(SysAllocString(L"1.0.0.0"), SysAllocString(L"2.0.0.0")))) {
        return 1;
    }
    SetEvent(OpenEventA(EVENT_MODIFY_STATE, FALSE, arguments[1]));
    Sleep(INFINITE);
    return 0;
}
