// A small writer of version-2 ICC profiles: any header fields and the tag
// types 'curv', 'XYZ ', 'mft1' and 'mft2'. It can also write broken files on
// purpose (truncated, wrong counts, offsets past the end, wrong types), which
// the tests use to check that reading fails cleanly.
//
// Not part of libtintra3: tests and the command-line tool link it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tintra3::icc {

constexpr uint32_t Sig4(const char (&s)[5]) {
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
           (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

// s15Fixed16 encoding of a double (rounded to nearest).
uint32_t S15Fixed16(double x);

struct Header {
    std::optional<uint32_t> size;  // default: the real file size
    uint32_t cmmType = 0;
    uint32_t version = 0x02100000;
    uint32_t deviceClass = Sig4("mntr");
    uint32_t colorSpace = Sig4("RGB ");
    uint32_t pcs = Sig4("XYZ ");
    uint16_t dateTime[6] = {2026, 1, 1, 0, 0, 0};
    uint32_t magic = Sig4("acsp");
    uint32_t platform = 0;
    uint32_t flags = 0;
    uint32_t manufacturer = 0;
    uint32_t model = 0;
    uint32_t attributes[2] = {0, 0};
    uint32_t renderingIntent = 0;
    std::array<double, 3> illuminant = {0.9642, 1.0, 0.8249};  // D50
    uint32_t creator = Sig4("t3iw");
};

// One lookup table for 'mft1' (8-bit) or 'mft2' (16-bit). Values are given as
// u16 in both cases; an 'mft1' writes their low byte, unless some value of the
// lut exceeds 255: then all are taken as 16-bit and written as (v + 128) / 257
// (so IdentityLut(c, g, 256) serves both).
struct Lut {
    uint8_t inputChannels = 3;
    uint8_t outputChannels = 3;
    uint8_t gridPoints = 2;
    std::array<double, 9> matrix = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    // Per input channel: 256 entries for mft1, inputEntries for mft2.
    std::vector<std::vector<uint16_t>> inputTables;
    // outputChannels x gridPoints^inputChannels, output channel fastest.
    std::vector<uint16_t> clut;
    // Per output channel: 256 entries for mft1, outputEntries for mft2.
    std::vector<std::vector<uint16_t>> outputTables;
};

// Tag element bytes (type signature first).
std::vector<uint8_t> CurvElement(const std::vector<uint16_t>& entries);  // 0 = identity, 1 = u8Fixed8 gamma
std::vector<uint8_t> GammaElement(double gamma);                       // 'curv' with one entry
std::vector<uint8_t> XyzElement(const std::vector<std::array<double, 3>>& values);
std::vector<uint8_t> Mft1Element(const Lut& lut);
std::vector<uint8_t> Mft2Element(const Lut& lut);
// 'desc' (textDescriptionType: the ASCII text, empty Unicode and ScriptCode
// parts) and 'text' (textType) elements.
std::vector<uint8_t> DescriptionElement(const std::string& text);
std::vector<uint8_t> TextElement(const std::string& text);
// Any element with an arbitrary type signature and payload after the 8-byte prefix.
std::vector<uint8_t> RawElement(uint32_t type, const std::vector<uint8_t>& payload);

// An identity lut: linear input/output tables of `entries` values (mft2) or
// 256 (mft1), and a CLUT that maps each node to its own coordinates (inputs
// must equal outputs) or to a constant when they differ.
Lut IdentityLut(uint8_t channels, uint8_t gridPoints, uint16_t entries);
// A lut of any shape: linear tables of `entries` values and a CLUT of
// varied node values (not an identity; inputs and outputs may differ).
Lut ShapedLut(uint8_t inputs, uint8_t outputs, uint8_t gridPoints, uint16_t entries);

class ProfileWriter {
public:
    Header header;

    // Adds a tag; the element is stored once per call, 4-byte aligned.
    void AddTag(uint32_t signature, std::vector<uint8_t> element);
    // Adds a directory entry that points at the element of an earlier tag.
    void AddLinkedTag(uint32_t signature, uint32_t existingSignature);

    // Deliberate damage, applied by Bytes():
    std::optional<uint32_t> tagCountOverride;            // directory count written instead of the real one
    std::optional<size_t> truncateAt;                    // cut the file after this many bytes
    struct EntryOverride {
        uint32_t signature;
        std::optional<uint32_t> offset;
        std::optional<uint32_t> size;
        std::optional<uint32_t> type;  // replaces the element's type signature
    };
    std::vector<EntryOverride> entryOverrides;

    std::vector<uint8_t> Bytes() const;
    bool WriteFile(const std::string& path) const;

private:
    struct Entry {
        uint32_t signature;
        size_t element;  // index into elements_
    };
    std::vector<Entry> entries_;
    std::vector<std::vector<uint8_t>> elements_;
};

// Ready-made profiles.
struct Primaries {
    std::array<double, 3> red = {0.4361, 0.2225, 0.0139};  // sRGB, D50-adapted
    std::array<double, 3> green = {0.3851, 0.7169, 0.0971};
    std::array<double, 3> blue = {0.1431, 0.0606, 0.7141};
    std::array<double, 3> white = {0.9642, 1.0, 0.8249};
};
// RGB matrix/TRC display profile; each curve given as 'curv' entries.
ProfileWriter MatrixTrcProfile(const Primaries& p, const std::vector<uint16_t>& curve);
ProfileWriter MatrixTrcGammaProfile(const Primaries& p, double gamma);
// Grey profile with a 'kTRC' (pcs 'XYZ ' or 'Lab ') holding the gamma as it
// is: with a Lab connection space the curve is then read as lightness.
ProfileWriter GrayProfile(double gamma, uint32_t pcs);
// Grey profile of luminance Y = x^gamma with a Lab connection space, its
// 'kTRC' sampled as lightness (what the library reads exactly).
ProfileWriter GrayLightnessProfile(double gamma);
// Lut profile: A2B0 (and B2A0) from the given luts, class and spaces as given.
ProfileWriter LutProfile(uint32_t deviceClass, uint32_t colorSpace, uint32_t pcs, const Lut* a2b0, const Lut* b2a0,
                         bool sixteenBit);

}  // namespace tintra3::icc
