#pragma once

#include "diagnostics/DfuLogger.h"
#include "discovery/IDfuDevice.h"

// A camera of the KV400 family in DFU mode.
class KV400DfuDevice final : public IDfuDevice, public DfuLogger {
  public:
    // `foldedLink` is the device's symbolic link in lower case; `logStream` may be null.
    KV400DfuDevice(std::wstring foldedLink, std::ostream* logStream);

    HRESULT Update(const wchar_t* path) override;
    [[nodiscard]] std::wstring GetSymbolicLink() const override;
    // "KV400 DFU " and the symbolic link.
    [[nodiscard]] std::wstring GetName() const override;
    [[nodiscard]] DWORD Reserved() const override;
    [[nodiscard]] DWORD WaitForConnection(DWORD timeoutMs) override;

  private:
    std::wstring symbolicLink_;
};
