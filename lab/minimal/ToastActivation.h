#pragma once

#include <wrl/client.h>

#include <unknwn.h>

namespace lab {

// COM as the product sets it up, and the toast controller activated; both for as long as the object lives.
class ToastActivation {
  public:
    // A controller that cannot be activated is none.
    ToastActivation();
    ~ToastActivation();

    ToastActivation(const ToastActivation&) = delete;
    ToastActivation& operator=(const ToastActivation&) = delete;

  private:
    bool hasCom_;
    Microsoft::WRL::ComPtr<IUnknown> controller_;
};

}  // namespace lab
