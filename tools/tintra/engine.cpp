// Image and value conversions through the toolbox interface.
//
// A page is streamed in bands of whole lines (a PixelRun counts lines in 16
// bits, and the library's buffer sizes are 32-bit): the calling thread reads
// bands and writes them back in order while worker threads convert them;
// each worker has its own toolbox handle, so no library object is ever
// touched by two threads. Every band is converted into a scratch buffer with
// room for four 16-bit channels and then copied into the output band
// together with the alpha channel. Only a few bands are ever held, whatever
// the size of the image.
#include "tools/tintra/engine.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
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

void DrawProgress(double fraction, uint32_t page, uint32_t pages) {
    constexpr int kWidth = 40;
    const unsigned percent = unsigned(std::clamp(fraction, 0.0, 1.0) * 100.0);
    char bar[kWidth + 1];
    const int filled = int(percent * kWidth / 100);
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = 0;
    if (pages > 1)
        std::fprintf(stderr, "\rconverting [%s] %3u%% page %u/%u", bar, percent, page + 1, pages);
    else
        std::fprintf(stderr, "\rconverting [%s] %3u%%", bar, percent);
    std::fflush(stderr);
}

void ClearProgress() {
    std::fprintf(stderr, "\r%*s\r", 72, "");
    std::fflush(stderr);
}

// Copies lines [fromRow, fromRow + n) of `from` to lines from `toRow` of
// `to`; both have the same samples per pixel, depth and layout.
void CopyLines(const Image& from, uint32_t fromRow, Image& to, uint32_t toRow, uint32_t n) {
    const size_t sb = from.bytesPerSample(), w = from.width, spp = size_t(from.samplesPerPixel());
    if (!from.planar) {
        std::memcpy(to.data.data() + size_t(toRow) * w * spp * sb, from.data.data() + size_t(fromRow) * w * spp * sb,
                    size_t(n) * w * spp * sb);
        return;
    }
    for (size_t s = 0; s < spp; ++s)
        std::memcpy(to.data.data() + (s * to.height + toRow) * w * sb,
                    from.data.data() + (s * from.height + fromRow) * w * sb, size_t(n) * w * sb);
}

// Gives `band` the geometry of `n` lines of `page`, reusing its storage.
void ShapeBand(Image& band, const Image& page, uint32_t n) {
    std::vector<uint8_t> keep = std::move(band.data);
    band = page.Band(n);
    band.data = std::move(keep);
    band.data.resize(band.byteCount());
}

// One page's transform: the settings handed to the library, the output
// page, and one toolbox handle with its scratch buffers per worker.
class PageConverter {
public:
    PageConverter(const Image& page, const std::string& inName, const Profile& src, const Profile& dst,
                  const ConvertOptions& options, unsigned workers)
        : inName_(inName), src_(src), dst_(dst), settings_(options.match), lanes_(workers) {
        if (settings_.bitsOut == 0) settings_.bitsOut = uint16_t(page.bits);
        const uint32_t w = page.width, h = page.height;
        // Band height: about 64K pixels, within the 16-bit line count and the
        // 32-bit buffer sizes. The destination
        // scratch has room for four 16-bit channels whatever the profile
        // claims, so a lut with more outputs than its colour space cannot
        // write past it.
        const uint64_t inLine = uint64_t(w) * page.colourChannels * page.bytesPerSample();
        const uint64_t scratchLine = uint64_t(w) * 4 * 2;
        if (scratchLine > UINT32_MAX)
            throw Failure("'" + inName + "' is too wide for the library (32-bit buffer sizes)");
        uint64_t lines = options.blockLines;
        if (lines == 0) lines = std::max<uint64_t>(1, 65536 / w);
        lines = std::min<uint64_t>({lines, 65535, h, UINT32_MAX / scratchLine});
        bandLines_ = uint32_t(std::max<uint64_t>(1, lines));

        params_.width = w;
        params_.lines = h;
        params_.bufferSize = uint32_t(inLine * bandLines_);
        params_.destinationBufferSize = uint32_t(scratchLine * bandLines_);
        params_.bitsIn = uint16_t(page.bits);
        params_.bitsOut = settings_.bitsOut;
        params_.layout = page.planar ? TINTRA_FRAME_PLANAR : TINTRA_INTERLEAVED;
        outputPlanar_ = options.outputPlanar;
    }

