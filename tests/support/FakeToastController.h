#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A toast controller in the test's own process. Its interface is a table of functions by slot number, written
// down here independently of the product's declaration: a method in a wrong slot reaches a wrong function. It
// is also the connection point container and the connection point for the one sink that connects.
//
// Its lifetime is the test's, whatever the references; they are only counted.
class FakeToastController {
  public:
    struct Call {
        std::string method;
        std::vector<std::wstring> texts;  // with the lengths that the BSTRs have
    };

    FakeToastController();
    ~FakeToastController();

    FakeToastController(const FakeToastController&) = delete;
    FakeToastController& operator=(const FakeToastController&) = delete;

    // Results of the methods by name, S_OK for the rest.
    std::map<std::string, HRESULT> results;
    // Runs inside every method, after it was recorded.
    std::function<void(const Call&)> whileCalled;

    // Result of the queries for the interface and for the container; a failed one gives null.
    HRESULT interfaceResult = S_OK;
    HRESULT containerResult = S_OK;
    // A server that says S_OK and gives nothing.
    bool givesNoContainer = false;
    HRESULT findResult = S_OK;
    bool givesNoConnectionPoint = false;
    HRESULT adviseResult = S_OK;
    DWORD cookie = 4711;
    // Runs inside Unadvise, after it was recorded.
    std::function<void()> whileUnadvised;

    // The server as an activation gives it; no reference is added.
    [[nodiscard]] IUnknown* Unknown();

    [[nodiscard]] std::vector<Call> Calls() const { return calls_; }
    [[nodiscard]] std::vector<Call> CallsOf(const std::string& method) const;
    // The interfaces asked for, and the event interfaces looked for.
    [[nodiscard]] std::vector<IID> Queries() const { return queries_; }
    [[nodiscard]] std::vector<IID> EventsLookedFor() const { return eventsLookedFor_; }
    // What happened to the references and the connection, in words: "server released", "advised",
    // "unadvised 4711", "connection point released".
    [[nodiscard]] std::vector<std::string> Happenings() const { return happenings_; }

    // References held by others.
    [[nodiscard]] ULONG References() const { return references_; }
    [[nodiscard]] ULONG ContainerReferences() const;
    [[nodiscard]] ULONG ConnectionPointReferences() const;

    // The sink that is connected, or null; no reference is added.
    [[nodiscard]] IUnknown* Sink() const { return sink_; }
    // Fires "UserRespond" at the sink through its event interface, as the server does. The HRESULT of the
    // call; `result` is what the sink answered.
    HRESULT FireUserRespond(LONG answer, VARIANT* result = nullptr);

  private:
    class Container;
    class ConnectionPoint;

    // The memory of a COM object: a pointer to the table of its functions.
    struct Object {
        void* const* slots;
        FakeToastController* owner;
    };

    static HRESULT STDMETHODCALLTYPE QueryInterface(Object* object, REFIID interfaceId, void** queried);
    static ULONG STDMETHODCALLTYPE AddRef(Object* object);
    static ULONG STDMETHODCALLTYPE Release(Object* object);
    static HRESULT STDMETHODCALLTYPE RefuseDispatch();
    static HRESULT STDMETHODCALLTYPE ShowUpdatePrompt(Object* object, BSTR cameraVersion, BSTR imageVersion);
    static HRESULT STDMETHODCALLTYPE NotifyProgress(Object* object, BSTR text);
    static HRESULT STDMETHODCALLTYPE NotifyComplete(Object* object);

    HRESULT Record(Call call);

    Object object_;
    ULONG references_ = 0;
    std::vector<Call> calls_;
    std::vector<IID> queries_;
    std::vector<IID> eventsLookedFor_;
    std::vector<std::string> happenings_;
    IUnknown* sink_ = nullptr;
    std::unique_ptr<Container> container_;
    std::unique_ptr<ConnectionPoint> connectionPoint_;
};

}  // namespace test_support
