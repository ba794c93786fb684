// tintra: the command-line tool of the colour-matching library.
//
//   tintra convert IN OUT [options]   convert a TIFF, PNG or JPEG image
//   tintra info PROFILE...            what the library reads from profiles
//   tintra eval --src P --dst P [VALUES...]
//   tintra chart OUT                  write the built-in test chart
//   tintra compare A B                colour difference of two images
//
// Conversions go through the library's exported toolbox interface only.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "tools/common/profile_report.h"
#include "tools/iccwriter/icc_prepare.h"
#include "tools/iccwriter/icc_writer.h"
#include "tools/tintra/common.h"
#include "tools/tintra/engine.h"
#include "tools/tintra/image_io.h"
#include "tools/tintra/profiles.h"

// The build passes the project version; other builds of these sources
// (the fuzz targets) need not.
#ifndef TINTRA3_VERSION
#define TINTRA3_VERSION "(unversioned build)"
#endif

namespace tintra3::cli {
namespace {

const char* const kMainHelp =
    "usage: tintra COMMAND [ARGS...]\n"
    "\n"
    "Colour-matches images and colour values between ICC profiles.\n"
    "\n"
    "commands:\n"
    "  convert IN OUT     convert a TIFF, PNG or JPEG image from one profile to another\n"
    "  info PROFILE...    show the header, tags and models the library reads\n"
    "  eval               convert colour values given as arguments or on standard input\n"
    "  chart OUT          write the built-in test chart (sRGB)\n"
    "  compare A B        mean and maximum colour difference (dE*ab) of two images\n"
    "  prepare IN OUT     write the version-2 profile the library reads exactly as IN means\n"
    "\n"
    "Profiles are prepared for the library unless --as-is is given (see 'prepare').\n"
    "Profiles are file paths or built-in names: builtin:srgb, builtin:gray22,\n"
    "builtin:cmyk, builtin:lab. 'tintra COMMAND --help' describes a command;\n"
    "'tintra --version' names the version.\n";

const char* const kConvertHelp =
    "usage: tintra convert IN OUT [options]\n"
    "       tintra convert --dst PROFILE --write-profile FILE\n"
    "\n"
    "Reads IN (TIFF: grey, RGB, CMYK, Lab, strips or tiles, every page; PNG:\n"
    "grey, RGB; JPEG: grey, RGB, CMYK; 8 or 16 bits; an alpha channel is\n"
    "carried through unchanged), converts its colours band by band and writes\n"
    "OUT (.tif/.tiff, .png or .jpg/.jpeg) with the destination profile\n"
    "embedded. Resolution, orientation, text tags and chunks, and the kind of\n"
    "alpha are kept; a TIFF keeps its compression unless --compress says\n"
    "otherwise. IN or OUT may be '-' for standard input or output.\n"
    "\n"
    "options:\n"
    "  -i, --src PROFILE    source profile (default: the profile embedded in IN,\n"
    "                       else builtin:gray22, builtin:srgb or builtin:cmyk by\n"
    "                       the number of colour channels, builtin:lab for Lab)\n"
    "  -o, --dst PROFILE    destination profile (required for TIFF output; PNG\n"
    "                       and JPEG output default to builtin:srgb, or\n"
    "                       builtin:gray22 for a grey source)\n"
    "  -n, --ignore-embedded  read IN through --src or the default even when it\n"
    "                       has a profile of its own\n"
    "  -t, --intent INTENT  0 perceptual (default), 1 relative, 2 saturation,\n"
    "                       3 absolute, by number or name\n"
    "  -m, --method 0|1     0: 8-bit precision, 1: 16-bit precision (default 1)\n"
    "  -w, --bits 8|16      output bits per sample (default: those of IN; 8 for JPEG)\n"
    "  --compress KIND      TIFF compression: none, lzw, zip or jpeg\n"
    "  -q, --quality N      JPEG quality 1..100 (default 90)\n"
    "  --format FORMAT      tiff, png or jpeg: the format of OUT when it is '-'\n"
    "                       (default: that of IN)\n"
    "  --planar             write the TIFF with separate planes\n"
    "  --threads N          worker threads (default: the number of cores)\n"
    "  --block-lines N      image lines per band handed to the library\n"
    "                       (default: about 64K pixels per band)\n"
    "  --write-profile FILE also save the destination profile to FILE (written\n"
    "                       together with OUT, only on success)\n"
    "  --stats              print timing: build_s, convert_s, mpix_per_s\n"
    "  -v, --verbose        name the output, its size and the time at the end\n"
    "                       (always done after a progress bar)\n"
    "  --no-progress        no progress bar (shown only on a terminal)\n";

const char* const kInfoHelp =
    "usage: tintra info PROFILE...\n"
    "\n"
    "Prints, for each profile (a path or builtin:NAME), the header fields, the\n"
    "tag directory with each element's type, and the model the profile becomes\n"
    "as source and as destination for the intent codes 0..3 (kind 1 matrix/TRC,\n"
    "2 lookup table, 3 grey, or 'fails'). A profile that cannot be read is\n"
    "reported on standard error and the exit status is 1.\n";

const char* const kEvalHelp =
    "usage: tintra eval --src PROFILE --dst PROFILE [options] [VALUES...]\n"
    "\n"
    "Converts colours and prints the destination device values, one colour per\n"
    "line. Each VALUES argument is one colour, its channel values separated by\n"
    "commas or spaces (\"255,128,0\"), or given as one argument per value\n"
    "(255 128 0, grouped by the source's channel count); without VALUES,\n"
    "colours are read from standard input, one per line ('#' starts a comment).\n"
    "Values are integers of --in-bits bits (10-bit white is 1023); results are\n"
    "integers of --bits bits. A colour that cannot be read is reported and\n"
    "skipped; the exit status is then 2.\n"
    "\n"
    "options:\n"
    "  -i, --src / -o, --dst PROFILE  as for convert\n"
    "  -t, --intent INTENT  0 perceptual (default), 1 relative, 2 saturation,\n"
    "                       3 absolute, by number or name\n"
    "  -m, --method 0|1     default 1\n"
    "  --in-bits 8|10|12|16 input bits per value (default 8)\n"
    "  -w, --bits 8|16      output bits per value (default 8)\n"
    "  --write-profile FILE also save the destination profile to FILE\n";

const char* const kChartHelp =
    "usage: tintra chart OUT [--size WxH] [--bits 8|16]\n"
    "\n"
    "Writes the test chart (sRGB, builtin:srgb embedded) as TIFF or PNG: ramps\n"
    "of red, green, blue, cyan, magenta, yellow and grey, a hue/lightness sweep\n"
    "and a smooth gradient field. Default size 2048x1536, 8 bits.\n";

const char* const kCompareHelp =
    "usage: tintra compare A B [--profile PROFILE] [--threads N]\n"
    "\n"
    "Turns both images into CIELAB through the library (destination\n"
    "builtin:lab, relative colorimetric, method 1, 16 bits) and prints the mean,\n"
    "95th percentile and maximum CIE 1976 colour difference dE*ab. Each image\n"
    "is read through PROFILE if given, else its embedded profile; an image\n"
    "without one needs PROFILE (no profile is guessed).\n";

// ---- command-line parsing --------------------------------------------------

struct Args {
    std::vector<std::string> positional;
    std::map<std::string, std::string> values;
    std::set<std::string> flags;
    bool help = false;