    // Builds the first handle and checks what it produces. Called once the
    // first band has been read: the buffers it needs grow with the width a
    // header claims, and a file must show real lines before that is trusted.
    void Build(const Image& page) {
        const double buildStart = Seconds();
        lanes_[0].matcher = std::make_unique<Matcher>();
        InitChecked(*lanes_[0].matcher, params_, src_, dst_, settings_);
        buildSeconds_ = Seconds() - buildStart;
        // The library has accepted both profiles; now they must fit the image.
        CheckChannels(page.colourChannels, src_, dst_, inName_);

        out_ = page.Band(page.height);
        out_.colourChannels = ChannelsOf(dst_.ColorSpace());
        out_.bits = settings_.bitsOut;
        out_.planar = outputPlanar_;
        out_.colorSpace = dst_.ColorSpace();
        out_.icc = dst_.bytes;
        out_.meta = page.meta;
        ProbeChannels(page, params_.bufferSize / bandLines_, params_.destinationBufferSize / bandLines_);
    }

    uint32_t bandLines() const { return bandLines_; }
    double buildSeconds() const { return buildSeconds_; }
    const Image& outPage() const { return out_; }

    // Converts `in` (a band of the page) into `out` (shaped here) with the
    // handle of worker `lane`, which no other thread uses.
    void Convert(const Image& in, Image& out, unsigned lane) {
        Lane& l = lanes_[lane];
        if (!l.matcher) {
            l.matcher = std::make_unique<Matcher>();
            const uint32_t status = l.matcher->Init(params_, src_, dst_, settings_);
            if (status != 0) throw InitFailure(status, params_, src_, dst_, settings_);
        }
        if (l.converted.empty()) {
            l.gather.resize((in.planar || in.alpha) ? size_t(params_.bufferSize) : 0);
            l.converted.resize(params_.destinationBufferSize);
        }
        ShapeBand(out, out_, in.height);
        PixelRun srcRun{const_cast<uint8_t*>(GatherBlock(in, 0, in.height, l.gather)), uint16_t(in.height)};
        PixelRun dstRun{l.converted.data(), uint16_t(in.height)};
        const uint32_t status = QemToolboxProc(&srcRun, &dstRun, l.matcher->get());
        if (status != 0) throw Failure(StatusText(status) + ": converting '" + inName_ + "'");
        ScatterBlock(in, out, 0, in.height, l.converted.data());
    }

private:
    struct Lane {
        std::unique_ptr<Matcher> matcher;
        std::vector<uint8_t> gather;
        std::vector<uint8_t> converted;
    };

    // Converts one line twice, over scratch filled with 0x00 and with 0xFF:
    // the bytes the kernel wrote agree, so the written length tells how many
    // channels the transform produces.
    void ProbeChannels(const Image& page, uint32_t inLine, uint32_t scratchLine) {
        std::vector<uint8_t> line(inLine, 0), a(scratchLine, 0x00), b(scratchLine, 0xFF);
        PixelRun srcRun{line.data(), 1}, runA{a.data(), 1}, runB{b.data(), 1};
        uint32_t status = QemToolboxProc(&srcRun, &runA, lanes_[0].matcher->get());
        if (status == 0) status = QemToolboxProc(&srcRun, &runB, lanes_[0].matcher->get());
        if (status != 0) throw Failure(StatusText(status) + ": converting '" + inName_ + "'");
        size_t written = a.size();
        while (written > 0 && a[written - 1] != b[written - 1]) --written;
        const size_t outBytes = out_.bytesPerSample(), w = page.width;
        if (written != w * size_t(out_.colourChannels) * outBytes)
            throw Failure("destination profile " + dst_.label + " produces " +
                          std::to_string(written / (w * outBytes)) + " channels but its colour space " +
                          SignatureText(dst_.ColorSpace()) + " has " + std::to_string(out_.colourChannels));
    }

