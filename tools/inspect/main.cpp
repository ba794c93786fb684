// tintra-inspect: one line per ICC profile: name, class, colour space,
// version, and whether the library can use it as source and as destination
// once tintra has prepared it (with the reason when not), and as it is.
// --full prints instead what the library reads: the header, the tag directory
// with each element's type, and the model each profile becomes as source and
// as destination for every intent code.
//
//   tintra-inspect [--full] [PROFILE...]
//
// Without profiles it inspects every profile under /usr/share/color/icc.
#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "tools/common/profile_report.h"
#include "tools/iccwriter/icc_prepare.h"

namespace {

// Where the Debian profile packages install their profiles.
constexpr const char* kSystemProfileDir = "/usr/share/color/icc";

bool IsProfileName(const std::filesystem::path& p) {
    std::string ext = p.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext == ".icc" || ext == ".icm";
}

// Every profile file below `dir`, sorted by path. Unreadable folders are skipped.
std::vector<std::string> SystemProfiles(const char* dir) {
    namespace fs = std::filesystem;
    std::vector<std::string> paths;
    std::error_code ec;
    fs::recursive_directory_iterator it(
        dir, fs::directory_options::follow_directory_symlink | fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        std::error_code fileEc;
        if (it->is_regular_file(fileEc) && IsProfileName(it->path())) paths.push_back(it->path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

void Usage(std::FILE* out) {
    std::fprintf(out,
                 "usage: tintra-inspect [--full] [PROFILE...]\n"
                 "Prints one line per profile: class, colour space, version, and whether the\n"
                 "library can use it as source and destination at every intent once tintra has\n"
                 "prepared it, and as it is (the reason when not). --full prints the header, the\n"
                 "tag directory and the source/destination model for intent codes 0..3 instead.\n"
                 "Without profiles, inspects every *.icc/*.icm file under %s.\n",
                 kSystemProfileDir);
}

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::vector<uint8_t> bytes;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    std::fclose(f);
    return bytes;
}

std::string Field(const std::vector<uint8_t>& b, size_t at) {
    std::string s;
    for (size_t i = at; i < at + 4 && i < b.size(); ++i) s += std::isprint(b[i]) ? char(b[i]) : '?';
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

// "yes", or "no: REASON" for the first intent at which `role` fails.
std::string Use(const std::vector<uint8_t>& bytes, tintra3::icc::Role role) {
    for (int intent = 0; intent <= 3; ++intent) {
        const std::string problem = tintra3::icc::LibraryProblem(bytes, role, intent);
        if (!problem.empty()) return "no: " + problem;
    }
    return "yes";
}

// One line: what tintra hands over, then what an application handing the
// file over unchanged gets, where that differs.
void PrintLine(const std::string& path, const std::string& name) {
    using tintra3::icc::Role;
    const std::vector<uint8_t> bytes = ReadAll(path);
    if (bytes.size() < 132) {
        std::printf("%-36s cannot be read as an ICC profile\n", name.c_str());
        return;
    }
    std::vector<uint8_t> prepared = bytes;
    try {
        prepared = tintra3::icc::Prepare(bytes).bytes;
    } catch (const std::exception&) {
        // The check below names what is wrong.
    }
    char version[16];
    std::snprintf(version, sizeof version, "%u.%u", unsigned(bytes[8]), unsigned(bytes[9] >> 4));
    // Either side as "yes" or "no: why"; one reason when both sides share it.
    auto sides = [](const std::string& source, const std::string& destination) {
        if (source == destination && source != "yes") return "refused, " + source.substr(4);
        return "source " + source + "; destination " + destination;
    };
    const std::string source = Use(prepared, Role::kSource), destination = Use(prepared, Role::kDestination);
    std::string line = sides(source, destination);
    const std::string rawSource = Use(bytes, Role::kSource), rawDestination = Use(bytes, Role::kDestination);
    const std::string misread = tintra3::icc::LibraryMisreading(bytes);
    if (rawSource != source || rawDestination != destination)
        line += "  [as is: " + sides(rawSource, rawDestination) + "]";
    else if (!misread.empty() && prepared != bytes && source == "yes")
        line += "  [as is: " + misread + "]";
    std::printf("%-36s %-4s %-4s %-4s v%-4s %s\n", name.c_str(), Field(bytes, 12).c_str(), Field(bytes, 16).c_str(),
                Field(bytes, 20).c_str(), version, line.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> paths;
    bool endOfOptions = false, full = false;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (!endOfOptions && std::strcmp(arg, "--") == 0) {
            endOfOptions = true;
        } else if (!endOfOptions && std::strcmp(arg, "--full") == 0) {
            full = true;
        } else if (!endOfOptions && (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0)) {
            Usage(stdout);
            return 0;
        } else if (!endOfOptions && arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "tintra-inspect: unknown option %s\n", arg);
            Usage(stderr);
            return 2;
        } else {
            paths.push_back(arg);
        }
    }
    const bool system = paths.empty();
    if (system) {
        paths = SystemProfiles(kSystemProfileDir);
        if (paths.empty()) {
            std::fprintf(stderr, "tintra-inspect: no profiles found under %s\n", kSystemProfileDir);
            return 1;
        }
    }
    if (full) {
        for (const std::string& path : paths) tintra3::report::PrintProfileReport(path, path);
        return 0;
    }
    const size_t prefix = system ? std::strlen(kSystemProfileDir) + 1 : 0;
    std::printf("%-36s %-4s %-4s %-4s %-5s %s\n", "profile", "cls", "data", "pcs", "ver",
                "usable by the library at every intent, as tintra prepares it");
    for (const std::string& path : paths) PrintLine(path, path.substr(prefix));
    return 0;
}