    bool Has(const std::string& name) const { return values.count(name) != 0; }
    std::string Get(const std::string& name, const std::string& fallback = "") const {
        auto it = values.find(name);
        return it == values.end() ? fallback : it->second;
    }
};

// Short options of the convert and eval commands, named as other colour
// converters name them: -i input profile, -o output profile, -t intent,
// -w output depth; -m is the matching method here.
const std::map<char, std::string> kShortOptions = {{'i', "src"},    {'o', "dst"},     {'t', "intent"},
                                                   {'m', "method"}, {'w', "bits"},    {'q', "quality"},
                                                   {'v', "verbose"}, {'n', "ignore-embedded"}};

Args Parse(const std::vector<std::string>& argv, const std::string& command, const std::set<std::string>& valued,
           const std::set<std::string>& flags) {
    Args args;
    bool endOfOptions = false;
    for (size_t i = 0; i < argv.size(); ++i) {
        const std::string& a = argv[i];
        if (endOfOptions || a.size() < 2 || a[0] != '-') {
            args.positional.push_back(a);  // "-" alone is standard input or output
            continue;
        }
        if (a[1] != '-' && a != "-h") {
            // -iPROFILE or -i PROFILE; a short flag stands alone.
            const auto s = kShortOptions.find(a[1]);
            if (s == kShortOptions.end() || (!valued.count(s->second) && !flags.count(s->second)))
                throw Failure("unknown option '" + a + "' for 'tintra " + command + "'", true);
            const std::string& name = s->second;
            if (flags.count(name)) {
                if (a.size() > 2) throw Failure("option -" + std::string(1, a[1]) + " takes no value", true);
                args.flags.insert(name);
            } else if (a.size() > 2) {
                args.values[name] = a.substr(2);
            } else {
                if (i + 1 >= argv.size()) throw Failure("option " + a + " (--" + name + ") needs a value", true);
                args.values[name] = argv[++i];
            }
            continue;
        }
        if (a == "--") {
            endOfOptions = true;
            continue;
        }
        if (a == "--help" || a == "-h") {
            args.help = true;
            continue;
        }
        std::string name = a.substr(2), value;
        const size_t eq = name.find('=');
        const bool inlineValue = eq != std::string::npos;
        if (inlineValue) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
        }
        if (valued.count(name)) {
            if (!inlineValue) {
                if (i + 1 >= argv.size()) throw Failure("option --" + name + " needs a value", true);
                value = argv[++i];
            }
            args.values[name] = value;
        } else if (flags.count(name) && !inlineValue) {
            args.flags.insert(name);
        } else {
            throw Failure("unknown option '" + a + "' for 'tintra " + command + "'", true);
        }
    }
    return args;
}

long ParseInteger(const std::string& text, const std::string& what, long low, long high) {
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v < low || v > high)
        throw Failure(what + " must be an integer from " + std::to_string(low) + " to " + std::to_string(high) +
                          ", not '" + text + "'",
                      true);
    return v;
}

