// The profile report shared by `tintra info` and `tintra-inspect`.
#include "tools/common/profile_report.h"

#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "profile/profile_file.h"
#include "profile/profile_model.h"

namespace tintra3::report {

namespace {

// A signature as its four characters when they are printable, else in hex
// (zero or binary fields are common in real headers).
std::string SigText(uint32_t sig) {
    char text[5] = {char(sig >> 24), char(sig >> 16), char(sig >> 8), char(sig), 0};
    for (int i = 0; i < 4; ++i) {
        if (!std::isprint(static_cast<unsigned char>(text[i]))) {
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%08" PRIX32, sig);
            return hex;
        }
    }
    return std::string("'") + text + "'";
}

void PrintHeader(const ProfileHeader& h) {
    std::printf("  header\n");
    std::printf("    size          %" PRIu32 "\n", h.size);
    std::printf("    cmm           %s\n", SigText(h.cmmType).c_str());
    // Version: major byte, then minor and bug-fix nibbles.
    std::printf("    version       0x%08" PRIX32 " (%u.%u.%u)\n", h.version, unsigned(h.version >> 24),
                unsigned((h.version >> 20) & 0xF), unsigned((h.version >> 16) & 0xF));
    std::printf("    class         %s\n", SigText(h.deviceClass).c_str());
    std::printf("    colour space  %s\n", SigText(h.colorSpace).c_str());
    std::printf("    PCS           %s\n", SigText(h.pcs).c_str());
    std::printf("    date          %04u-%02u-%02u %02u:%02u:%02u\n", unsigned(h.dateTime[0]), unsigned(h.dateTime[1]),
                unsigned(h.dateTime[2]), unsigned(h.dateTime[3]), unsigned(h.dateTime[4]), unsigned(h.dateTime[5]));
    std::printf("    magic         %s%s\n", SigText(h.magic).c_str(), h.magic == kSigAcsp ? "" : " (not 'acsp')");
    std::printf("    platform      %s\n", SigText(h.platform).c_str());
    std::printf("    flags         0x%08" PRIX32 "\n", h.flags);
    std::printf("    manufacturer  %s\n", SigText(h.manufacturer).c_str());
    std::printf("    model         %s\n", SigText(h.model).c_str());
    std::printf("    attributes    0x%08" PRIX32 " 0x%08" PRIX32 "\n", h.attributes[0], h.attributes[1]);
    std::printf("    intent        %" PRIu32 "\n", h.renderingIntent);
    std::printf("    illuminant    %.6f %.6f %.6f\n", FromS15Fixed16(h.illuminant[0]), FromS15Fixed16(h.illuminant[1]),
                FromS15Fixed16(h.illuminant[2]));
    std::printf("    creator       %s\n", SigText(h.creator).c_str());
}

void PrintDirectory(ProfileFile* profile) {
    const TagDirectory& tags = profile->tags;
    std::printf("  tags (%" PRIu32 ")\n", tags.count);
    for (uint32_t i = 0; i < tags.count; ++i) {
        const TagEntry& e = tags.entries[i];
        uint32_t type = 0;
        const std::string typeText =
            PeekTagType(profile, int32_t(i), &type) ? SigText(type) : std::string("unreadable");
        std::printf("    %3" PRIu32 "  %-10s offset %8" PRIu32 "  size %8" PRIu32 "  type %s\n", i,
                    SigText(e.signature).c_str(), e.offset, e.size, typeText.c_str());
    }
}

// One line describing a built model, or "fails".
std::string DescribeModel(int ok, const ProfileModel& m) {
    if (!ok) return "fails";
    char line[160];
    const std::string spaces = SigText(m.inputSpace) + " -> " + SigText(m.outputSpace);
    switch (m.kind) {
        case kKindMatrixTrc:
            std::snprintf(line, sizeof line, "kind 1 matrix/TRC  3 -> 3  %s", spaces.c_str());
            break;
        case kKindLut:
            std::snprintf(line, sizeof line, "kind 2 lut  %u -> %u  grid %u  %u-bit  %s", unsigned(m.lut.inputChannels),
                          unsigned(m.lut.outputChannels), unsigned(m.lut.gridPoints), unsigned(m.lut.precision),
                          spaces.c_str());
            break;
        case kKindGray:
            std::snprintf(line, sizeof line, "kind 3 grey  1 -> 1  %s", spaces.c_str());
            break;
        default:
            std::snprintf(line, sizeof line, "kind %u (unknown)", unsigned(m.kind));
            break;
    }
    return line;
}

void PrintModels(ProfileFile* profile) {
    std::printf("  models\n");
    for (uint16_t intent = 0; intent <= 3; ++intent) {
        ProfileModel source{};
        const int sourceOk = BuildSourceModel(intent, profile, &source);
        const std::string sourceText = DescribeModel(sourceOk, source);
        ReleaseProfileModel(&source);

        ProfileModel destination{};
        const int destinationOk = BuildDestinationModel(intent, profile, 0, &destination);
        const std::string destinationText = DescribeModel(destinationOk, destination);
        ReleaseProfileModel(&destination);

        std::printf("    intent %u  source:      %s\n", unsigned(intent), sourceText.c_str());
        std::printf("              destination: %s\n", destinationText.c_str());
    }
}

}  // namespace

bool PrintProfileReport(const std::string& path, const std::string& title, std::string* error,
                        const std::string& extra) {
    ProfileFile profile{};
    if (!OpenProfile(path.c_str(), &profile)) {
        const char* const reason = "cannot read as an ICC profile (missing, unreadable, or header or tag directory cut short)";
        if (error) {
            *error = reason;
            return false;
        }
        // One line in the report, and on to the next file.
        std::printf("%s: error: %s\n\n", title.c_str(), reason);
        return false;
    }
    std::printf("%s\n", title.c_str());
    PrintHeader(profile.header);
    PrintDirectory(&profile);
    PrintModels(&profile);
    CloseProfile(&profile);
    std::fputs(extra.c_str(), stdout);
    std::printf("\n");
    return true;
}

}  // namespace tintra3::report
