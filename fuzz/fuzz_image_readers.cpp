// The converter's image readers (TIFF, PNG) on fuzzed files. The first byte
// picks the extension the reader goes by; the rest is the file.
#include <cstdint>

#include "fuzz/fuzz_support.h"
#include "tools/tintra/common.h"
#include "tools/tintra/image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tintra3;
    if (size < 1) return 0;
    static const char* const kNames[] = {"image.tif", "image.png"};
    const std::string path = fuzz::WriteScratch(kNames[data[0] & 1], data + 1, size - 1);
    try {
        const cli::Image image = cli::ReadImage(path);
        volatile size_t touched = image.data.empty() ? 0 : image.data.front() + image.data.back();
        (void)touched;
    } catch (const cli::Failure&) {
        // Refusing a damaged file is the expected outcome.
    }
    return 0;
}