// Names, or the numbers ICC gives the intents (0 perceptual, 1 relative
// colorimetric, 2 saturation, 3 absolute colorimetric), which are not the
// toolbox's numbers.
int32_t ParseIntent(const std::string& name) {
    if (name == "perceptual" || name == "0") return kIntentPerceptual;
    if (name == "relative" || name == "1") return kIntentRelative;
    if (name == "saturation" || name == "2") return kIntentSaturation;
    if (name == "absolute" || name == "3") return kIntentAbsolute;
    throw Failure("--intent must be perceptual, relative, saturation or absolute (or 0..3), not '" + name + "'", true);
}

uint16_t ParseBits(const std::string& text, const std::string& option) {
    if (text == "8") return 8;
    if (text == "16") return 16;
    throw Failure(option + " must be 8 or 16, not '" + text + "'", true);
}

MatchSettings ParseMatch(const Args& args, uint16_t defaultBits) {
    MatchSettings s;
    s.intent = ParseIntent(args.Get("intent", "perceptual"));
    s.method = uint16_t(ParseInteger(args.Get("method", "1"), "--method", 0, 1));
    s.bitsOut = args.Has("bits") ? ParseBits(args.Get("bits"), "--bits") : defaultBits;
    return s;
}

unsigned DefaultThreads() { return std::max(1u, std::thread::hardware_concurrency()); }