    std::string inName_;
    const Profile& src_;
    const Profile& dst_;
    MatchSettings settings_;
    bool outputPlanar_ = false;
    ImageParams params_{};
    uint32_t bandLines_ = 1;
    double buildSeconds_ = 0;
    Image out_;
    std::vector<Lane> lanes_;
};

// Bands in flight: read into a free slot, converted by a worker, written in
// file order, free again. Twice as many slots as workers keep every worker
// busy while the reader and the writer take their turns.
struct Slot {
    enum State { kFree, kQueued, kConverting, kDone } state = kFree;
    Image in;
    Image out;
};

class BandPipeline {
public:
    BandPipeline(PageConverter& converter, unsigned workers, const std::string& inName)
        : converter_(converter), inName_(inName), slots_(size_t(workers) * 2) {
        try {
            for (unsigned i = 0; i < workers; ++i) pool_.emplace_back([this, i] { Work(i); });
        } catch (const std::system_error&) {
            // A thread that cannot be started leaves its share to the others.
            if (pool_.empty()) throw Failure("cannot start a conversion thread");
        }
    }

    ~BandPipeline() { Stop(); }

    unsigned workers() const { return unsigned(pool_.size()); }

    // Reads, converts and writes the page; `afterFirstRead` runs once the
    // first band is in, before any conversion; `onLines` is told of each band
    // written.
    void Run(ImageReader& reader, const Image& page, ImageWriter& writer, const std::function<void()>& afterFirstRead,
             const std::function<void(uint32_t)>& onLines) {
        const uint32_t h = page.height, band = converter_.bandLines();
        uint32_t readRow = 0, writtenRow = 0;
        size_t readSlot = 0, writeSlot = 0;
        while (writtenRow < h) {
            for (;;) {
                {
                    std::lock_guard<std::mutex> guard(lock_);
                    if (readRow >= h || slots_[readSlot].state != Slot::kFree) break;
                }
                Slot& slot = slots_[readSlot];
                ShapeBand(slot.in, page, std::min(band, h - readRow));
                reader.ReadLines(slot.in);
                if (readRow == 0) afterFirstRead();
                readRow += slot.in.height;
                {
                    std::lock_guard<std::mutex> guard(lock_);
                    slot.state = Slot::kQueued;
                    queue_.push_back(readSlot);
                }
                wake_.notify_all();
                readSlot = (readSlot + 1) % slots_.size();
            }
            Slot& slot = slots_[writeSlot];
            {
                std::unique_lock<std::mutex> guard(lock_);
                done_.wait(guard, [&] { return slot.state == Slot::kDone || !error_.empty(); });
                if (!error_.empty()) throw Failure(error_);
            }
            writer.WriteLines(slot.out);
            writtenRow += slot.in.height;
            if (onLines) onLines(slot.in.height);
            {
                std::lock_guard<std::mutex> guard(lock_);
                slot.state = Slot::kFree;
            }
            writeSlot = (writeSlot + 1) % slots_.size();
        }
    }

private:
    void Work(unsigned lane) {
        for (;;) {
            size_t index;
            {
                std::unique_lock<std::mutex> guard(lock_);
                wake_.wait(guard, [&] { return stopping_ || !queue_.empty(); });
                if (stopping_) return;
                index = queue_.front();
                queue_.pop_front();
                slots_[index].state = Slot::kConverting;
            }
            std::string failure;
            try {
                converter_.Convert(slots_[index].in, slots_[index].out, lane);
            } catch (const std::bad_alloc&) {
                failure = "out of memory while converting '" + inName_ + "'";
            } catch (const std::exception& e) {
                failure = e.what();
            }
            {
                std::lock_guard<std::mutex> guard(lock_);
                slots_[index].state = Slot::kDone;
                if (!failure.empty() && error_.empty()) error_ = failure;
            }
            done_.notify_all();
        }
    }

