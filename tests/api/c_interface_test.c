/* The exported header used from C99: the records have the widths callers
 * rely on, and one set of pixels converted through each of the first three
 * layers (top level, toolbox, matcher object) comes out the same, since all
 * three end in the same 16-bit transform with 8-bit interleaved samples. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "exports.h"

#define PIXELS 130 /* two whole top-level chunks of 64 and a rest of 2 */
#define CHECK(c) \
    do { if (!(c)) { fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #c); ++failures; } } while (0)

static int failures = 0;
static const ImageParams kImage = {PIXELS, 1, PIXELS * 3, PIXELS * 3, 8, 8, TINTRA_INTERLEAVED, 0};

/* Method choice 0 is method 1, intent 0 stays 0; both profiles are
 * monitor-class files in the one registered folder. */
static uint32_t ThroughTopLevel(const ProfileNames* names, const uint8_t* in, uint8_t* out) {
    DirectoryTable table;
    const char* folder = strrchr(TINTRA3_ICC_DIR, '/');
    SetDirectoryName("", folder ? folder + 1 : TINTRA3_ICC_DIR, "", &table);
    return tintra(in, PIXELS, out, names->sourceProfile, names->destinationProfile, 0, 0, &table);
}

static uint32_t ThroughToolbox(const ProfileNames* names, const uint8_t* in, uint8_t* out) {
    CColorMatcher* handle = NULL;
    PixelRun source = {(void*)in, 1}, destination = {out, 1};
    uint32_t status = QemToolboxInit(&kImage, names->sourceProfile, 1, 0, &handle);
    if (status == 0) status = QemToolboxProc(&source, &destination, handle);
    if (status == 0) CHECK(GetProgress(handle) == 100);
    QemToolboxPostProc(handle);
    return status;
}

static uint32_t ThroughMatcher(const ProfileNames* names, const uint8_t* in, uint8_t* out) {
    CColorMatcher matcher;
    MatchingParams params = {0, 1, NULL, 0};
    PixelRun source = {(void*)in, 1}, destination = {out, 1};
    uint32_t status;
    memset(&matcher, 0, sizeof matcher);
    InitCColorMatcher(&matcher, &params, &kImage, names);
    status = CMGetError(&matcher);
    if (status == 0) status = ColorMatchingProc2(&matcher, &source, &destination);
    TermCColorMatcher(&matcher);
    return status;
}

int main(void) {
    ProfileNames names, missing;
    uint8_t in[PIXELS * 3], top[PIXELS * 3], toolbox[PIXELS * 3], matcher[PIXELS * 3];
    int i;
    CHECK(sizeof(ImageParams) == 24 && offsetof(ImageParams, bitsIn) == 16);
    CHECK(sizeof(ProfileNames) == 131 * 4 && offsetof(ProfileNames, destinationProfile) == 256);
    CHECK(offsetof(MatchingSelector, transform) == offsetof(MatchingParams, transform));
    CHECK(offsetof(CColorMatcher, lastError) == 0 && offsetof(CurveSpec, kind) == 4);
    CHECK(offsetof(DirectoryTable, monitor) == 255 && offsetof(DirectoryTable, scanner) == 510);
    memset(&names, 0, sizeof names);
    strcpy(names.sourceProfile, TINTRA3_ICC_DIR "/sRGB.icc");
    strcpy(names.destinationProfile, TINTRA3_ICC_DIR "/compatibleWithAdobeRGB1998.icc");
    missing = names;
    strcpy(missing.sourceProfile, TINTRA3_ICC_DIR "/no-such-profile.icc");
    for (i = 0; i < PIXELS * 3; ++i) in[i] = (uint8_t)(i * 37 + i / 3), top[i] = 0, toolbox[i] = 1, matcher[i] = 2;
    CHECK(ThroughTopLevel(&names, in, top) == 0);
    CHECK(ThroughToolbox(&names, in, toolbox) == 0);
    CHECK(ThroughMatcher(&names, in, matcher) == 0);
    CHECK(memcmp(top, toolbox, sizeof top) == 0 && memcmp(toolbox, matcher, sizeof top) == 0);
    CHECK(memcmp(in, matcher, sizeof in) != 0); /* not the identity: the two gamuts differ */
    CHECK(QemToolboxProc(NULL, NULL, NULL) == 5001); /* refusals reach a C caller as plain codes */
    CHECK(ThroughMatcher(&missing, in, matcher) == 3000);
    if (failures != 0) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures != 0;
}
