// The operating-system layer: path splitting (on Windows by the runtime, as
// characters of the multibyte code page) and opening one profile from
// several readers at once.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#ifdef _WIN32
#  include <mbctype.h>
#endif

#include "platform/platform.h"
#include "support/test_support.h"

namespace tintra3::platform {
namespace {

struct Parts {
    std::string drive, dir, name, ext;
};

// Buffers the size the top level uses for its folder check.
Parts Split(const std::string& path) {
    char drive[3] = {}, dir[250] = {}, name[250] = {}, ext[5] = {};
    SplitPath(path.c_str(), {drive, sizeof drive, dir, sizeof dir, name, sizeof name, ext, sizeof ext});
    return {drive, dir, name, ext};
}

struct SplitCase {
    const char* path;
    Parts expected;
};

void ExpectSplits(const std::vector<SplitCase>& cases) {
    for (const SplitCase& c : cases) {
        SCOPED_TRACE(c.path);
        const Parts got = Split(c.path);
        EXPECT_EQ(got.drive, c.expected.drive);
        EXPECT_EQ(got.dir, c.expected.dir);
        EXPECT_EQ(got.name, c.expected.name);
        EXPECT_EQ(got.ext, c.expected.ext);
    }
}

TEST(Platform, SplitPathLikeTheRuntime) {
    ExpectSplits({
        {"C:\\color\\Monitor\\srgb.icc", {"C:", "\\color\\Monitor\\", "srgb", ".icc"}},  // drive and backslashes
        {"/usr/share/color/a.icm", {"", "/usr/share/color/", "a", ".icm"}},              // forward slashes
        {"x\\Monitor/srgb.icc", {"", "x\\Monitor/", "srgb", ".icc"}},                     // mixed: the last one counts
        {"srgb.icc", {"", "", "srgb", ".icc"}},                                           // a bare name
        {"dir.d/noext", {"", "dir.d/", "noext", ""}},                                    // a dot in the folder only
        {"a.b.icc", {"", "", "a.b", ".icc"}},                                             // the last dot starts the extension
        {"C:", {"C:", "", "", ""}},                                                       // a drive alone
        {"Monitor/", {"", "Monitor/", "", ""}},                                           // no file name
    });
}

TEST(Platform, LongPartsAreCut) {
    const std::string path = "/" + std::string(400, 'd') + "/name.icc2";
    const Parts got = Split(path);
    EXPECT_EQ(got.dir, path.substr(0, 249));  // 249 bytes and the NUL
    EXPECT_EQ(got.name, "name");
    EXPECT_EQ(got.ext, ".icc");  // 4 bytes and the NUL
}

#ifdef _WIN32
// 0x95 0x5C is one character of code page 932; its second byte is the code
// of '\'. Read as bytes, the folder "\x95\x5C" would end in a separator.
TEST(Platform, DoubleByteTrailBackslashIsNoSeparator) {
    const int previous = _getmbcp();
    ASSERT_EQ(_setmbcp(932), 0);
    ExpectSplits({
        {"C:\\p\\\x95\x5C\\srgb.icc", {"C:", "\\p\\\x95\x5C\\", "srgb", ".icc"}},  // folder named by the character
        {"C:\\p\\\x95\x5C" "b.icc", {"C:", "\\p\\", "\x95\x5C" "b", ".icc"}},       // file name starting with it
    });
    const char folder[] = "\\p\\\x95\x5C";
    const char* p = folder;
    const char* last = nullptr;
    for (; *p != '\0'; p = NextCharacter(p))
        if (*p == '\\') last = p;
    EXPECT_EQ(last, folder + 2);  // the trail byte is stepped over
    const char lone[] = "\x95";
    EXPECT_EQ(NextCharacter(lone), lone + 1);  // a lead byte before the NUL does not step past it
    _setmbcp(previous);
}
#endif

// A profile open for the header check does not lock out a second reader:
// another thread's tintra_Init or a program viewing the file.
TEST(Platform, ReadersShareAFile) {
    const std::string path = test::WriteTempFile("shared.icc", std::vector<uint8_t>(200, 7));
    File first, second;
    ASSERT_TRUE(OpenForRead(path.c_str(), &first));
    std::FILE* viewer = std::fopen(path.c_str(), "rb");
    ASSERT_NE(viewer, nullptr);
    ASSERT_TRUE(OpenForRead(path.c_str(), &second));
    uint8_t bytes[128];
    uint32_t got = 0;
    EXPECT_TRUE(Read(&second, bytes, sizeof bytes, &got));
    EXPECT_EQ(got, 128u);
    Close(&second);
    Close(&first);
    std::fclose(viewer);
}

}  // namespace
}  // namespace tintra3::platform
