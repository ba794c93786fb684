/* A C program built the way an MSVC user builds one (clang-cl, lld-link,
 * linked against Tintra3.lib, no MinGW part): converts a few pixels from
 * sRGB to the Adobe RGB (1998) compatible profile through the toolbox layer,
 * has a null handle refused and asks where the system keeps profiles.
 * Without the Microsoft C runtime headers here, it declares the few
 * msvcrt.dll functions it needs itself. Exit status 0 and "msvc consumer:
 * ok" on success. */
#include <stdint.h>

#include "exports.h"

__declspec(dllimport) int __cdecl printf(const char* format, ...);
__declspec(dllimport) void* __cdecl memset(void* dest, int value, size_t count);
__declspec(dllimport) char* __cdecl strcpy(char* dest, const char* src);
__declspec(dllimport) int __cdecl memcmp(const void* a, const void* b, size_t count);
__declspec(dllimport) size_t __cdecl strlen(const char* text);
__declspec(dllimport) void __cdecl exit(int status);

#define PIXELS 16
#define SRGB "/usr/share/color/icc/sRGB.icc"
#define ADOBE "/usr/share/color/icc/compatibleWithAdobeRGB1998.icc"

static int Run(void) {
    static char names[512];
    static uint8_t in[PIXELS * 3], viaToolbox[PIXELS * 3];
    static char located[256];
    ImageParams image;
    PixelRun source, destination;
    CColorMatcher* handle = 0;
    uint32_t status;
    int i;
    for (i = 0; i < PIXELS * 3; ++i) in[i] = (uint8_t)(i * 37 + i / 3);
    memset(names, 0, sizeof names);
    strcpy(names, SRGB);
    strcpy(names + 256, ADOBE);
    memset(&image, 0, sizeof image);
    image.width = PIXELS;
    image.lines = 1;
    image.bufferSize = sizeof in;
    image.destinationBufferSize = sizeof viaToolbox;
    image.bitsIn = 8;
    image.bitsOut = 8;
    image.layout = TINTRA_INTERLEAVED;
    /* Method 1, intent 1 (relative colorimetric). */
    status = QemToolboxInit(&image, names, 1, 1, &handle);
    if (status == 0) {
        source.data = in;
        source.lines = 1;
        destination.data = viaToolbox;
        destination.lines = 1;
        status = QemToolboxProc(&source, &destination, handle);
    }
    QemToolboxPostProc(handle);
    if (status != 0) {
        printf("msvc consumer: toolbox status %u\n", (unsigned)status);
        return 1;
    }
    if (QemToolboxProc(0, 0, 0) != 5001) {
        printf("msvc consumer: a null handle was not refused\n");
        return 1;
    }
    if (LocateProfile("sRGB.icc", located) != 1 || memcmp(located + strlen(located) - 15, "\\COLOR\\sRGB.icc", 15) != 0) {
        printf("msvc consumer: LocateProfile gave '%s'\n", located);
        return 1;
    }
    if (memcmp(in, viaToolbox, sizeof in) == 0) {
        printf("msvc consumer: the conversion changed nothing\n");
        return 1;
    }
    printf("msvc consumer: ok (pixel 1: %u %u %u -> %u %u %u)\n", in[3], in[4], in[5], viaToolbox[3], viaToolbox[4],
           viaToolbox[5]);
    return 0;
}

/* No C runtime start-up code: msvcrt.dll initialises itself when loaded. */
void __cdecl mainCRTStartup(void) { exit(Run()); }
