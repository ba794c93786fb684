/* The exported header used from C99: the records have the widths callers
 * rely on, and one set of pixels converted through each of the first three
 * layers (top level, toolbox, matcher object) comes out the same, since all
 * three end in the same 16-bit transform with 8-bit interleaved samples.
 * Built with -std=c99 -Wall -Werror; exits non-zero on the first failure. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "exports.h"

#ifndef TINTRA3_ICC_DIR
#define TINTRA3_ICC_DIR "/usr/share/color/icc"
#endif

#define PIXELS 130 /* two whole top-level chunks of 64 and a rest of 2 */

static int failures = 0;

#define CHECK(condition)                                                           \
    do {                                                                           \
        if (!(condition)) {                                                        \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            ++failures;                                                            \
        }                                                                          \
    } while (0)

static void CheckLayouts(void) {
    CHECK(sizeof(ImageParams) == 24);
    CHECK(offsetof(ImageParams, bitsIn) == 16);
    CHECK(sizeof(ProfileNames) == 131 * 4);
    CHECK(offsetof(ProfileNames, destinationProfile) == 256);
    CHECK(offsetof(MatchingSelector, transform) == offsetof(MatchingParams, transform));
    CHECK(offsetof(CColorMatcher, lastError) == 0);
    CHECK(offsetof(DirectoryTable, monitor) == 255);
    CHECK(offsetof(DirectoryTable, scanner) == 510);
    CHECK(offsetof(CurveSpec, kind) == 4);
}

static void FillPixels(uint8_t* pixels) {
    int i;
    for (i = 0; i < PIXELS * 3; ++i) pixels[i] = (uint8_t)(i * 37 + i / 3);
}

/* Top level: method choice 0 is method 1, intent 0 stays 0. */
static uint32_t ThroughTopLevel(const char* source, const char* destination, const uint8_t* in, uint8_t* out) {
    DirectoryTable table;
    const char* folder = strrchr(TINTRA3_ICC_DIR, '/');
    folder = folder ? folder + 1 : TINTRA3_ICC_DIR;
    memset(&table, 0, sizeof table);
    /* Both profiles are monitor-class files in the same folder. */
    SetDirectoryName("", folder, "", &table);
    return tintra(in, PIXELS, out, source, destination, 0, 0, &table);
}

static void FillNames(char* names, const char* source, const char* destination) {
    memset(names, 0, 512);
    strncpy(names, source, 255);
    strncpy(names + 256, destination, 255);
}

static void FillImage(ImageParams* image) {
    memset(image, 0, sizeof *image);
    image->width = PIXELS;
    image->lines = 1;
    image->bufferSize = PIXELS * 3;
    image->destinationBufferSize = PIXELS * 3;
    image->bitsIn = 8;
    image->bitsOut = 8;
    image->layout = TINTRA_INTERLEAVED;
}

static uint32_t ThroughToolbox(const char* source, const char* destination, const uint8_t* in, uint8_t* out) {
    char names[512];
    ImageParams image;
    CColorMatcher* handle = NULL;
    PixelRun sourceRun;
    PixelRun destinationRun;
    uint32_t status;
    FillNames(names, source, destination);
    FillImage(&image);
    status = QemToolboxInit(&image, names, 1, 0, &handle);
    if (status == 0) {
        sourceRun.data = (void*)in;
        sourceRun.lines = 1;
        destinationRun.data = out;
        destinationRun.lines = 1;
        status = QemToolboxProc(&sourceRun, &destinationRun, handle);
        CHECK(GetProgress(handle) == 100);
    }
    QemToolboxPostProc(handle);
    return status;
}

static uint32_t ThroughMatcher(const char* source, const char* destination, const uint8_t* in, uint8_t* out) {
    CColorMatcher matcher;
    MatchingParams params;
    ImageParams image;
    ProfileNames names;
    PixelRun sourceRun;
    PixelRun destinationRun;
    uint32_t status;
    memset(&matcher, 0, sizeof matcher);
    memset(&names, 0, sizeof names);
    strncpy(names.sourceProfile, source, 255);
    strncpy(names.destinationProfile, destination, 255);
    FillImage(&image);
    params.intent = 0;
    params.method = 1;
    params.transform = NULL;
    params.destinationMode = 0;
    InitCColorMatcher(&matcher, &params, &image, &names);
    status = CMGetError(&matcher);
    if (status == 0) {
        sourceRun.data = (void*)in;
        sourceRun.lines = 1;
        destinationRun.data = out;
        destinationRun.lines = 1;
        status = ColorMatchingProc2(&matcher, &sourceRun, &destinationRun);
    }
    TermCColorMatcher(&matcher);
    return status;
}

int main(void) {
    const char* source = TINTRA3_ICC_DIR "/sRGB.icc";
    const char* destination = TINTRA3_ICC_DIR "/compatibleWithAdobeRGB1998.icc";
    uint8_t in[PIXELS * 3];
    uint8_t top[PIXELS * 3];
    uint8_t toolbox[PIXELS * 3];
    uint8_t matcher[PIXELS * 3];

    CheckLayouts();
    FillPixels(in);
    memset(top, 0, sizeof top);
    memset(toolbox, 1, sizeof toolbox);
    memset(matcher, 2, sizeof matcher);

    CHECK(ThroughTopLevel(source, destination, in, top) == 0);
    CHECK(ThroughToolbox(source, destination, in, toolbox) == 0);
    CHECK(ThroughMatcher(source, destination, in, matcher) == 0);
    CHECK(memcmp(top, toolbox, sizeof top) == 0);
    CHECK(memcmp(toolbox, matcher, sizeof top) == 0);
    /* The conversion is not the identity: the two gamuts differ. */
    CHECK(memcmp(in, matcher, sizeof in) != 0);

    /* Argument refusals reach a C caller as plain codes. */
    CHECK(QemToolboxProc(NULL, NULL, NULL) == 5001);
    CHECK(ThroughMatcher(TINTRA3_ICC_DIR "/no-such-profile.icc", destination, in, matcher) == 3000);

    if (failures != 0) {
        fprintf(stderr, "%d check(s) failed\n", failures);
        return 1;
    }
    printf("C interface: all checks passed\n");
    return 0;
}
