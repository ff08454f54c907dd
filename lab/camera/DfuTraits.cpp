#include "lab/camera/DfuTraits.h"

#include "lab/camera/CameraSettings.h"

namespace lab {
namespace {

constexpr DfuTraits kKv400{.isRuntimeDevice = false,
                           .detach = DfuTraits::Detach::Accepted,
                           .upload = DfuTraits::Upload::StatusBlock,
                           .answersWhileWriting = true,
                           .answersWhileManifesting = true,
                           .manifestation = DfuTraits::Manifestation::ResetsItself};

// What boot loaders have in common that were not written for the KV400.
constexpr DfuTraits kForeign{.isRuntimeDevice = false,
                             .detach = DfuTraits::Detach::Accepted,
                             .upload = DfuTraits::Upload::StatusBlock,
                             .isBusyFirst = true,
                             .answersWhileWriting = true,
                             .answersWhileManifesting = true,
                             .manifestation = DfuTraits::Manifestation::Tolerant,
                             .stallsInPlace = true,
                             .takesEmptyImage = true};

}  // namespace

DfuTraits TraitsOf(Personality personality) {
    DfuTraits traits = personality <= Personality::Synchronous ? DfuTraits{} : kForeign;
    switch (personality) {
        case Personality::Kv400:
            return kKv400;
        case Personality::Strict:
            break;
        case Personality::Lenient:
            traits.answersWhileWriting = true;
            traits.stallsInPlace = true;
            traits.hidesWriteTime = true;
            break;
        case Personality::Synchronous:
            traits.manifestation = DfuTraits::Manifestation::Tolerant;
            traits.writesAtOnce = true;
            break;
        case Personality::BusyFirst:
            traits = kKv400;
            traits.isBusyFirst = true;
            break;
        case Personality::ResetsAtDetach:
            traits.detach = DfuTraits::Detach::Restarts;
            break;
        case Personality::StaysInDfuMode:
            traits.detach = DfuTraits::Detach::RestartsInDfuMode;
            break;
        case Personality::ServesUploads:
            traits.upload = DfuTraits::Upload::Flash;
            break;
        case Personality::DropsBlocks:
            traits.upload = DfuTraits::Upload::Flash;
            traits.dropsBlocksInUpload = true;
            traits.setInterface = DfuTraits::SetInterface::ResetsState;
            break;
        case Personality::Tolerant:
            break;
        case Personality::AddressedFlash:
            traits.isDeafWhileWriting = true;
            traits.manifestation = DfuTraits::Manifestation::ResetsItself;
            traits.addressesBlocks = true;
            traits.hidesStatus = true;
            break;
        case Personality::Forgetful:
            traits.manifestation = DfuTraits::Manifestation::WaitsForReset;
            traits.setInterface = DfuTraits::SetInterface::ResetsState;
            break;
        case Personality::BehindHid:
            traits = kKv400;
            traits.hasHidInFront = true;
            break;
    }
    return traits;
}

DfuTraits TraitsOf(const CameraSettings& settings) {
    return settings.traits.value_or(TraitsOf(settings.personality));
}

}  // namespace lab
