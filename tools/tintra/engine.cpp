// Image and value conversions through the toolbox interface.
//
// An image is cut into blocks of whole lines (a PixelRun counts lines in 16
// bits, and the library's buffer sizes are 32-bit). Worker threads take
// blocks from a shared counter; each worker has its own toolbox handle, so no
// library object is ever touched by two threads. Every block is converted
// into a scratch buffer with room for four 16-bit channels and then copied
// into the output image together with the alpha channel.
#include "tools/tintra/engine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include <unistd.h>

#include "api/exports.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3::cli {

namespace {

double Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// One toolbox handle, released on every path (QemToolboxInit hands out a
// handle even when it fails).
class Matcher {
public:
    Matcher() = default;
    Matcher(const Matcher&) = delete;
    Matcher& operator=(const Matcher&) = delete;
    ~Matcher() {
        if (handle_) QemToolboxPostProc(handle_);
    }
    uint32_t Init(const ImageParams& image, const Profile& src, const Profile& dst, const MatchSettings& s) {
        // Two 256-byte path slots back to back; Profile keeps its paths shorter.
        char names[512] = {};
        std::strncpy(names, src.path.c_str(), 255);
        std::strncpy(names + 256, dst.path.c_str(), 255);
        return QemToolboxInit(&image, names, s.method, s.intent, &handle_);
    }
    CColorMatcher* get() const { return handle_; }

private:
    CColorMatcher* handle_ = nullptr;
};

// The one-line report of a failed set-up: the code, its meaning, and the
// file it concerns. Profile failures (3000, 3001, 5000, ...) do not say which
// profile is at fault, so each profile is tried again alone, paired with the
// built-in Lab identity, which the library accepts on either side.
Failure InitFailure(uint32_t status, const ImageParams& image, const Profile& src, const Profile& dst,
                    const MatchSettings& s) {
    std::string concern;
    switch (status) {
        case 2020:
        case 2021:
        case 2030:
        case 2040:
        case 2050:
        case 5001:
            concern = "the conversion settings";
            break;
        default: {
            // The profile check knows which profile and tag are at fault and why.
            concern = ProfileProblems(src, dst, s.intent);
            if (!concern.empty()) break;
            concern = "source profile " + src.label + " with destination profile " + dst.label;
            try {
                const Profile lab = LoadProfile("builtin:lab");
                Matcher srcAlone, dstAlone;
                if (srcAlone.Init(image, src, lab, s) == status)
                    concern = "source profile " + src.label;
                else if (dstAlone.Init(image, lab, dst, s) == status)
                    concern = "destination profile " + dst.label;
            } catch (const std::exception&) {
                // No temporary file for the probe: name both profiles.
            }
            break;
        }
    }
    return Failure(StatusText(status) + ": " + concern);
}

// The profile check runs first; where the library refuses too, its status
// code stands beside the check's reason, and where it would accept what the
// check refuses (a named-colour or abstract profile) the check decides.
void InitChecked(Matcher& m, const ImageParams& image, const Profile& src, const Profile& dst, const MatchSettings& s) {
    const std::string problems = ProfileProblems(src, dst, s.intent);
    const uint32_t status = m.Init(image, src, dst, s);
    if (status != 0) throw InitFailure(status, image, src, dst, s);
    if (!problems.empty()) throw Failure(problems);
    NoteMisreadings(src, dst);
}

void CheckChannels(int imageChannels, const Profile& src, const Profile& dst, const std::string& inName) {
    const int srcChannels = ChannelsOf(src.ColorSpace());
    if (srcChannels == 0)
        throw Failure("source profile " + src.label + ": colour space " + SignatureText(src.ColorSpace()) +
                      " is not supported");
    if (srcChannels != imageChannels)
        throw Failure("source profile " + src.label + " is for " + std::to_string(srcChannels) +
                      "-channel data (" + SignatureText(src.ColorSpace()) + ") but '" + inName + "' has " +
                      std::to_string(imageChannels) + " colour channels");
    if (ChannelsOf(dst.ColorSpace()) == 0)
        throw Failure("destination profile " + dst.label + ": colour space " + SignatureText(dst.ColorSpace()) +
                      " is not supported");
}

inline uint32_t GetSample(const uint8_t* base, size_t index, size_t bytes) {
    if (bytes == 1) return base[index];
    uint16_t v;
    std::memcpy(&v, base + 2 * index, 2);
    return v;
}

inline void PutSample(uint8_t* base, size_t index, size_t bytes, uint32_t v) {
    if (bytes == 1) {
        base[index] = uint8_t(v);
    } else {
        const uint16_t w = uint16_t(v);
        std::memcpy(base + 2 * index, &w, 2);
    }
}

// 8 <-> 16-bit alpha: × 257, and (v + 128) / 257 back.
inline uint32_t RescaleAlpha(uint32_t v, size_t fromBytes, size_t toBytes) {
    if (fromBytes == toBytes) return v;
    return toBytes == 2 ? v * 257u : (v + 128u) / 257u;
}

// Source samples of lines y0 .. y0+n−1 in the layout handed to the library:
// interleaved colour samples (layout 0) or one plane per colour channel
// (layout 1, planes of n·width samples).
const uint8_t* GatherBlock(const Image& in, uint32_t y0, uint32_t n, std::vector<uint8_t>& scratch) {
    const size_t sb = in.bytesPerSample(), w = in.width, cin = size_t(in.colourChannels);
    const size_t spp = size_t(in.samplesPerPixel());
    const size_t first = size_t(y0) * w, count = size_t(n) * w;
    if (!in.planar && !in.alpha) return in.data.data() + first * spp * sb;
    if (!in.planar) {
        const uint8_t* src = in.data.data() + first * spp * sb;
        uint8_t* dst = scratch.data();
        for (size_t q = 0; q < count; ++q) std::memcpy(dst + q * cin * sb, src + q * spp * sb, cin * sb);
    } else {
        for (size_t c = 0; c < cin; ++c)
            std::memcpy(scratch.data() + c * count * sb, in.data.data() + (c * in.pixelCount() + first) * sb,
                        count * sb);
    }
    return scratch.data();
}

// Copies a converted block (layout as gathered) into `out`, with the alpha
// samples of `in`.
void ScatterBlock(const Image& in, Image& out, uint32_t y0, uint32_t n, const uint8_t* converted) {
    const size_t ob = out.bytesPerSample(), w = out.width, cout = size_t(out.colourChannels);
    const size_t spp = size_t(out.samplesPerPixel());
    const size_t first = size_t(y0) * w, count = size_t(n) * w;
    const bool blockPlanar = in.planar;
    if (!out.alpha && out.planar == blockPlanar) {
        if (!out.planar) {
            std::memcpy(out.data.data() + first * cout * ob, converted, count * cout * ob);
        } else {
            for (size_t c = 0; c < cout; ++c)
                std::memcpy(out.data.data() + (c * out.pixelCount() + first) * ob, converted + c * count * ob,
                            count * ob);
        }
        return;
    }
    for (size_t q = 0; q < count; ++q) {
        const size_t p = first + q;
        for (size_t c = 0; c < cout; ++c) {
            const uint32_t v = GetSample(converted, blockPlanar ? c * count + q : q * cout + c, ob);
            PutSample(out.data.data(), out.planar ? c * out.pixelCount() + p : p * spp + c, ob, v);
        }
    }
    if (!out.alpha) return;
    const size_t ib = in.bytesPerSample(), cin = size_t(in.colourChannels), sppIn = size_t(in.samplesPerPixel());
    for (size_t q = 0; q < count; ++q) {
        const size_t p = first + q;
        const uint32_t a = GetSample(in.data.data(), in.planar ? cin * in.pixelCount() + p : p * sppIn + cin, ib);
        PutSample(out.data.data(), out.planar ? cout * out.pixelCount() + p : p * spp + cout, ob,
                  RescaleAlpha(a, ib, ob));
    }
}

struct WorkState {
    std::atomic<uint32_t> nextBlock{0};
    std::atomic<bool> failed{false};
    std::atomic<uint64_t> pixelsDone{0};
    std::unique_ptr<std::atomic<uint32_t>[]> percent;  // GetProgress of each worker's handle
    std::mutex lock;
    std::condition_variable finishedSignal;
    unsigned finished = 0;
    std::string error;  // first failure
    void Fail(const std::string& message) {
        std::lock_guard<std::mutex> guard(lock);
        if (error.empty()) error = message;
        failed = true;
    }
};

void DrawProgress(unsigned percent, bool done) {
    constexpr int kWidth = 40;
    percent = std::min(percent, 100u);
    char bar[kWidth + 1];
    const int filled = int(percent * kWidth / 100);
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = 0;
    std::fprintf(stderr, "\rconverting [%s] %3u%%", bar, percent);
    if (done) std::fprintf(stderr, "\r%*s\r", kWidth + 20, "");
    std::fflush(stderr);
}

}  // namespace

