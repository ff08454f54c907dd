#pragma once

#include "camera/KernelStreaming.h"

#include <wrl/client.h>

#include <span>

// One control of an extension unit, written and read through a kernel-streaming property interface, of which
// it holds a reference. Used by one thread at a time.
class UvcCommand {
  public:
    // `propertySet` is the extension unit's GUID, `propertyId` the control's selector.
    UvcCommand(Microsoft::WRL::ComPtr<IKsControl> control, const GUID& propertySet, ULONG propertyId);
    virtual ~UvcCommand();

    UvcCommand(const UvcCommand&) = delete;
    UvcCommand& operator=(const UvcCommand&) = delete;

  protected:
    // Writes all of `data` to the control. The property call's HRESULT, unchanged.
    [[nodiscard]] HRESULT Set(std::span<BYTE> data);
    // Reads the control into `data`; `bytesReturned` is what the driver reports, not checked against the size
    // of `data`. The property call's HRESULT, unchanged.
    [[nodiscard]] HRESULT Get(std::span<BYTE> data, ULONG& bytesReturned);

  private:
    HRESULT Transfer(ULONG flags, std::span<BYTE> data, ULONG& bytesReturned);

    Microsoft::WRL::ComPtr<IKsControl> control_;
    GUID propertySet_;
    ULONG propertyId_;
};
