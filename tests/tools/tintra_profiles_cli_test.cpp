// tintra's profile preparation seen from the command line: grey converts as
// the peer does, profiles the library refuses as they are work once
// prepared, --as-is gives what the library makes of the file with the reason
// for a refusal, and `prepare` writes a profile the library takes directly.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

using tintra3::test::RealProfile;
using tintra3::test::TempPath;

std::string Slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), {}};
}

struct Result {
    int status;
    std::string out, err;
};

Result Tintra(const std::string& args) {
    const std::string out = TempPath("prof_stdout.txt"), err = TempPath("prof_stderr.txt");
    const std::string cmd = "'" + std::string(TINTRA_CLI) + "' " + args + " </dev/null >'" + out + "' 2>'" + err + "'";
    const int raw = std::system(cmd.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
}

// Values from LittleCMS 2.14 (transicc, relative colorimetric) on the same
// files, rounded; grey inputs 64, 128, 200 unless said otherwise.
TEST(TintraProfiles, GreyConvertsAsThePeerDoes) {
    const std::string gray = RealProfile("Gray.icc"), sgray = RealProfile("ghostscript/sgray.icc");
    const struct {
        std::string args;
        const char* expected;
    } cases[] = {
        // builtin:gray22 was a stop off (87 177 255); fixed in the profile itself, so --as-is agrees.
        {"eval --src builtin:gray22 --dst builtin:srgb --intent relative 64 128 200", "62 62 62\n129 129 129\n201 201 201\n"},
        {"--as-is eval --src builtin:gray22 --dst builtin:srgb --intent relative 64 128 200", "62 62 62\n129 129 129\n201 201 201\n"},
        // The other way (was 186 for white; peer: 255, 127.03).
        {"eval --src builtin:srgb --dst builtin:gray22 --intent relative 255,255,255 128,128,128", "255\n127\n"},
        // XYZ-connection grey profiles, rewritten with Lab (peer: 137.2 187.8 229.1 and 81.3 146.4 210.2).
        {"eval --src " + gray + " --dst builtin:srgb --intent relative 64 128 200", "137 137 137\n188 188 188\n229 229 229\n"},
        {"eval --src " + sgray + " --dst builtin:srgb --intent relative 64 128 200", "81 81 81\n146 146 146\n210 210 210\n"},
        // As they are, the library doubles Y: that stays what --as-is shows.
        {"--as-is eval --src " + gray + " --dst builtin:srgb --intent relative 64 128 200", "188 188 188\n255 255 255\n255 255 255\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = Tintra(c.args);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, c.expected);
    }
}

TEST(TintraProfiles, RefusalsNameProfileTagAndReason) {
    const std::string psCmyk = RealProfile("ghostscript/ps_cmyk.icc"), adobe = RealProfile("colord/AdobeRGB1998.icc");
    const std::string crayons = RealProfile("colord/Crayons.icc");
    const struct {
        std::string args;
        int status;
        std::string message;
    } cases[] = {
        // Printer tables for perceptual only: prepared, every intent works.
        {"eval --src builtin:srgb --dst " + psCmyk + " --intent relative 10,20,30", 0, ""},
        {"--as-is eval --src builtin:srgb --dst " + psCmyk + " --intent relative 10,20,30", 1,
         "destination profile '" + psCmyk + "': 'B2A1' missing for relative colorimetric; the profile has only A2B0/B2A0"},
        {"--as-is eval --src builtin:srgb --dst " + psCmyk + " --intent perceptual 10,20,30", 0, ""},
        // Parametric curves: sampled when prepared, named when not.
        {"eval --src " + adobe + " --dst builtin:srgb 10,20,30", 0, ""},
        {"--as-is eval --src " + adobe + " --dst builtin:srgb 10,20,30", 1,
         "error 5000 (the transform could not be built): source profile '" + adobe + "': 'para' curve in rTRC"},
        // Named colours have nothing to convert with, prepared or not.
        {"eval --src " + crayons + " --dst builtin:srgb 1,2,3", 1, "named-colour profile"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = Tintra(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
}

TEST(TintraProfiles, PrepareWritesWhatTheLibraryTakes) {
    const struct {
        const char* input;
        const char* change;  // a line `prepare` must print
    } cases[] = {
        {"Gray.icc", "connection space 'XYZ ' -> 'Lab ' (grey)"},
        {"colord/sRGB.icc", "'rTRC' 'para' sampled into 'curv'"},
        {"ghostscript/gray_to_k.icc", "'B2A1' missing: uses 'B2A0'"},
        {"ghostscript/default_cmyk.icc", "'B2A0' 'mft1' rebuilt as 'mft2' in the library's Lab encoding"},
    };
    const tintra3::icc::Lut identity = tintra3::icc::IdentityLut(3, 2, 2);
    const std::string lab = tintra3::test::WriteTempFile(
        "lab-identity.icc", tintra3::icc::LutProfile(tintra3::icc::Sig4("spac"), tintra3::icc::Sig4("Lab "),
                                                     tintra3::icc::Sig4("Lab "), &identity, &identity, true)
                                .Bytes());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        const std::string out = TempPath("prepared.icc");
        std::filesystem::remove(out);
        const Result r = Tintra("prepare " + RealProfile(c.input) + " " + out);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(c.change), std::string::npos) << r.out;
        // The library opens the written file and builds relative transforms
        // both ways with it (paired with a Lab identity, which it takes on
        // either side).
        for (bool asSource : {true, false}) {
            const std::string& first = asSource ? out : lab;
            const std::string& second = asSource ? lab : out;
            ImageParams image{1, 1, 4, 16, 8, 8, TINTRA_INTERLEAVED, 0};
            char names[512] = {};
            std::strncpy(names, first.c_str(), 255);
            std::strncpy(names + 256, second.c_str(), 255);
            CColorMatcher* handle = nullptr;
            EXPECT_EQ(QemToolboxInit(&image, names, 1, 1, &handle), 0u) << (asSource ? "as source" : "as destination");
            QemToolboxPostProc(handle);
        }
    }
    // Nothing is written for a file that is no profile.
    const std::string bad = tintra3::test::WriteTempFile("not-a-profile.icc", {'h', 'e', 'l', 'l', 'o'});
    const std::string out = TempPath("never.icc");
    std::filesystem::remove(out);
    const Result r = Tintra("prepare " + bad + " " + out);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("shorter than an ICC header"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