unsigned ParseThreads(const Args& args) {
    return args.Has("threads") ? unsigned(ParseInteger(args.Get("threads"), "--threads", 1, 256)) : DefaultThreads();
}

// Writes `bytes` to the pending file of `shownPath`.
void WriteBytesTo(const std::vector<uint8_t>& bytes, const PendingOutput& out, const std::string& shownPath) {
    std::FILE* f = std::fopen(out.tempPath().c_str(), "wb");
    bool ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (f && std::fclose(f) != 0) ok = false;
    if (!ok) throw Failure("cannot write '" + shownPath + "': " + std::strerror(errno));
}

void WriteBytes(const std::vector<uint8_t>& bytes, const std::string& path) {
    PendingOutput out(path);
    WriteBytesTo(bytes, out, path);
    out.Commit();
}

void WriteImageFile(const Image& image, const std::string& path, FileFormat format) {
    PendingOutput out(path);
    WriteImage(image, format, out.tempPath(), path);
    out.Commit();
}

// ---- commands --------------------------------------------------------------

// An input named "-" is standard input, copied to a temporary file first:
// TIFF needs to seek, and the format is known only from the first bytes.
std::unique_ptr<TempFile> SpoolStandardInput() {
    auto temp = std::make_unique<TempFile>("tintra-stdin", "");
    std::FILE* f = std::fopen(temp->path().c_str(), "wb");
    if (!f) throw Failure("cannot create a temporary file for standard input: " + std::string(std::strerror(errno)));
    char chunk[65536];
    size_t n;
    bool ok = true;
    while ((n = std::fread(chunk, 1, sizeof chunk, stdin)) > 0) ok = ok && std::fwrite(chunk, 1, n, f) == n;
    ok = ok && !std::ferror(stdin);
    if (std::fclose(f) != 0) ok = false;
    if (!ok) throw Failure("cannot read standard input: " + std::string(std::strerror(errno)));
    return temp;
}

void CopyToStandardOutput(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Failure("cannot reopen the output: " + std::string(std::strerror(errno)));
    char chunk[65536];
    size_t n;
    bool ok = true;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) ok = ok && std::fwrite(chunk, 1, n, stdout) == n;
    std::fclose(f);
    if (!ok || std::fflush(stdout) != 0) throw Failure("cannot write standard output: " + std::string(std::strerror(errno)));
}

int CompressionNamed(const std::string& name) {
    // TIFF compression schemes: 1 none, 5 LZW, 8 Deflate (Adobe), 7 JPEG.
    if (name == "none") return 1;
    if (name == "lzw") return 5;
    if (name == "zip" || name == "deflate") return 8;
    if (name == "jpeg") return 7;
    throw Failure("--compress must be none, lzw, zip or jpeg, not '" + name + "'", true);
}

std::string SizeText(uint64_t bytes) {
    char text[32];
    if (bytes >= 1000000)
        std::snprintf(text, sizeof text, "%.1f MB", double(bytes) / 1e6);
    else if (bytes >= 1000)
        std::snprintf(text, sizeof text, "%.1f kB", double(bytes) / 1e3);
    else
        std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
    return text;
}

