// A toast controller that is not what the service expects, as a local COM server of its own:
//   odd_toast_controller without-interface | without-events | dies
// without-interface has no IToastCntr; without-events has no connection points; dies answers every call until
// the event "VeyraOddToastControllerDies" is set, and ends like a crash then, with exit code 3. Each leaves
// when its object is released, or when nobody comes for 40 s.

#include "prompt/IToastCntr.h"

#include <atomic>
#include <cstring>
#include <initializer_list>

#include "lab/toast/KeptStub.h"

namespace {

constexpr DWORD kFirstClientPatienceMs = 40'000;
constexpr UINT kCrashExitCode = 3;

enum class Oddity { WithoutInterface, WithoutEvents, Dies };

struct Server {
    Oddity oddity;
    HANDLE isUnused = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE isToDie = CreateEventW(nullptr, TRUE, FALSE, L"VeyraOddToastControllerDies");
};

class OddController final : public IToastCntr {
  public:
    explicit OddController(Server& server) : server_(server) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        const bool isKnown =
            interfaceId == IID_IUnknown || (server_.oddity != Oddity::WithoutInterface &&
                                            (interfaceId == IID_IDispatch || interfaceId == kIidToastCntr));
        *object = isKnown ? this : nullptr;
        if (!isKnown) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            SetEvent(server_.isUnused);
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE ShowUpdatePrompt(BSTR, BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NotifyProgress(BSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NotifyComplete() override { return S_OK; }

  private:
    Server& server_;
    std::atomic<ULONG> references_{0};
};

class OddFactory final : public IClassFactory {
  public:
    explicit OddFactory(Server& server) : controller_(server) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override {
        const bool isKnown = interfaceId == IID_IUnknown || interfaceId == IID_IClassFactory;
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID interfaceId, void** object) override {
        return controller_.QueryInterface(interfaceId, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

  private:
    OddController controller_;
};

// One of each interface that a client gets. The controller is one that no client sees; what it lacks for its
// oddity cannot be kept.
void KeepStubs(OddFactory& factory, OddController& controller) {
    static_cast<void>(lab::toast::KeepStub(IID_IClassFactory, &factory));
    for (const IID& interfaceId : {IID_IUnknown, IID_IDispatch, kIidToastCntr}) {
        static_cast<void>(lab::toast::KeepStub(interfaceId, &controller));
    }
}

int Serve(Oddity oddity) {
    Server server{oddity};
    OddFactory factory(server);
    Server unseenServer{oddity};
    OddController unseen(unseenServer);
    DWORD registration = 0;
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        return 1;
    }
    KeepStubs(factory, unseen);
    if (FAILED(CoRegisterClassObject(kClsidToastController, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                     &registration))) {
        return 1;
    }
    const HANDLE ends[] = {server.isUnused, server.isToDie};
    const DWORD end = WaitForMultipleObjects(2, ends, FALSE, kFirstClientPatienceMs);
    // Windows forgets the class of a process that died; a machine that does not would go on sending clients
    // to it.
    CoRevokeClassObject(registration);
    if (end == WAIT_OBJECT_0 + 1) {
        TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    }
    // The apartment ends with the process. The client's last call may still be on its way out, and a machine
    // that loses the word of its end would keep CoUninitialize waiting for ever.
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const oddity = argc > 1 ? argv[1] : "";
    if (std::strcmp(oddity, "without-interface") == 0) {
        return Serve(Oddity::WithoutInterface);
    }
    if (std::strcmp(oddity, "without-events") == 0) {
        return Serve(Oddity::WithoutEvents);
    }
    if (std::strcmp(oddity, "dies") == 0) {
        return Serve(Oddity::Dies);
    }
    return 2;
}
