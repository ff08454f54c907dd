#include "lab/toast/KeptStub.h"

#include <objbase.h>
#include <wrl/client.h>

namespace lab::toast {

HRESULT KeepStub(REFIID interfaceId, IUnknown* object) {
    Microsoft::WRL::ComPtr<IStream> stream;
    const HRESULT result = CreateStreamOnHGlobal(nullptr, TRUE, &stream);
    if (FAILED(result)) {
        return result;
    }
    // What is written there is what a client would unmarshal, any number of them: the stub waits for all.
    return CoMarshalInterface(stream.Get(), interfaceId, object, MSHCTX_LOCAL, nullptr,
                              MSHLFLAGS_TABLESTRONG);
}

}  // namespace lab::toast
