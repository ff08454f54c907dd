#include "prompt/CNotifyClient.h"

#include <utility>

CNotifyClient::CNotifyClient(std::shared_ptr<IToastCntrPtr> server) : server_(std::move(server)) {}

bool CNotifyClient::ShowUpdatePrompt(const std::wstring& cameraVersion,
                                     const std::wstring& imageVersion) const {
    _bstr_t cameraText(cameraVersion.c_str());
    _bstr_t imageText(imageVersion.c_str());
    return SUCCEEDED((*server_)->ShowUpdatePrompt(cameraText.GetBSTR(), imageText.GetBSTR()));
}

bool CNotifyClient::NotifyStart(std::uint32_t blocks) const {
    return SendProgress(_bstr_t(L"start:") + _bstr_t(std::to_wstring(blocks).c_str()));
}

bool CNotifyClient::NotifyProgress(const std::wstring& text) const {
    return SendProgress(_bstr_t(text.c_str()));
}

bool CNotifyClient::SendProgress(const _bstr_t& text) const {
    _bstr_t sent(text);
    return SUCCEEDED((*server_)->NotifyProgress(sent.GetBSTR()));
}
