// The ICC writer: serialises a header, a tag directory and tag elements into
// a version-2 profile, optionally damaged on purpose.
#include "tools/iccwriter/icc_writer.h"

#include "tools/iccwriter/icc_prepare.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace tintra3::icc {
namespace {

constexpr size_t kHeaderBytes = 128;
constexpr size_t kEntryBytes = 12;
// A CLUT larger than this is not something a test profile needs; IdentityLut
// leaves such a CLUT empty (the lut then claims more data than it holds).
constexpr uint64_t kMaxIdentityClut = uint64_t(1) << 24;

void PutU8(std::vector<uint8_t>& out, uint8_t v) { out.push_back(v); }

void PutU16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(uint8_t(v >> 24));
    out.push_back(uint8_t(v >> 16));
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

void SetU32(std::vector<uint8_t>& out, size_t at, uint32_t v) {
    out[at] = uint8_t(v >> 24);
    out[at + 1] = uint8_t(v >> 16);
    out[at + 2] = uint8_t(v >> 8);
    out[at + 3] = uint8_t(v);
}

// Type signature followed by the 4 reserved zero bytes every element starts with.
void PutPrefix(std::vector<uint8_t>& out, uint32_t type) {
    PutU32(out, type);
    PutU32(out, 0);
}

void PutMatrix(std::vector<uint8_t>& out, const std::array<double, 9>& m) {
    for (double e : m) PutU32(out, S15Fixed16(e));
}

// Linear ramp 0..65535 over n entries (n = 1 gives a single 0).
std::vector<uint16_t> Ramp(size_t n) {
    std::vector<uint16_t> t(n);
    for (size_t i = 0; i < n; ++i) t[i] = n > 1 ? uint16_t(std::lround(double(i) * 65535.0 / double(n - 1))) : 0;
    return t;
}

// Table c of a side, or a linear ramp of `fallback` entries when the lut
// gives fewer tables than channels.
const std::vector<uint16_t>& TableOrRamp(const std::vector<std::vector<uint16_t>>& tables, size_t c,
                                         std::vector<uint16_t>& scratch, size_t fallback) {
    if (c < tables.size()) return tables[c];
    scratch = Ramp(fallback);
    return scratch;
}

bool AnyAbove255(const Lut& lut) {
    auto above = [](const std::vector<uint16_t>& v) {
        for (uint16_t x : v)
            if (x > 255) return true;
        return false;
    };
    for (const auto& t : lut.inputTables)
        if (above(t)) return true;
    for (const auto& t : lut.outputTables)
        if (above(t)) return true;
    return above(lut.clut);
}

}  // namespace

uint32_t S15Fixed16(double x) {
    double scaled = std::nearbyint(x * 65536.0);
    if (std::isnan(scaled)) return 0;
    if (scaled >= 2147483647.0) return 0x7FFFFFFFu;
    if (scaled <= -2147483648.0) return 0x80000000u;
    return uint32_t(int32_t(scaled));
}

std::vector<uint8_t> CurvElement(const std::vector<uint16_t>& entries) {
    std::vector<uint8_t> out;
    out.reserve(12 + 2 * entries.size());
    PutPrefix(out, Sig4("curv"));
    PutU32(out, uint32_t(entries.size()));
    for (uint16_t e : entries) PutU16(out, e);
    return out;
}

std::vector<uint8_t> GammaElement(double gamma) {
    // u8Fixed8: 1.0 = 256; clamped to what the field can hold.
    double stored = std::nearbyint(gamma * 256.0);
    if (!(stored >= 0.0)) stored = 0.0;
    if (stored > 65535.0) stored = 65535.0;
    return CurvElement({uint16_t(stored)});
}

std::vector<uint8_t> XyzElement(const std::vector<std::array<double, 3>>& values) {
    std::vector<uint8_t> out;
    PutPrefix(out, Sig4("XYZ "));
    for (const auto& v : values)
        for (double c : v) PutU32(out, S15Fixed16(c));
    return out;
}

