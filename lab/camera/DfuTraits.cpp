#include "lab/camera/DfuTraits.h"

#include "lab/camera/CameraSettings.h"

namespace lab {

DfuTraits TraitsOf(Personality personality) {
    switch (personality) {
        case Personality::Kv400:
            return {.isRuntimeDevice = false,
                    .detach = DfuTraits::Detach::Accepted,
                    .upload = DfuTraits::Upload::StatusBlock,
                    .answersWhileWriting = true,
                    .answersWhileManifesting = true,
                    .manifestation = DfuTraits::Manifestation::ResetsItself};
        case Personality::Strict:
            return {};
        case Personality::Lenient:
            return {.answersWhileWriting = true, .stallsInPlace = true, .hidesWriteTime = true};
        case Personality::Synchronous:
            return {.manifestation = DfuTraits::Manifestation::Tolerant, .writesAtOnce = true};
    }
    return {};
}

DfuTraits TraitsOf(const CameraSettings& settings) {
    return settings.traits.value_or(TraitsOf(settings.personality));
}

}  // namespace lab
