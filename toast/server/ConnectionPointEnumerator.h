#pragma once

#include <ocidl.h>
#include <wrl/client.h>

#include <atomic>

namespace toast {

// Enumerates the one connection point of a container and keeps it alive. Free-threaded; owned by its
// references.
class ConnectionPointEnumerator final : public IEnumConnectionPoints {
  public:
    // `position` is 0 before the connection point and 1 behind it.
    explicit ConnectionPointEnumerator(Microsoft::WRL::ComPtr<IConnectionPoint> point, ULONG position = 0);

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Next(ULONG count, IConnectionPoint** points, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumConnectionPoints** enumerator) override;

  private:
    ~ConnectionPointEnumerator() = default;

    // Moves on by up to `count` and returns by how many.
    ULONG Advance(ULONG count);

    std::atomic<ULONG> references_ = 0;
    const Microsoft::WRL::ComPtr<IConnectionPoint> point_;
    std::atomic<ULONG> position_;
};

}  // namespace toast
