#include "lab/camera/DfuTraits.h"

namespace lab {

DfuTraits TraitsOf(Personality personality) {
    switch (personality) {
        case Personality::Kv400:
            return {.isRuntimeDevice = false,
                    .acceptsDetach = true,
                    .uploadsStatusBlock = true,
                    .answersWhileWriting = true,
                    .answersWhileManifesting = true,
                    .resetsItself = true};
        case Personality::Strict:
            return {};
        case Personality::Lenient:
            return {.answersWhileWriting = true, .stallsInPlace = true, .hidesWriteTime = true};
        case Personality::Synchronous:
            return {.writesAtOnce = true, .isManifestationTolerant = true};
    }
    return {};
}

}  // namespace lab