std::vector<uint8_t> Mft1Element(const Lut& lut) {
    // One byte per value. Values on the 16-bit scale (any value above 255)
    // become (v + 128) / 257, the usual 16-to-8-bit reduction; otherwise the
    // low byte is written as given.
    const bool reduce = AnyAbove255(lut);
    auto byte = [reduce](uint16_t v) { return reduce ? uint8_t((uint32_t(v) + 128) / 257) : uint8_t(v); };

    std::vector<uint8_t> out;
    PutPrefix(out, Sig4("mft1"));
    PutU8(out, lut.inputChannels);
    PutU8(out, lut.outputChannels);
    PutU8(out, lut.gridPoints);
    PutU8(out, 0);
    PutMatrix(out, lut.matrix);
    std::vector<uint16_t> scratch;
    for (size_t c = 0; c < lut.inputChannels; ++c)
        for (uint16_t v : TableOrRamp(lut.inputTables, c, scratch, 256)) PutU8(out, byte(v));
    for (uint16_t v : lut.clut) PutU8(out, byte(v));
    for (size_t c = 0; c < lut.outputChannels; ++c)
        for (uint16_t v : TableOrRamp(lut.outputTables, c, scratch, 256)) PutU8(out, byte(v));
    return out;
}

std::vector<uint8_t> Mft2Element(const Lut& lut) {
    // The entry counts come from the first table of each side.
    const size_t inEntries = lut.inputTables.empty() ? 2 : lut.inputTables[0].size();
    const size_t outEntries = lut.outputTables.empty() ? 2 : lut.outputTables[0].size();
    std::vector<uint8_t> out;
    PutPrefix(out, Sig4("mft2"));
    PutU8(out, lut.inputChannels);
    PutU8(out, lut.outputChannels);
    PutU8(out, lut.gridPoints);
    PutU8(out, 0);
    PutMatrix(out, lut.matrix);
    PutU16(out, uint16_t(inEntries));
    PutU16(out, uint16_t(outEntries));
    std::vector<uint16_t> scratch;
    for (size_t c = 0; c < lut.inputChannels; ++c)
        for (uint16_t v : TableOrRamp(lut.inputTables, c, scratch, inEntries)) PutU16(out, v);
    for (uint16_t v : lut.clut) PutU16(out, v);
    for (size_t c = 0; c < lut.outputChannels; ++c)
        for (uint16_t v : TableOrRamp(lut.outputTables, c, scratch, outEntries)) PutU16(out, v);
    return out;
}

std::vector<uint8_t> DescriptionElement(const std::string& text) {
    // The whole element is sized first and filled in place: ASCII count and
    // text with its NUL, Unicode language and count, ScriptCode code (2
    // bytes), count (1) and its fixed 67-byte string.
    const size_t ascii = text.size() + 1;
    std::vector<uint8_t> out(8 + 4 + ascii + 4 + 4 + 2 + 1 + 67, 0);
    SetU32(out, 0, Sig4("desc"));
    SetU32(out, 8, uint32_t(ascii));
    std::copy(text.begin(), text.end(), out.begin() + 12);
    return out;
}

std::vector<uint8_t> TextElement(const std::string& text) {
    std::vector<uint8_t> out(8 + text.size() + 1, 0);
    SetU32(out, 0, Sig4("text"));
    std::copy(text.begin(), text.end(), out.begin() + 8);
    return out;
}