int Convert(const std::vector<std::string>& argv) {
    const Args args = Parse(argv, "convert", {"src", "dst", "intent", "method", "bits", "threads", "block-lines",
                                              "write-profile", "compress", "quality", "format"},
                            {"planar", "stats", "no-progress", "verbose", "ignore-embedded"});
    if (args.help) {
        std::fputs(kConvertHelp, stdout);
        return 0;
    }
    if (args.positional.empty() && args.Has("write-profile")) {
        if (!args.Has("dst")) throw Failure("--write-profile without images needs --dst", true);
        WriteBytes(LoadProfile(args.Get("dst")).bytes, args.Get("write-profile"));
        return 0;
    }
    if (args.positional.size() < 2) throw Failure("convert needs an input and an output image", true);
    if (args.positional.size() > 2)
        throw Failure("convert takes one input and one output image; '" + args.positional[2] +
                          "' is one too many (options start with '-')",
                      true);
    const std::string& inPath = args.positional[0];
    const std::string& outPath = args.positional[1];
    const bool toStdout = outPath == "-";
    const std::string inName = inPath == "-" ? "standard input" : inPath;
    const std::string outName = toStdout ? "standard output" : outPath;
    std::optional<FileFormat> outFormat;
    if (args.Has("format")) outFormat = FormatNamed(args.Get("format"));
    else if (!toStdout) outFormat = FormatOf(outPath);
    const bool planar = args.flags.count("planar") != 0;
    if (planar && outFormat && *outFormat != FileFormat::kTiff) throw Failure("--planar needs a TIFF output", true);
    ConvertOptions options;
    options.threads = ParseThreads(args);
    if (args.Has("block-lines"))
        options.blockLines = uint32_t(ParseInteger(args.Get("block-lines"), "--block-lines", 1, 65535));
    options.outputPlanar = planar;
    options.progress = !args.flags.count("no-progress") && isatty(STDERR_FILENO);
    WriteSettings writeSettings;
    if (args.Has("compress")) writeSettings.compression = CompressionNamed(args.Get("compress"));
    if (args.Has("quality")) writeSettings.quality = int(ParseInteger(args.Get("quality"), "--quality", 1, 100));
    // Validate the settings before reading anything, and create the outputs
    // (under temporary names) before the work, so that an unwritable folder
    // fails at once.
    MatchSettings match = ParseMatch(args, 8);
    std::unique_ptr<PendingOutput> imageOut;
    std::unique_ptr<TempFile> stdoutTemp;
    if (toStdout)
        stdoutTemp = std::make_unique<TempFile>("tintra-stdout", "");
    else
        imageOut = std::make_unique<PendingOutput>(outPath);
    const std::string& tempPath = toStdout ? stdoutTemp->path() : imageOut->tempPath();
    std::unique_ptr<PendingOutput> profileOut;
    if (args.Has("write-profile")) profileOut = std::make_unique<PendingOutput>(args.Get("write-profile"));

    std::unique_ptr<TempFile> spooledInput;
    if (inPath == "-") spooledInput = SpoolStandardInput();
    const std::unique_ptr<ImageReader> reader = ImageReader::Open(spooledInput ? spooledInput->path() : inPath);
    const Image first = reader->page();
    if (!outFormat) outFormat = reader->format();
    if (planar && *outFormat != FileFormat::kTiff) throw Failure("--planar needs a TIFF output", true);
    // Without --bits every page keeps its depth (JPEG has only 8 bits).
    if (!args.Has("bits")) match.bitsOut = *outFormat == FileFormat::kJpeg ? 8 : 0;
    options.match = match;

    // The profile of each page: the one named, else the page's own, else the
    // default for its channels.
    std::optional<Profile> named;
    if (args.Has("src")) named = LoadProfile(args.Get("src"));
    const SourceChooser sourceFor = [&](const Image& page) -> Profile {
        if (named) return *named;
        if (!page.icc.empty() && !args.flags.count("ignore-embedded")) return EmbeddedProfile(page.icc, inName);
        return LoadProfile(DefaultProfileFor(page.colourChannels, page.colorSpace));
    };
    std::string dstName = args.Get("dst");
    if (dstName.empty()) {
        if (*outFormat == FileFormat::kTiff)
            throw Failure("--dst is required for TIFF output (a profile path or builtin:NAME)", true);
        dstName = (first.colourChannels == 1 && (!named || ChannelsOf(named->ColorSpace()) == 1)) ? "builtin:gray22"
                                                                                               : "builtin:srgb";
    }
    const Profile dst = LoadProfile(dstName);
    // What the output format can hold is known before any line is read.
    Image outShape = first.Band(first.height);
    outShape.colourChannels = std::max(1, ChannelsOf(dst.ColorSpace()));
    outShape.colorSpace = dst.ColorSpace();
    outShape.bits = match.bitsOut ? match.bitsOut : first.bits;
    outShape.planar = planar;
    const std::string reason = CannotHold(*outFormat, outShape, reader->pageCount());
    if (!reason.empty()) {
        const bool byProfile = reason.starts_with("PNG holds only") || reason.starts_with("JPEG holds only grey");
        throw Failure(byProfile ? reason.substr(0, reason.find(" (")) + ", but destination profile " + dst.label +
                                      " is " + SignatureText(dst.ColorSpace()) + " (write a TIFF)"
                                : "cannot write '" + outName + "': " + reason,
                      true);
    }

    ConvertStats stats;
    {
        const std::unique_ptr<ImageWriter> writer = ImageWriter::Create(*outFormat, tempPath, outName, writeSettings);
        ConvertPages(*reader, inName, sourceFor, dst, options, *writer, &stats);
    }
    if (profileOut) WriteBytesTo(dst.bytes, *profileOut, args.Get("write-profile"));
    struct stat written {};
    const uint64_t outBytes = stat(tempPath.c_str(), &written) == 0 ? uint64_t(written.st_size) : 0;
    if (toStdout)
        CopyToStandardOutput(tempPath);
    else
        imageOut->Commit();
    if (profileOut) profileOut->Commit();

    if (options.progress || args.flags.count("verbose")) {
        std::fprintf(stderr, "tintra: wrote %s (%s, %u page%s, %s) in %.2f s\n", outName.c_str(),
                     FormatName(*outFormat), stats.pages, stats.pages == 1 ? "" : "s", SizeText(outBytes).c_str(),
                     stats.convertSeconds);
    }
    if (args.flags.count("stats")) {
        const double mp = double(stats.pixels) / 1e6;
        std::printf("stats: width=%u height=%u pixels=%llu build_s=%.4f convert_s=%.4f mpix_per_s=%.2f threads=%u "
                    "blocks=%u\n",
                    first.width, first.height, static_cast<unsigned long long>(stats.pixels), stats.buildSeconds,
                    stats.convertSeconds, stats.convertSeconds > 0 ? mp / stats.convertSeconds : 0.0, stats.threads,
                    stats.blocks);
    }
    return 0;
}

