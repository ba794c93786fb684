// Replays files through a fuzz target without libFuzzer: each argument is a
// file or a directory of files. Prints how many inputs ran; a sanitizer
// report aborts the run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void RunFile(const std::filesystem::path& path) {
    std::ifstream f(path, std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(arg)) {
                if (!entry.is_regular_file()) continue;
                RunFile(entry.path());
                ++count;
            }
        } else {
            RunFile(arg);
            ++count;
        }
    }
    std::printf("%s: replayed %zu inputs, no finding\n", argv[0], count);
    return 0;
}
