// An open ICC profile: header, tag directory, tag lookup.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tintra3 {

// Signatures as big-endian u32.
constexpr uint32_t Sig(const char (&s)[5]) {
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
           (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

constexpr uint32_t kSigAcsp = Sig("acsp");
constexpr uint32_t kSigPrtr = Sig("prtr");
constexpr uint32_t kSigGray = Sig("GRAY");
constexpr uint32_t kSigXyz = Sig("XYZ ");
constexpr uint32_t kSigLab = Sig("Lab ");
constexpr uint32_t kSigLch = Sig("Lch ");

struct ProfileHeader {
    uint32_t size;
    uint32_t cmmType;
    uint32_t version;
    uint32_t deviceClass;
    uint32_t colorSpace;
    uint32_t pcs;
    uint16_t dateTime[6];
    uint32_t magic;
    uint32_t platform;
    uint32_t flags;
    uint32_t manufacturer;
    uint32_t model;
    uint32_t attributes[2];
    uint32_t renderingIntent;
    uint32_t illuminant[3];  // raw s15Fixed16
    uint32_t creator;
};

struct TagEntry {
    uint32_t signature;
    uint32_t offset;
    uint32_t size;
};

struct TagDirectory {
    uint32_t count;
    TagEntry* entries;
    uint32_t owned;
};

struct ProfileFile {
    std::FILE* stream;
    ProfileHeader header;
    TagDirectory tags;
    uint32_t valid;
    uint64_t fileSize;  // bytes in the file, for bounding counts read from it
};

// Channels of a device colour-space signature: GRAY 1; XYZ, Lab, Luv, YCbr,
// Yxy, RGB, HSV, HLS, CMY 3; CMYK 4; 2CLR ... FCLR 2 ... 15. 0 for a
// signature without a defined count (not checked against the tables).
uint32_t ColourSpaceChannels(uint32_t space);

double FromS15Fixed16(uint32_t raw);
int32_t ToS15Fixed16(double x);

// 1 on success, 0 on failure. A failed open releases what it opened.
int OpenProfile(const char* path, ProfileFile* profile);
// The same over a stream already open (the profile takes it over, closing it
// on failure too): lets profiles held in memory be read without a file.
int OpenProfileStream(std::FILE* stream, ProfileFile* profile);
void CloseProfile(ProfileFile* profile);
int FindTag(ProfileFile* profile, uint32_t signature, int32_t* index, uint32_t* type);
int PeekTagType(ProfileFile* profile, int32_t index, uint32_t* type);

}  // namespace tintra3
