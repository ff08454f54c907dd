#include "camera/MediaFoundationPlatform.h"

#include "camera/MediaFoundation.h"

HRESULT MediaFoundationPlatform::EnsureStarted() {
    if (isStarted_) {
        return S_OK;
    }
    const HRESULT result = MFStartup(MF_VERSION, MFSTARTUP_FULL);
    isStarted_ = SUCCEEDED(result);
    return result;
}
