#pragma once

#include "prompt/IToastCntr.h"

#include <cstdint>
#include <memory>
#include <string>

// The calls to the toast controller: turns the service's texts into BSTRs. Every operation returns whether
// the server's HRESULT was not negative, and raises the COM error 0x8007000E when there is no memory for a
// BSTR. Used by the thread of the passes alone.
class CNotifyClient {
  public:
    // Shares the server's pointer, which must not be null.
    explicit CNotifyClient(std::shared_ptr<IToastCntrPtr> server);

    // Asks the user; the answer comes later, as an event.
    bool ShowUpdatePrompt(const std::wstring& cameraVersion, const std::wstring& imageVersion) const;
    // "start:" and the number of blocks that the download will have, in decimal.
    bool NotifyStart(std::uint32_t blocks) const;
    // A line of download status as it stands.
    bool NotifyProgress(const std::wstring& text) const;

  private:
    bool SendProgress(const _bstr_t& text) const;

    std::shared_ptr<IToastCntrPtr> server_;
};
