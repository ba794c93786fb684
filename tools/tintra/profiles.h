// Profiles as the tool handles them: a file named on the command line, a
// profile embedded in an image, or one of the built-in profiles made with the
// project's ICC writer. The library reads profiles from files only, so every
// profile ends up with a path the library can open.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/tintra/common.h"

namespace tintra3::cli {

constexpr const char* kBuiltinPrefix = "builtin:";

// Names after "builtin:": srgb, gray22, cmyk, lab.
std::vector<std::string> BuiltinNames();
// The bytes of a built-in profile; throws Failure for an unknown name.
std::vector<uint8_t> BuiltinProfileBytes(const std::string& name);

struct Profile {
    std::string label;            // for messages: "builtin:cmyk", "'a.icc'", "the profile embedded in 'x.tif'"
    std::vector<uint8_t> bytes;   // the whole profile (embedded into outputs)
    std::string path;             // what the library opens
    std::shared_ptr<TempFile> temp;
    std::vector<uint8_t> prepared;        // what the library reads when it differs from `bytes`
    std::vector<std::string> preparation; // what was rewritten, or left alone, and why

    const std::vector<uint8_t>& LibraryBytes() const { return prepared.empty() ? bytes : prepared; }

    // Header colour space signature (0 when the file is shorter than a header).
    uint32_t ColorSpace() const;
};

// Profiles are prepared for the library (see tools/iccwriter/icc_prepare.h)
// unless this is set: then the library gets them exactly as given.
void SetProfilesAsIs(bool asIs);
bool ProfilesAsIs();

// A profile from a command-line argument: "builtin:NAME" or a file path.
Profile LoadProfile(const std::string& name);
// A profile from bytes embedded in an image.
Profile EmbeddedProfile(const std::vector<uint8_t>& bytes, const std::string& imagePath);
// "source profile 'a.icc': 'para' curve in rTRC" for the first of the two
// profiles the library cannot use at `intent` (toolbox numbering), judged on
// what it will read; empty when both look usable.
std::string ProfileProblems(const Profile& src, const Profile& dst, int32_t intent);

// With --as-is: a note on standard error for each profile the library will
// read otherwise than it means (an XYZ grey, Lab tables it decodes off).
void NoteMisreadings(const Profile& src, const Profile& dst);

// Lines for `tintra info`: what preparation changed, and per intent whether
// the profile serves as source and as destination, with the reason if not.
std::string UsabilityReport(const Profile& p);

// tintra prepare IN OUT: writes the profile the library reads exactly.
int PrepareCommand(const std::vector<std::string>& args);

// The built-in default for image data of `channels` channels in the given
// colour space (Lab data get builtin:lab, other data go by channel count).
std::string DefaultProfileFor(int channels, uint32_t colorSpace);

// Channels of an ICC colour space signature (0: not one the tool handles).
int ChannelsOf(uint32_t colorSpace);
std::string SignatureText(uint32_t sig);

// ---- the ink model behind builtin:cmyk, exposed for tests ----------------
// Device CMYK (each 0..1) to CIELAB relative to the paper (D50 white).
void InkModelForward(const double cmyk[4], double lab[3]);
// CIELAB to device CMYK with the model's black generation and ink limit.
void InkModelInverse(const double lab[3], double cmyk[4]);

}  // namespace tintra3::cli