int Info(const std::vector<std::string>& argv) {
    const Args args = Parse(argv, "info", {}, {});
    if (args.help) {
        std::fputs(kInfoHelp, stdout);
        return 0;
    }
    if (args.positional.empty()) throw Failure("info needs at least one profile", true);
    // A profile that cannot be read is reported on standard error, and the
    // others are still shown; the exit status is then 1.
    int status = 0;
    for (const std::string& profileName : args.positional) {
        std::string error;
        try {
            const Profile p = LoadProfile(profileName);
            // The reader's failure is the library's status 3000 for this file.
            if (!report::PrintProfileReport(p.path, profileName, &error, UsabilityReport(p)))
                throw Failure(StatusText(3000) + ": profile " + p.label + " (" +
                              icc::LibraryProblem(p.bytes, icc::Role::kSource, 0) + ")");
        } catch (const Failure& f) {
            if (f.usage) throw;
            std::fflush(stdout);
            std::fprintf(stderr, "tintra: %s\n", f.what());
            status = 1;
        }
    }
    return status;
}

// One colour: integers separated by commas, spaces or tabs.
std::vector<uint32_t> ParseColour(const std::string& text, size_t channels, uint16_t bits) {
    std::string spaced = text;
    for (char& c : spaced)
        if (c == ',' || c == '\t' || c == ';') c = ' ';
    std::istringstream in(spaced);
    std::vector<uint32_t> values;
    std::string token;
    const long maxValue = (1L << bits) - 1;
    while (in >> token) values.push_back(uint32_t(ParseInteger(token, "a colour value", 0, maxValue)));
    if (values.size() != channels)
        throw Failure("'" + text + "' has " + std::to_string(values.size()) + " values; the source profile needs " +
                          std::to_string(channels),
                      true);
    return values;
}