Image ConvertImage(const Image& in, const std::string& inName, const Profile& src, const Profile& dst,
                   const ConvertOptions& options, ConvertStats* stats) {
    const MatchSettings& s = options.match;
    const uint32_t w = in.width, h = in.height;
    const size_t inBytes = in.bytesPerSample();
    const uint16_t layout = in.planar ? TINTRA_FRAME_PLANAR : TINTRA_INTERLEAVED;


    // Block height: about 64K pixels, within the 16-bit line count and the
    // 32-bit buffer sizes. The destination scratch has room for four 16-bit
    // channels whatever the profile claims, so a lut with more outputs than
    // its colour space cannot write past it.
    const uint64_t inLine = uint64_t(w) * in.colourChannels * inBytes;
    const uint64_t scratchLine = uint64_t(w) * 4 * 2;
    if (scratchLine > UINT32_MAX) throw Failure("'" + inName + "' is too wide for the library (32-bit buffer sizes)");
    uint64_t blockLines = options.blockLines ? options.blockLines : std::max<uint64_t>(1, 65536 / w);
    blockLines = std::min<uint64_t>({blockLines, 65535, h, UINT32_MAX / scratchLine});
    const uint32_t blocks = uint32_t((h + blockLines - 1) / blockLines);

    ImageParams params{};
    params.width = w;
    params.lines = h;
    params.bufferSize = uint32_t(inLine * blockLines);
    params.destinationBufferSize = uint32_t(scratchLine * blockLines);
    params.bitsIn = uint16_t(in.bits);
    params.bitsOut = s.bitsOut;
    params.layout = layout;

    const double buildStart = Seconds();
    auto first = std::make_unique<Matcher>();
    InitChecked(*first, params, src, dst, s);
    const double buildSeconds = Seconds() - buildStart;
    // The library has accepted both profiles; now they must fit the image.
    CheckChannels(in.colourChannels, src, dst, inName);

    Image out;
    out.width = w;
    out.height = h;
    out.colourChannels = ChannelsOf(dst.ColorSpace());
    out.alpha = in.alpha;
    out.bits = s.bitsOut;
    out.planar = options.outputPlanar;
    out.colorSpace = dst.ColorSpace();
    out.icc = dst.bytes;
    out.Allocate();
    const size_t outBytes = out.bytesPerSample();

    // Probe one line twice, over scratch filled with 0x00 and with 0xFF: the
    // bytes the kernel wrote agree, so the written length tells how many
    // channels the transform produces.
    {
        std::vector<uint8_t> gather(size_t(inLine) + 1), a(size_t(scratchLine), 0x00), b(size_t(scratchLine), 0xFF);
        const uint8_t* line = GatherBlock(in, 0, 1, gather);
        PixelRun srcRun{const_cast<uint8_t*>(line), 1}, runA{a.data(), 1}, runB{b.data(), 1};
        uint32_t status = QemToolboxProc(&srcRun, &runA, first->get());
        if (status == 0) status = QemToolboxProc(&srcRun, &runB, first->get());
        if (status != 0) throw Failure(StatusText(status) + ": converting '" + inName + "'");
        size_t written = a.size();
        while (written > 0 && a[written - 1] != b[written - 1]) --written;
        const size_t expected = size_t(w) * out.colourChannels * outBytes;
        if (written != expected)
            throw Failure("destination profile " + dst.label + " produces " +
                          std::to_string(written / (size_t(w) * outBytes)) + " channels but its colour space " +
                          SignatureText(dst.ColorSpace()) + " has " + std::to_string(out.colourChannels));
    }

    const unsigned threads = std::max(1u, std::min<unsigned>(options.threads, blocks));
    WorkState state;
    state.percent = std::make_unique<std::atomic<uint32_t>[]>(threads);
    for (unsigned i = 0; i < threads; ++i) state.percent[i] = 0;

    auto worker = [&](unsigned index, std::unique_ptr<Matcher> matcher) {
        try {
            if (!matcher) {
                matcher = std::make_unique<Matcher>();
                const uint32_t status = matcher->Init(params, src, dst, s);
                if (status != 0) throw InitFailure(status, params, src, dst, s);
            }
            std::vector<uint8_t> gather((in.planar || in.alpha) ? size_t(params.bufferSize) : 0);
            std::vector<uint8_t> converted(params.destinationBufferSize);
            for (;;) {
                const uint32_t block = state.nextBlock++;
                if (block >= blocks || state.failed) break;
                const uint32_t y0 = uint32_t(block * blockLines);
                const uint32_t n = uint32_t(std::min<uint64_t>(blockLines, h - y0));
                PixelRun srcRun{const_cast<uint8_t*>(GatherBlock(in, y0, n, gather)), uint16_t(n)};
                PixelRun dstRun{converted.data(), uint16_t(n)};
                const uint32_t status = QemToolboxProc(&srcRun, &dstRun, matcher->get());
                if (status != 0) throw Failure(StatusText(status) + ": converting '" + inName + "'");
                ScatterBlock(in, out, y0, n, converted.data());
                state.percent[index] = GetProgress(matcher->get());
                state.pixelsDone += uint64_t(n) * w;
            }
        } catch (const std::bad_alloc&) {
            state.Fail("out of memory while converting '" + inName + "'");
        } catch (const std::exception& e) {
            state.Fail(e.what());
        }
        matcher.reset();
        std::lock_guard<std::mutex> guard(state.lock);
        ++state.finished;
        state.finishedSignal.notify_all();
    };

    // The handle's progress is progressDone × 100 / (width × lines) in 32-bit
    // arithmetic; past 42,949,672 pixels the product wraps, and the tool
    // counts the pixels itself instead.
    const uint64_t totalPixels = uint64_t(w) * h;
    const bool libraryProgress = totalPixels <= UINT32_MAX / 100;
    auto percentDone = [&]() -> unsigned {
        if (!libraryProgress) return unsigned(state.pixelsDone * 100 / totalPixels);
        uint32_t sum = 0;
        for (unsigned i = 0; i < threads; ++i) sum += state.percent[i];
        return sum;
    };

    const double convertStart = Seconds();
    // A thread that cannot be started leaves its share to the others.
    std::vector<std::thread> pool;
    try {
        pool.emplace_back(worker, 0u, std::move(first));
        for (unsigned i = 1; i < threads; ++i) pool.emplace_back(worker, i, nullptr);
    } catch (const std::system_error&) {
        if (pool.empty()) throw Failure("cannot start a conversion thread");
    }
    const unsigned started = unsigned(pool.size());
    bool drawn = false;
    {
        std::unique_lock<std::mutex> guard(state.lock);
        while (state.finished < started) {
            state.finishedSignal.wait_for(guard, std::chrono::milliseconds(100));
            if (options.progress && state.finished < started && Seconds() - convertStart > 0.3) {
                DrawProgress(percentDone(), false);
                drawn = true;
            }
        }
    }
    for (std::thread& t : pool) t.join();
    const double convertSeconds = Seconds() - convertStart;
    if (drawn) DrawProgress(100, true);
    if (!state.error.empty()) throw Failure(state.error);

    if (stats) {
        stats->buildSeconds = buildSeconds;
        stats->convertSeconds = convertSeconds;
        stats->threads = started;
        stats->blocks = blocks;
    }
    return out;
}

