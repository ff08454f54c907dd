#pragma once

#include <windows.h>
#include <oaidl.h>
#include <wrl/client.h>

#include <functional>
#include <string>
#include <vector>

class AutomationDispatch;

// Base of the objects that COM automation calls: gives a derived class an IDispatch of its own, driven by a
// dispatch map and an interface map. The derived object is owned as any C++ object; the IDispatch is counted
// by COM, may outlive it, and then answers every call with CO_E_OBJNOTCONNECTED.
//
// Calls arrive on any thread of COM, several at a time.
class CCmdTarget {
  public:
    CCmdTarget(const CCmdTarget&) = delete;
    CCmdTarget& operator=(const CCmdTarget&) = delete;

    // The object's identity for COM.
    [[nodiscard]] Microsoft::WRL::ComPtr<IUnknown> GetControllingUnknown() const;

  protected:
    // A method that takes one VT_I4 and results in a VT_I4.
    struct DispatchMapEntry {
        std::wstring name;
        std::function<LONG(LONG)> method;
    };
    // Dispatch ids are the positions in the map, from 1.
    using DispatchMap = std::vector<DispatchMapEntry>;
    // The interfaces that are answered with the IDispatch, besides IUnknown and IDispatch themselves.
    using InterfaceMap = std::vector<IID>;

    // Enables automation. The methods are called until DisconnectAutomation.
    CCmdTarget(DispatchMap dispatchMap, InterfaceMap interfaceMap);
    virtual ~CCmdTarget();

    // Waits for the calls in progress; no method is called afterwards. To be called first in the derived
    // class's destructor, while what its methods use is still there.
    void DisconnectAutomation();

  private:
    friend class AutomationDispatch;

    Microsoft::WRL::ComPtr<AutomationDispatch> dispatch_;
};