    void Stop() {
        {
            std::lock_guard<std::mutex> guard(lock_);
            stopping_ = true;
        }
        wake_.notify_all();
        for (std::thread& t : pool_) t.join();
        pool_.clear();
    }

    PageConverter& converter_;
    std::string inName_;
    std::vector<Slot> slots_;
    std::deque<size_t> queue_;
    std::mutex lock_;
    std::condition_variable wake_;
    std::condition_variable done_;
    bool stopping_ = false;
    std::string error_;
    std::vector<std::thread> pool_;
};

// A whole image in memory as a one-page file.
class MemoryReader final : public ImageReader {
public:
    explicit MemoryReader(const Image& image) : image_(image) {
        page_ = image.Band(image.height);
        page_.icc = image.icc;
        page_.meta = image.meta;
    }
    FileFormat format() const override { return FileFormat::kTiff; }
    void ReadLines(Image& band) override {
        CopyLines(image_, row_, band, 0, band.height);
        row_ += band.height;
    }

private:
    const Image& image_;
    uint32_t row_ = 0;
};

class MemoryWriter final : public ImageWriter {
public:
    explicit MemoryWriter(Image& image) : image_(image) {}
    void BeginPage(const Image& page, uint32_t, uint32_t) override {
        image_ = page.Band(page.height);
        image_.icc = page.icc;
        image_.meta = page.meta;
        image_.Allocate();
        row_ = 0;
    }
    void WriteLines(const Image& band) override {
        CopyLines(band, 0, image_, row_, band.height);
        row_ += band.height;
    }
    void Finish() override {}

private:
    Image& image_;
    uint32_t row_ = 0;
};

}  // namespace

void ConvertPages(ImageReader& reader, const std::string& inName, const SourceChooser& sourceFor, const Profile& dst,
                  const ConvertOptions& options, ImageWriter& writer, ConvertStats* stats) {
    const uint32_t pages = reader.pageCount();
    const double start = Seconds();
    double lastDrawn = 0;
    bool drawn = false;
    ConvertStats total;
    uint32_t pageIndex = 0;
    do {
        const Image& page = reader.page();
        const Profile src = sourceFor(page);
        const unsigned threads = std::max(1u, options.threads);
        PageConverter converter(page, inName, src, dst, options, threads);
        const uint32_t bands = (page.height + converter.bandLines() - 1) / converter.bandLines();
        BandPipeline pipeline(converter, std::min(threads, bands), inName);
        uint64_t pageLines = 0;
        const auto beginPage = [&] {
            converter.Build(page);
            if (pageIndex == 0) total.buildSeconds = converter.buildSeconds();
            writer.BeginPage(converter.outPage(), pageIndex, pages);
        };
        pipeline.Run(reader, page, writer, beginPage, [&](uint32_t lines) {
            pageLines += lines;
            const double now = Seconds();
            if (options.progress && now - start > 0.3 && now - lastDrawn > 0.1) {
                DrawProgress((pageIndex + double(pageLines) / page.height) / pages, pageIndex, pages);
                lastDrawn = now;
                drawn = true;
            }
        });
        total.threads = std::max(total.threads, pipeline.workers());
        total.blocks += bands;
        total.pixels += page.pixelCount();
        ++pageIndex;
    } while (reader.NextPage());
    writer.Finish();
    if (drawn) ClearProgress();
    total.pages = pageIndex;
    total.convertSeconds = Seconds() - start;
    if (stats) *stats = total;
}

Image ConvertImage(const Image& in, const std::string& inName, const Profile& src, const Profile& dst,
                   const ConvertOptions& options, ConvertStats* stats) {
    MemoryReader reader(in);
    Image out;
    MemoryWriter writer(out);
    ConvertPages(reader, inName, [&src](const Image&) { return src; }, dst, options, writer, stats);
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
