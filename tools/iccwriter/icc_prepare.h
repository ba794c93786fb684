// What a profile means, read in double precision, and what the library can
// take from it.
//
// The library reads only version-2 constructs: 'curv', 'XYZ ', 'mft1' and
// 'mft2' tags, A2Bx/B2Ax chosen by intent for printers only, a grey level
// taken as an XYZ code when the connection space is XYZ, and 16-bit Lab as
// L = code × 100/65535, a/b = code/256 − 128. Prepare() rewrites what a
// profile says in those terms so that the library computes what the profile
// means; LibraryProblem() tells, for profile bytes handed over unchanged,
// why the library would refuse them.
//
// Not part of libtintra3: the command-line tool and the tests link it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tintra3::icc {

enum class Role { kSource, kDestination };

// Intent numbers as the toolbox takes them: 0 perceptual, 1 relative
// colorimetric, 2 absolute colorimetric, 3 saturation.
// Device channels of a colour space the library handles, 0 for any other.
int ColourChannels(uint32_t space);

const char* IntentName(int toolboxIntent);

// Why the library cannot use `profile` in `role` at `toolboxIntent`, naming
// the tag and the reason ("'para' curve in rTRC"); empty when it can.
std::string LibraryProblem(const std::vector<uint8_t>& profile, Role role, int toolboxIntent);

// A remark on a profile the library accepts but reads differently from what
// it means (empty when there is none): a grey profile with an XYZ connection
// space, Lab tables in an encoding the library decodes otherwise.
std::string LibraryMisreading(const std::vector<uint8_t>& profile);

struct Prepared {
    std::vector<uint8_t> bytes;         // the profile to hand to the library
    std::vector<std::string> changes;   // one line per rewrite; empty: bytes are the input
};

// The version-2 profile the library reads as `profile` means. Throws
// std::runtime_error naming what cannot be read when the input is not a
// profile at all; constructs it cannot translate are left for
// LibraryProblem() to name.
Prepared Prepare(const std::vector<uint8_t>& profile);

// A grey tone curve of the given gamma (Y = x^gamma) as lightness: the
// 'kTRC' of a grey profile with a Lab connection space.
std::vector<uint16_t> GammaLightnessTable(double gamma);

}  // namespace tintra3::icc