std::vector<std::vector<uint32_t>> ConvertValues(const std::vector<std::vector<uint32_t>>& colours, uint16_t bitsIn,
                                                 const Profile& src, const Profile& dst,
                                                 const MatchSettings& settings) {
    // The set-up comes first, so that the library's own verdict on the
    // profiles is what a bad profile reports (also for an empty list).
    const int cin = std::max(1, ChannelsOf(src.ColorSpace()));
    const size_t inBytes = bitsIn > 8 ? 2 : 1, outBytes = settings.bitsOut > 8 ? 2 : 1;
    const size_t count = colours.size();
    std::vector<uint8_t> input(std::max<size_t>(count, 1) * size_t(cin) * inBytes), output(input.size() * 8);
    ImageParams params{};
    params.width = uint32_t(std::max<size_t>(count, 1));
    params.lines = 1;
    params.bufferSize = uint32_t(input.size());
    params.destinationBufferSize = uint32_t(output.size());
    params.bitsIn = bitsIn;
    params.bitsOut = settings.bitsOut;
    params.layout = TINTRA_INTERLEAVED;
    Matcher matcher;
    InitChecked(matcher, params, src, dst, settings);
    CheckChannels(ChannelsOf(src.ColorSpace()), src, dst, "");
    if (count == 0) return {};
    const int cout = ChannelsOf(dst.ColorSpace());

    // The library takes 10- and 12-bit samples high-justified in their
    // 16-bit words (it indexes its tables with x >> 6 and x >> 4), so a
    // 10-bit 1023 is handed over as 0xFFC0.
    const unsigned justify = (bitsIn == 10 || bitsIn == 12) ? 16u - bitsIn : 0u;
    for (size_t i = 0; i < count; ++i)
        for (int c = 0; c < cin; ++c)
            PutSample(input.data(), i * size_t(cin) + size_t(c), inBytes, colours[i][size_t(c)] << justify);
    PixelRun srcRun{input.data(), 1}, dstRun{output.data(), 1};
    const uint32_t procStatus = QemToolboxProc(&srcRun, &dstRun, matcher.get());
    if (procStatus != 0) throw Failure(StatusText(procStatus) + ": converting the values");

    std::vector<std::vector<uint32_t>> result(count, std::vector<uint32_t>(size_t(cout)));
    for (size_t i = 0; i < count; ++i)
        for (int c = 0; c < cout; ++c) result[i][size_t(c)] = GetSample(output.data(), i * size_t(cout) + size_t(c), outBytes);
    return result;
}

