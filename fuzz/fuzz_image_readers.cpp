// The converter's image readers (TIFF, PNG, JPEG) on fuzzed files, read as
// `tintra convert` reads them: page after page, in bands of a few lines. The
// format comes from the first bytes, as in the tool.
#include <algorithm>
#include <cstdint>
#include <memory>

#include "fuzz/fuzz_support.h"
#include "tools/tintra/common.h"
#include "tools/tintra/image_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tintra3;
    const std::string path = fuzz::WriteScratch("image.img", data, size);
    try {
        const std::unique_ptr<cli::ImageReader> reader = cli::ImageReader::Open(path);
        // A few pages and a few bands of each are enough to reach every
        // decoder path; whole huge pages would only slow the fuzzer down.
        uint32_t pages = 0;
        do {
            const cli::Image& page = reader->page();
            const uint32_t lines = std::min<uint32_t>(page.height, 7 * 16);
            for (uint32_t row = 0; row < lines; row += 7) {
                cli::Image band = page.Band(std::min<uint32_t>(7, lines - row));
                band.Allocate();
                reader->ReadLines(band);
                volatile size_t touched = band.data.empty() ? 0 : band.data.front() + band.data.back();
                (void)touched;
            }
        } while (++pages < 4 && reader->NextPage());
    } catch (const cli::Failure&) {
        // Refusing a damaged file is the expected outcome.
    }
    return 0;
}