int Eval(const std::vector<std::string>& argv) {
    const Args args =
        Parse(argv, "eval", {"src", "dst", "intent", "method", "bits", "in-bits", "write-profile"}, {});
    // A colour that cannot be read is reported and skipped; the others are
    // still converted, and the exit status says that something was skipped.
    size_t skipped = 0;
    auto skip = [&skipped](const std::string& where, const Failure& f) {
        std::fflush(stdout);
        std::fprintf(stderr, "tintra: %s%s\n", where.c_str(), f.what());
        ++skipped;
    };
    if (args.help) {
        std::fputs(kEvalHelp, stdout);
        return 0;
    }
    if (!args.Has("src") || !args.Has("dst")) throw Failure("eval needs --src and --dst", true);
    const MatchSettings match = ParseMatch(args, 8);
    const std::string inBitsText = args.Get("in-bits", "8");
    if (inBitsText != "8" && inBitsText != "10" && inBitsText != "12" && inBitsText != "16")
        throw Failure("--in-bits must be 8, 10, 12 or 16, not '" + inBitsText + "'", true);
    const uint16_t inBits = uint16_t(std::atoi(inBitsText.c_str()));
    const Profile src = LoadProfile(args.Get("src"));
    const Profile dst = LoadProfile(args.Get("dst"));
    ConvertValues({}, inBits, src, dst, match);  // reports unusable profiles before any value is read
    const size_t channels = size_t(ChannelsOf(src.ColorSpace()));

    std::vector<std::vector<uint32_t>> colours;
    if (!args.positional.empty()) {
        // "255 0 0" as separate arguments is one colour too: arguments that
        // are single numbers are grouped by the source's channel count.
        std::vector<std::string> items;
        std::string pending;
        size_t pendingCount = 0;
        for (const std::string& a : args.positional) {
            const bool single = a.find_first_of(" ,;\t") == std::string::npos;
            if (!single) {
                        if (pendingCount) {
                    items.push_back(pending);  // too few values: reported with the others
                    pending.clear();
                    pendingCount = 0;
                }
                items.push_back(a);
                continue;
            }
            pending += (pendingCount ? " " : "") + a;
            if (++pendingCount == channels) {
                items.push_back(pending);
                pending.clear();
                pendingCount = 0;
            }
        }
        if (pendingCount) items.push_back(pending);
        for (const std::string& a : items) {
            try {
                colours.push_back(ParseColour(a, channels, inBits));
            } catch (const Failure& f) {
                skip("", f);
            }
        }
    } else {
        std::string line;
        size_t lineNumber = 0;
        while (std::getline(std::cin, line)) {
            ++lineNumber;
            const size_t hash = line.find('#');
            if (hash != std::string::npos) line.erase(hash);
            if (line.find_first_not_of(" \t\r,;") == std::string::npos) continue;
            try {
                colours.push_back(ParseColour(line, channels, inBits));
            } catch (const Failure& f) {
                skip("line " + std::to_string(lineNumber) + ": ", f);
            }
        }
    }
    for (const std::vector<uint32_t>& out : ConvertValues(colours, inBits, src, dst, match)) {
        for (size_t c = 0; c < out.size(); ++c) std::printf(c ? " %u" : "%u", out[c]);
        std::printf("\n");
    }
    if (args.Has("write-profile")) WriteBytes(dst.bytes, args.Get("write-profile"));
    if (skipped) {
        std::fprintf(stderr, "tintra: %zu colour%s skipped, %zu converted\n", skipped, skipped == 1 ? "" : "s",
                     colours.size());
        return 2;
    }
    return 0;
}

