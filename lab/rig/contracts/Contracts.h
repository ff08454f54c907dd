#pragma once

#include "lab/rig/contracts/BreachReport.h"
#include "lab/rig/contracts/ComLibrary.h"
#include "lab/rig/contracts/MediaPlatform.h"

namespace lab::rig {

// What Windows asks of every program that uses its libraries, and Wine does not.
struct Contracts {
    explicit Contracts(const BreachReport& report) : media(report), com(report) {}

    MediaPlatform media;
    ComLibrary com;
};

}  // namespace lab::rig
