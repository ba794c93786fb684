/* One fixed conversion per matching method, written to method0.bin and
 * method1.bin in the current folder, for comparing platforms byte for byte.
 *
 *   ci-bytes SOURCE.icc DESTINATION.icc
 *
 * The input is the 8-bit RGB cube of 64 steps per channel (262,144 pixels);
 * method 0 gives 8-bit output, method 1 16-bit, intent 0. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "exports.h"

#define STEPS 64
#define WIDTH (STEPS * STEPS)
#define LINES STEPS
#define PIXELS (WIDTH * LINES)

static int Convert(const char* names, uint16_t method, const uint8_t* input, const char* file) {
    uint16_t bitsOut = method == 0 ? 8 : 16;
    size_t outBytes = (size_t)PIXELS * 4 * (bitsOut / 8);
    uint8_t* output = (uint8_t*)calloc(outBytes, 1);
    ImageParams image;
    PixelRun in, out;
    CColorMatcher* handle = NULL;
    uint32_t status;
    FILE* f;
    if (output == NULL) return 1;
    memset(&image, 0, sizeof image);
    image.width = WIDTH;
    image.lines = LINES;
    image.bufferSize = PIXELS * 3;
    image.destinationBufferSize = (uint32_t)outBytes;
    image.bitsIn = 8;
    image.bitsOut = bitsOut;
    image.layout = TINTRA_INTERLEAVED;
    status = QemToolboxInit(&image, names, method, 0, &handle);
    if (status == 0) {
        in.data = (void*)input;
        in.lines = LINES;
        out.data = output;
        out.lines = LINES;
        status = QemToolboxProc(&in, &out, handle);
    }
    QemToolboxPostProc(handle);
    if (status != 0) {
        fprintf(stderr, "method %u: status %u\n", (unsigned)method, (unsigned)status);
        free(output);
        return 1;
    }
    f = fopen(file, "wb");
    if (f == NULL || fwrite(output, 1, outBytes, f) != outBytes) {
        fprintf(stderr, "cannot write %s\n", file);
        free(output);
        return 1;
    }
    fclose(f);
    free(output);
    return 0;
}

int main(int argc, char** argv) {
    static char names[512];
    static uint8_t input[PIXELS * 3];
    int i;
    if (argc != 3 || strlen(argv[1]) >= 256 || strlen(argv[2]) >= 256) {
        fprintf(stderr, "usage: ci-bytes SOURCE.icc DESTINATION.icc\n");
        return 2;
    }
    strcpy(names, argv[1]);
    strcpy(names + 256, argv[2]);
    for (i = 0; i < PIXELS; ++i) {
        input[i * 3 + 0] = (uint8_t)((i % STEPS) * 255 / (STEPS - 1));
        input[i * 3 + 1] = (uint8_t)((i / STEPS % STEPS) * 255 / (STEPS - 1));
        input[i * 3 + 2] = (uint8_t)((i / (STEPS * STEPS)) * 255 / (STEPS - 1));
    }
    if (Convert(names, 0, input, "method0.bin") != 0) return 1;
    if (Convert(names, 1, input, "method1.bin") != 0) return 1;
    printf("converted %d pixels with methods 0 and 1\n", PIXELS);
    return 0;
}