std::vector<uint8_t> RawElement(uint32_t type, const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> out;
    PutPrefix(out, type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

Lut ShapedLut(uint8_t inputs, uint8_t outputs, uint8_t gridPoints, uint16_t entries) {
    Lut lut;
    lut.inputChannels = inputs;
    lut.outputChannels = outputs;
    lut.gridPoints = gridPoints;
    lut.inputTables.assign(inputs, Ramp(entries));
    lut.outputTables.assign(outputs, Ramp(entries));
    size_t nodes = 1;
    for (uint8_t c = 0; c < inputs; ++c) nodes *= gridPoints;
    lut.clut.resize(nodes * outputs);
    for (size_t i = 0; i < lut.clut.size(); ++i) lut.clut[i] = uint16_t(i * 4099u);
    return lut;
}

Lut IdentityLut(uint8_t channels, uint8_t gridPoints, uint16_t entries) {
    Lut lut;
    lut.inputChannels = channels;
    lut.outputChannels = channels;
    lut.gridPoints = gridPoints;
    lut.inputTables.assign(channels, Ramp(entries));
    lut.outputTables.assign(channels, Ramp(entries));

    uint64_t nodes = channels == 0 ? 0 : 1;
    for (int c = 0; c < channels && nodes <= kMaxIdentityClut; ++c) nodes *= gridPoints;
    if (nodes == 0 || nodes * channels > kMaxIdentityClut) return lut;

    // Node index n = sum of k_c * grid^(channels-1-c): the first input
    // channel varies slowest, as ICC lays out a CLUT. Each node's output
    // channel c is its own coordinate k_c scaled to 0..65535.
    const std::vector<uint16_t> coord = Ramp(gridPoints);
    lut.clut.resize(size_t(nodes) * channels);
    std::vector<uint32_t> k(channels, 0);
    for (uint64_t n = 0; n < nodes; ++n) {
        for (int c = 0; c < channels; ++c) lut.clut[size_t(n) * channels + c] = coord[k[c]];
        for (int c = channels - 1; c >= 0; --c) {
            if (++k[c] < gridPoints) break;
            k[c] = 0;
        }
    }
    return lut;
}

void ProfileWriter::AddTag(uint32_t signature, std::vector<uint8_t> element) {
    elements_.push_back(std::move(element));
    entries_.push_back({signature, elements_.size() - 1});
}

void ProfileWriter::AddLinkedTag(uint32_t signature, uint32_t existingSignature) {
    for (const Entry& e : entries_) {
        if (e.signature == existingSignature) {
            entries_.push_back({signature, e.element});
            return;
        }
    }
    throw std::invalid_argument("AddLinkedTag: no tag with that signature yet");
}

std::vector<uint8_t> ProfileWriter::Bytes() const {
    const size_t directoryEnd = kHeaderBytes + 4 + kEntryBytes * entries_.size();

    // Element placement: each element once, in the order added, 4-byte aligned.
    std::vector<size_t> offsets(elements_.size());
    size_t end = directoryEnd;
    for (size_t i = 0; i < elements_.size(); ++i) {
        offsets[i] = end;
        end += (elements_[i].size() + 3) & ~size_t(3);
    }

    std::vector<uint8_t> out;
    out.reserve(end);
    const Header& h = header;
    PutU32(out, h.size.value_or(uint32_t(end)));
    PutU32(out, h.cmmType);
    PutU32(out, h.version);
    PutU32(out, h.deviceClass);
    PutU32(out, h.colorSpace);
    PutU32(out, h.pcs);
    for (uint16_t d : h.dateTime) PutU16(out, d);
    PutU32(out, h.magic);
    PutU32(out, h.platform);
    PutU32(out, h.flags);
    PutU32(out, h.manufacturer);
    PutU32(out, h.model);
    PutU32(out, h.attributes[0]);
    PutU32(out, h.attributes[1]);
    PutU32(out, h.renderingIntent);
    for (double v : h.illuminant) PutU32(out, S15Fixed16(v));
    PutU32(out, h.creator);
    out.resize(kHeaderBytes, 0);

    PutU32(out, tagCountOverride.value_or(uint32_t(entries_.size())));
    std::vector<std::optional<uint32_t>> typeOverride(elements_.size());
    for (const Entry& e : entries_) {
        uint32_t offset = uint32_t(offsets[e.element]);
        uint32_t size = uint32_t(elements_[e.element].size());
        for (const EntryOverride& o : entryOverrides) {
            if (o.signature != e.signature) continue;
            if (o.offset) offset = *o.offset;
            if (o.size) size = *o.size;
            if (o.type) typeOverride[e.element] = o.type;
        }
        PutU32(out, e.signature);
        PutU32(out, offset);
        PutU32(out, size);
    }

    for (size_t i = 0; i < elements_.size(); ++i) {
        const size_t at = out.size();
        out.insert(out.end(), elements_[i].begin(), elements_[i].end());
        if (typeOverride[i] && elements_[i].size() >= 4) SetU32(out, at, *typeOverride[i]);
        out.resize(offsets[i] + ((elements_[i].size() + 3) & ~size_t(3)), 0);
    }

    if (truncateAt && *truncateAt < out.size()) out.resize(*truncateAt);
    return out;
}

bool ProfileWriter::WriteFile(const std::string& path) const {
    const std::vector<uint8_t> bytes = Bytes();
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = (std::fclose(f) == 0) && ok;
    return ok;
}

namespace {

ProfileWriter MatrixTrcWithCurve(const Primaries& p, std::vector<uint8_t> curveElement) {
    ProfileWriter w;
    w.header.deviceClass = Sig4("mntr");
    w.header.colorSpace = Sig4("RGB ");
    w.header.pcs = Sig4("XYZ ");
    w.AddTag(Sig4("wtpt"), XyzElement({p.white}));
    w.AddTag(Sig4("rXYZ"), XyzElement({p.red}));
    w.AddTag(Sig4("gXYZ"), XyzElement({p.green}));
    w.AddTag(Sig4("bXYZ"), XyzElement({p.blue}));
    // One curve element shared by the three channels, as many real profiles do.
    w.AddTag(Sig4("rTRC"), std::move(curveElement));
    w.AddLinkedTag(Sig4("gTRC"), Sig4("rTRC"));
    w.AddLinkedTag(Sig4("bTRC"), Sig4("rTRC"));
    return w;
}

}  // namespace

ProfileWriter MatrixTrcProfile(const Primaries& p, const std::vector<uint16_t>& curve) {
    return MatrixTrcWithCurve(p, CurvElement(curve));
}

ProfileWriter MatrixTrcGammaProfile(const Primaries& p, double gamma) {
    return MatrixTrcWithCurve(p, GammaElement(gamma));
}

ProfileWriter GrayProfile(double gamma, uint32_t pcs) {
    ProfileWriter w;
    w.header.deviceClass = Sig4("mntr");
    w.header.colorSpace = Sig4("GRAY");
    w.header.pcs = pcs;
    w.AddTag(Sig4("wtpt"), XyzElement({{0.9642, 1.0, 0.8249}}));
    w.AddTag(Sig4("kTRC"), GammaElement(gamma));
    return w;
}

ProfileWriter GrayLightnessProfile(double gamma) {
    ProfileWriter w;
    w.header.deviceClass = Sig4("mntr");
    w.header.colorSpace = Sig4("GRAY");
    w.header.pcs = Sig4("Lab ");
    w.AddTag(Sig4("wtpt"), XyzElement({{0.9642, 1.0, 0.8249}}));
    w.AddTag(Sig4("kTRC"), CurvElement(GammaLightnessTable(gamma)));
    return w;
}

ProfileWriter LutProfile(uint32_t deviceClass, uint32_t colorSpace, uint32_t pcs, const Lut* a2b0, const Lut* b2a0,
                         bool sixteenBit) {
    ProfileWriter w;
    w.header.deviceClass = deviceClass;
    w.header.colorSpace = colorSpace;
    w.header.pcs = pcs;
    w.AddTag(Sig4("wtpt"), XyzElement({{0.9642, 1.0, 0.8249}}));
    auto element = [sixteenBit](const Lut& lut) { return sixteenBit ? Mft2Element(lut) : Mft1Element(lut); };
    if (a2b0) w.AddTag(Sig4("A2B0"), element(*a2b0));
    if (b2a0) w.AddTag(Sig4("B2A0"), element(*b2a0));
    return w;
}

}  // namespace tintra3::icc