DeltaE CompareImages(const Image& a, const std::string& aName, const Profile& aProfile, const Image& b,
                     const std::string& bName, const Profile& bProfile, unsigned threads) {
    if (a.width != b.width || a.height != b.height)
        throw Failure("'" + aName + "' is " + std::to_string(a.width) + "x" + std::to_string(a.height) + " but '" +
                      bName + "' is " + std::to_string(b.width) + "x" + std::to_string(b.height));
    const Profile lab = LoadProfile("builtin:lab");
    ConvertOptions options;
    options.match = {1, kIntentRelative, 16};
    options.threads = threads;
    const Image labA = ConvertImage(a, aName, aProfile, lab, options, nullptr);
    const Image labB = ConvertImage(b, bName, bProfile, lab, options, nullptr);

    // 16-bit Lab codes as the library encodes them: L = code × 100/65535,
    // a and b = code/256 − 128.
    DeltaE result;
    const size_t pixels = a.pixelCount();
    std::vector<float> all(pixels);
    double sum = 0;
    for (size_t p = 0; p < pixels; ++p) {
        double d2 = 0;
        for (size_t c = 0; c < 3; ++c) {
            const double va = GetSample(labA.data.data(), p * 3 + c, 2), vb = GetSample(labB.data.data(), p * 3 + c, 2);
            const double diff = c == 0 ? (va - vb) * 100.0 / 65535.0 : (va - vb) / 256.0;
            d2 += diff * diff;
        }
        const double d = std::sqrt(d2);
        all[p] = float(d);
        sum += d;
        if (d > result.max) {
            result.max = d;
            result.maxX = uint32_t(p % a.width);
            result.maxY = uint32_t(p / a.width);
        }
    }
    result.mean = pixels ? sum / double(pixels) : 0.0;
    if (pixels) {
        const size_t k = std::min(pixels - 1, size_t(double(pixels) * 0.95));
        std::nth_element(all.begin(), all.begin() + std::ptrdiff_t(k), all.end());
        result.p95 = all[k];
    }
    return result;
}