int Chart(const std::vector<std::string>& argv) {
    const Args args = Parse(argv, "chart", {"size", "bits"}, {});
    if (args.help) {
        std::fputs(kChartHelp, stdout);
        return 0;
    }
    if (args.positional.size() != 1) throw Failure("chart needs one output image", true);
    const FileFormat format = FormatOf(args.positional[0]);
    uint32_t width = 2048, height = 1536;
    if (args.Has("size")) {
        const std::string size = args.Get("size");
        const size_t x = size.find('x');
        if (x == std::string::npos) throw Failure("--size must be WIDTHxHEIGHT, not '" + size + "'", true);
        width = uint32_t(ParseInteger(size.substr(0, x), "the chart width", 8, 65535));
        height = uint32_t(ParseInteger(size.substr(x + 1), "the chart height", 8, 65535));
    }
    const uint16_t bits = args.Has("bits") ? ParseBits(args.Get("bits"), "--bits") : 8;
    WriteImageFile(MakeChart(width, height, bits), args.positional[0], format);
    return 0;
}

int Compare(const std::vector<std::string>& argv) {
    const Args args = Parse(argv, "compare", {"profile", "threads"}, {});
    if (args.help) {
        std::fputs(kCompareHelp, stdout);
        return 0;
    }
    if (args.positional.size() != 2) throw Failure("compare needs two images", true);
    const unsigned threads = ParseThreads(args);
    const std::string &aPath = args.positional[0], &bPath = args.positional[1];
    const Image a = ReadImage(aPath), b = ReadImage(bPath);
    // A difference measured through a guessed profile would look exact and
    // mean nothing, so an image without a profile needs one named.
    auto profileOf = [&](const Image& img, const std::string& path) {
        if (args.Has("profile")) return LoadProfile(args.Get("profile"));
        if (!img.icc.empty()) return EmbeddedProfile(img.icc, path);
        throw Failure("'" + path + "' has no embedded profile; name the profile its values are in with --profile",
                      true);
    };
    const Profile aProfile = profileOf(a, aPath), bProfile = profileOf(b, bPath);
    const DeltaE d = CompareImages(a, aPath, aProfile, b, bPath, bProfile, threads);
    std::printf("dE*ab: mean %.3f p95 %.3f max %.3f at %u,%u (%zu pixels)\n", d.mean, d.p95, d.max, d.maxX, d.maxY,
                a.pixelCount());
    return 0;
}

int Run(int argc, char** argv) {
    std::vector<std::string> rest(argv + 1, argv + argc);
    // --as-is, before or after the command: profiles reach the library
    // exactly as given, as an application calling it directly hands them over.
    for (auto it = rest.begin(); it != rest.end() && *it != "--";) {
        if (*it != "--as-is") {
            ++it;
            continue;
        }
        SetProfilesAsIs(true);
        it = rest.erase(it);
    }
    if (rest.empty()) {
        std::fputs(kMainHelp, stderr);
        return 2;
    }
    const std::string command = rest.front();
    rest.erase(rest.begin());
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(kMainHelp, stdout);
        return 0;
    }
    if (command == "--version" || command == "-V") {
        std::printf("tintra %s\n", TINTRA3_VERSION);
        return 0;
    }
    if (command == "convert") return Convert(rest);
    if (command == "info") return Info(rest);
    if (command == "prepare") return PrepareCommand(rest);
    if (command == "eval") return Eval(rest);
    if (command == "chart") return Chart(rest);
    if (command == "compare") return Compare(rest);
    throw Failure("unknown command '" + command + "'", true);
}

}  // namespace
}  // namespace tintra3::cli

int main(int argc, char** argv) {
    using tintra3::cli::Failure;
    tintra3::cli::InstallCleanupHandler();
    try {
        return tintra3::cli::Run(argc, argv);
    } catch (const Failure& f) {
        std::fprintf(stderr, "tintra: %s\n", f.what());
        if (f.usage) std::fprintf(stderr, "(run 'tintra --help' or 'tintra COMMAND --help' for usage)\n");
        return f.usage ? 2 : 1;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "tintra: out of memory\n");
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tintra: %s\n", e.what());
        return 1;
    }
}
