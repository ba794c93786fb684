/* Converts a small RGB image through the toolbox layer and prints a few
 * pixels.
 *
 *   example_convert [source.icc [destination.icc]]
 *
 * Defaults: the sRGB profile to the Adobe RGB (1998) compatible profile of
 * the Debian icc-profiles-free package. Exits with 1 and a message naming
 * the status code when a step fails. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "exports.h"

#define WIDTH 8
#define LINES 4
#define CHANNELS 3
/* The destination may have up to four channels (CMYK). */
#define MAX_OUT_CHANNELS 4

static const char* DescribeStatus(uint32_t status) {
    switch (status) {
        case 0: return "success";
        case 1000: return "out of memory";
        case 1001: return "in-place conversion impossible";
        case 1002: return "block larger than the buffer";
        case 2000: case 2010: return "profile content not supported";
        case 2020: return "input bit depth not supported";
        case 2021: return "output bit depth not supported";
        case 2030: return "sample layout not supported";
        case 2040: return "unknown matching method";
        case 2050: return "unknown rendering intent";
        case 3000: return "profile cannot be opened or read";
        case 3001: return "not an ICC profile, or a required tag is missing";
        case 5000: return "transform could not be built";
        case 5001: return "invalid argument";
        default: return "unknown status";
    }
}

static int Fail(const char* step, uint32_t status) {
    fprintf(stderr, "convert: %s failed with status %u (%s)\n", step, (unsigned)status, DescribeStatus(status));
    return 1;
}

int main(int argc, char** argv) {
    const char* source = argc > 1 ? argv[1] : "/usr/share/color/icc/sRGB.icc";
    const char* destination = argc > 2 ? argv[2] : "/usr/share/color/icc/compatibleWithAdobeRGB1998.icc";
    /* Two 256-byte NUL-terminated paths back to back. */
    char names[512];
    ImageParams image;
    uint8_t input[WIDTH * LINES * CHANNELS];
    uint8_t output[WIDTH * LINES * MAX_OUT_CHANNELS];
    PixelRun sourceRun;
    PixelRun destinationRun;
    CColorMatcher* handle = NULL;
    uint32_t status;
    int i;

    if (strlen(source) >= 256 || strlen(destination) >= 256) {
        fprintf(stderr, "convert: profile paths must be shorter than 256 bytes\n");
        return 1;
    }
    memset(names, 0, sizeof names);
    strcpy(names, source);
    strcpy(names + 256, destination);

    /* A gradient from black to white along the image, a red ramp down it. */
    for (i = 0; i < WIDTH * LINES; ++i) {
        input[i * CHANNELS + 0] = (uint8_t)(i * 255 / (WIDTH * LINES - 1));
        input[i * CHANNELS + 1] = (uint8_t)(i * 255 / (WIDTH * LINES - 1));
        input[i * CHANNELS + 2] = (uint8_t)((i % WIDTH) * 255 / (WIDTH - 1));
    }

    memset(&image, 0, sizeof image);
    image.width = WIDTH;
    image.lines = LINES;
    image.bufferSize = sizeof input;
    image.destinationBufferSize = sizeof output;
    image.bitsIn = 8;
    image.bitsOut = 8;
    image.layout = TINTRA_INTERLEAVED;

    /* Method 1 (16-bit precision), intent 0 (perceptual). A failed set-up
     * still hands out a handle, which must be released. */
    status = QemToolboxInit(&image, names, 1, 0, &handle);
    if (status != 0) {
        QemToolboxPostProc(handle);
        return Fail("QemToolboxInit", status);
    }

    sourceRun.data = input;
    sourceRun.lines = LINES;
    destinationRun.data = output;
    destinationRun.lines = LINES;
    status = QemToolboxProc(&sourceRun, &destinationRun, handle);
    if (status != 0) {
        QemToolboxPostProc(handle);
        return Fail("QemToolboxProc", status);
    }
    QemToolboxPostProc(handle);

    /* The output holds as many samples per pixel as the destination has
     * channels (three for the RGB default); the first twelve are shown. */
    printf("%s -> %s\n", source, destination);
    printf("input samples: ");
    for (i = 0; i < 12; ++i) printf(" %3u", input[i]);
    printf("\noutput samples:");
    for (i = 0; i < 12; ++i) printf(" %3u", output[i]);
    printf("\n");
    return 0;
}