Image MakeChart(uint32_t width, uint32_t height, int bits) {
    Image img;
    img.width = width;
    img.height = height;
    img.colourChannels = 3;
    img.bits = bits;
    img.colorSpace = icc::Sig4("RGB ");
    img.Allocate();
    const double maxCode = bits == 16 ? 65535.0 : 255.0;
    const size_t sb = img.bytesPerSample();
    // Bands from the top: seven ramps (a quarter of the height), the
    // hue/lightness sweep (half), the gradient field (the rest).
    const uint32_t rampEnd = height / 4, sweepEnd = rampEnd + height / 2;
    static const double kRampColours[7][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1},
                                              {1, 0, 1}, {1, 1, 0}, {1, 1, 1}};
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const double u = width > 1 ? double(x) / (width - 1) : 0.0;
            double rgb[3];
            if (y < rampEnd) {
                const uint32_t stripe = std::min<uint32_t>(6, y * 7 / std::max<uint32_t>(rampEnd, 1));
                for (int c = 0; c < 3; ++c) rgb[c] = kRampColours[stripe][c] * u;
            } else if (y < sweepEnd) {
                // Hue along x (six sectors of a fully saturated colour); from
                // white at the top through the pure hue to black at the bottom.
                const double v = double(y - rampEnd) / std::max<uint32_t>(1, sweepEnd - rampEnd - 1);
                const double hue = u * 6.0;
                const int sector = std::min(5, int(hue));
                const double f = hue - sector;
                const double pure[6][3] = {{1, f, 0}, {1 - f, 1, 0}, {0, 1, f}, {0, 1 - f, 1}, {f, 0, 1}, {1, 0, 1 - f}};
                for (int c = 0; c < 3; ++c) {
                    const double p = pure[sector][c];
                    rgb[c] = v < 0.5 ? 1.0 - (1.0 - p) * (v * 2.0) : p * (2.0 - v * 2.0);
                }
            } else {
                const double v = double(y - sweepEnd) / std::max<uint32_t>(1, height - sweepEnd - 1);
                rgb[0] = u;
                rgb[1] = v;
                rgb[2] = 0.5 + 0.5 * std::sin(3.14159265358979 * (u + 2.0 * v));
            }
            for (int c = 0; c < 3; ++c)
                PutSample(img.data.data(), (size_t(y) * width + x) * 3 + size_t(c), sb,
                          uint32_t(std::clamp(rgb[c], 0.0, 1.0) * maxCode + 0.5));
        }
    }
    img.icc = BuiltinProfileBytes("srgb");
    return img;
}

}  // namespace tintra3::cli
