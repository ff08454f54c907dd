#pragma once

#include "tests/support/CallJournal.h"
#include "tests/support/FakeCamera.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"
#include "tests/support/TaskMemory.h"

#include <windows.h>
#include <mfobjects.h>

#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace test_support {

// Media Foundation's device sources: the cameras that a test puts there. While it lives, the program's
// MFStartup, MFCreateAttributes, MFEnumDeviceSources, MFCreateDeviceSourceActivate and
// CoTaskMemFree go to it. Every attribute store is a real one, seen through a fake that records and can fail.
//
// As in Windows, cameras are listed and found only once MFStartup has succeeded.
//
// Whatever the program made of a camera must be gone before this is. May be used from any thread; one at a
// time.
class FakeMediaFoundation : public OnlyOne<FakeMediaFoundation> {
  public:
    // Whether somebody has started it already, or the code under test has to.
    enum class Platform { Started, NotStarted };

    explicit FakeMediaFoundation(Platform platform = Platform::Started);

    // A camera of the family: its topology has a node of another type and, as node 1, the extension unit.
    FakeCamera& AddCamera(std::wstring symbolicLink, std::wstring friendlyName = L"KV400 camera");
    // A camera without an extension unit.
    FakeCamera& AddPlainCamera(std::wstring symbolicLink, std::wstring friendlyName = L"Some camera");
    // A camera without any node, in no list.
    FakeCamera& AddBareCamera(std::wstring symbolicLink, std::wstring friendlyName);
    // No camera is listed or found any more; those that the program holds go on living.
    void UnplugAll();

    // The numbered call of a function, counted from 1, gives this result; the others succeed.
    void FailStartup(int call, HRESULT result) { startupResults_[call] = result; }
    void FailCreateAttributes(int call, HRESULT result) { createAttributesResults_[call] = result; }
    // A successful result chosen here comes with no sources.
    void SetEnumerationResult(int call, HRESULT result) { enumerationResults_[call] = result; }
    void SetSetGuidResult(HRESULT result) { setGuidResult_ = result; }
    void SetSetStringResult(HRESULT result) { setStringResult_ = result; }

    // What happened, one line a call with its arguments, from all cameras; for example
    //   MFStartup(0x20070, 0)
    //   MFCreateAttributes(2)
    //   SetGUID({C60AC5FE-252A-478F-A0EF-BC8FA5F7CAD3}, {8AC3587A-4AE7-42D8-99E0-0A6013EEF90F})
    //   MFCreateDeviceSourceActivate(2 attributes)
    //   own activation ActivateObject({279A808D-AEC7-40C8-9C6B-A6B492C78A66})
    //   source Shutdown
    //   own activation released
    [[nodiscard]] CallJournal& Journal() { return journal_; }

    // References handed out and not given back, attribute stores among them; blocks not freed.
    [[nodiscard]] long References() const;
    [[nodiscard]] long AttributeStores() const;
    [[nodiscard]] std::size_t OutstandingBlocks() const { return memory_.Outstanding(); }

  private:
    class Attributes;

    static HRESULT WINAPI OnStartup(ULONG version, DWORD flags);
    static HRESULT WINAPI OnCreateAttributes(IMFAttributes** attributes, UINT32 room);
    static HRESULT WINAPI OnEnumDeviceSources(IMFAttributes* attributes, IMFActivate*** sources,
                                              UINT32* count);
    static HRESULT WINAPI OnCreateDeviceSourceActivate(IMFAttributes* attributes, IMFActivate** activation);

    [[nodiscard]] HRESULT List(bool sensorCamerasOnly, IMFActivate**& sources, UINT32& count);
    [[nodiscard]] FakeCamera* Find(const std::wstring& symbolicLink);

    mutable std::mutex lock_;
    CallJournal journal_;
    TaskMemory memory_;
    std::list<FakeCamera> cameras_;
    std::list<FakeCamera*> plugged_;
    bool isStarted_;
    int startupCalls_ = 0;
    long attributeStores_ = 0;
    int createAttributesCalls_ = 0;
    int enumerationCalls_ = 0;
    std::map<int, HRESULT> startupResults_;
    std::map<int, HRESULT> createAttributesResults_;
    std::map<int, HRESULT> enumerationResults_;
    HRESULT setGuidResult_ = S_OK;
    HRESULT setStringResult_ = S_OK;
    ImportRedirect startup_;
    ImportRedirect createAttributes_;
    ImportRedirect enumDeviceSources_;
    ImportRedirect createDeviceSourceActivate_;
};

}  // namespace test_support
