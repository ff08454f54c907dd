#include "toast/server/ConnectionPointEnumerator.h"

#include <utility>

#include "toast/server/ComBoundary.h"

namespace toast {

ConnectionPointEnumerator::ConnectionPointEnumerator(Microsoft::WRL::ComPtr<IConnectionPoint> point,
                                                     ULONG position)
    : point_(std::move(point)), position_(position) {}

STDMETHODIMP ConnectionPointEnumerator::QueryInterface(REFIID interfaceId, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (interfaceId != __uuidof(IUnknown) && interfaceId != __uuidof(IEnumConnectionPoints)) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = static_cast<IEnumConnectionPoints*>(this);
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) ConnectionPointEnumerator::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) ConnectionPointEnumerator::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

STDMETHODIMP ConnectionPointEnumerator::Next(ULONG count, IConnectionPoint** points, ULONG* fetched) {
    if (points == nullptr || (fetched == nullptr && count != 1)) {
        return E_POINTER;
    }
    const ULONG taken = Advance(count);
    if (taken == 1) {
        *points = point_.Get();
        (*points)->AddRef();
    }
    if (fetched != nullptr) {
        *fetched = taken;
    }
    return taken == count ? S_OK : S_FALSE;
}

STDMETHODIMP ConnectionPointEnumerator::Skip(ULONG count) {
    return Advance(count) == count ? S_OK : S_FALSE;
}

STDMETHODIMP ConnectionPointEnumerator::Reset() {
    position_ = 0;
    return S_OK;
}

STDMETHODIMP ConnectionPointEnumerator::Clone(IEnumConnectionPoints** enumerator) {
    if (enumerator == nullptr) {
        return E_POINTER;
    }
    *enumerator = nullptr;
    return AtComBoundary([&] {
        *enumerator =
            Microsoft::WRL::ComPtr<IEnumConnectionPoints>(new ConnectionPointEnumerator(point_, position_))
                .Detach();
        return S_OK;
    });
}

ULONG ConnectionPointEnumerator::Advance(ULONG count) {
    return count == 0 ? 0 : 1 - position_.exchange(1);
}

}  // namespace toast
