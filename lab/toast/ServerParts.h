#pragma once

#include <oaidl.h>
#include <wrl/client.h>

#include <atomic>
#include <memory>
#include <utility>

#include "lab/toast/AdvisedSinks.h"
#include "lab/toast/LaboratoryReports.h"
#include "lab/toast/ScriptedFailures.h"
#include "lab/toast/ScriptedHangs.h"
#include "lab/toast/ServerLifetime.h"

namespace lab::toast {

// What every object of the server shares; each keeps it alive, so that a call that is still running while the
// process leaves finds it.
struct ServerParts {
    explicit ServerParts(Microsoft::WRL::ComPtr<ITypeInfo> interfaceDescription)
        : typeInfo(std::move(interfaceDescription)) {}

    const Microsoft::WRL::ComPtr<ITypeInfo> typeInfo;  // of IToastCntr
    const std::shared_ptr<ServerLifetime> lifetime = std::make_shared<ServerLifetime>();
    AdvisedSinks sinks;
    ScriptedFailures failures;
    ScriptedHangs hangs;
    LaboratoryReports reports;
    std::atomic<bool> refusesActivation = false;  // no client gets an object
    std::atomic<bool> crashing = false;  // the process is to end like a crash, once its class is revoked
};

}  // namespace lab::toast
