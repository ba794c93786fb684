// The matching selector: opens the two profiles, builds the transform of the
// chosen method, releases it again, and locates profiles in the system's
// colour directory.
#include <cstdlib>
#include <cstring>

#include "api/exports.h"
#include "api/status.h"
#include "platform/platform.h"
#include "profile/allocator.h"
#include "profile/profile_file.h"
#include "transform/build_common.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {
namespace {

// The selector numbers the intents perceptual, relative, absolute,
// saturation; the builders number the last two the other way round.
constexpr uint16_t kBuilderIntent[4] = {0, 1, 3, 2};

bool Open(const char* path, ProfileFile* profile) {
    std::memset(profile, 0, sizeof(*profile));
    return path != nullptr && OpenProfile(path, profile) == 1;
}

// Frees the whole record, tables included, by the method it was built for.
void ReleaseTransform(uint16_t method, void* transform) {
    if (transform == nullptr) return;
    if (method == 0) {
        DestroyMethod0Transform(static_cast<Method0Transform*>(transform));
    } else if (method == 1) {
        DestroyMethod1Transform(static_cast<Method1Transform*>(transform));
    } else {
        // Not reachable through the library: a transform is only created for
        // methods 0 and 1.
        Deallocate(transform);
    }
}

// A record's build status as a code. The builders leave only "ok" or "no
// memory" in a record they completed; anything else means the build is unusable.
uint32_t StatusCode(uint16_t status) {
    switch (status) {
        case kBuildStatusOk: return kOk;
        case kBuildStatusNoMemory: return kNoMemory;
        default: return kBuildFailed;
    }
}

// Steps after both opens; the caller closes the profiles whatever happens.
uint32_t Build(MatchingSelector* selector, bool sourceOpen, ProfileFile* source, bool destinationOpen,
               ProfileFile* destination) {
    if (!sourceOpen) return kCannotOpen;
    if (source->header.magic != kSigAcsp) return kNotIcc;
    if (!destinationOpen) return kCannotOpen;
    if (destination->header.magic != kSigAcsp) return kNotIcc;

    if (selector->intent > 3) return kBadIntent;
    const uint16_t intent = kBuilderIntent[selector->intent];
    if (selector->method != 0 && selector->method != 1) return kBadMethod;

    // Re-initialisation: the old record goes completely, tables and all.
    ReleaseTransform(selector->method, selector->transform);
    selector->transform = nullptr;

    if (selector->method == 0) {
        // Stored at once so that a half-built record stays reachable for
        // TermMatchingSelector.
        Method0Transform* t = CreateMethod0Transform();
        selector->transform = t;
        if (t == nullptr) return kNoMemory;
        if (!BuildMethod0Transform(t, intent, source, destination, selector->destinationMode)) return kBuildFailed;
        return StatusCode(t->status);
    }
    Method1Transform* t = CreateMethod1Transform();
    selector->transform = t;
    if (t == nullptr) return kNoMemory;
    if (!BuildMethod1Transform(t, intent, source, destination, selector->destinationMode)) return kBuildFailed;
    return StatusCode(t->status);
}

}  // namespace
}  // namespace tintra3

using namespace tintra3;

uint32_t TINTRA3_CALL Initialize(MatchingSelector* selector, const char* sourceProfile,
                                 const char* destinationProfile) {
    // Both opens come first: the order of the codes below depends on both
    // outcomes (a bad source wins over a missing destination).
    ProfileFile source;
    ProfileFile destination;
    const bool sourceOpen = Open(sourceProfile, &source);
    const bool destinationOpen = Open(destinationProfile, &destination);

    const uint32_t code = Build(selector, sourceOpen, &source, destinationOpen, &destination);

    if (sourceOpen) CloseProfile(&source);
    if (destinationOpen) CloseProfile(&destination);
    return code;
}

void TINTRA3_CALL TermMatchingSelector(MatchingSelector* selector) {
    if (selector == nullptr) return;
    ReleaseTransform(selector->method, selector->transform);
    // Cleared so that a second call (or one after a failed set-up) is harmless.
    selector->transform = nullptr;
}

uint32_t TINTRA3_CALL LocateProfile(const char* fileName, char* out) {
    // "<system directory>\COLOR\<name>" on Windows, "<dir>/color/<name>"
    // elsewhere; the name is appended as given, directories and all. The
    // working buffer and the result are bounded at 255 bytes and a NUL.
    char work[256];
    platform::ColourDirectory(work, sizeof work);
    if (fileName != nullptr) {
        size_t used = strnlen(work, sizeof work - 1);
        size_t len = strnlen(fileName, sizeof work - 1 - used);
        std::memcpy(work + used, fileName, len);
        work[used + len] = '\0';
    }
    if (out != nullptr) std::memcpy(out, work, strnlen(work, sizeof work - 1) + 1);
    return 1;
}
