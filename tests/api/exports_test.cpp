// The shared library's dynamic symbol table holds the C interface and
// nothing else: no C++ name of the core, no runtime helper.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

namespace {

// The four layers: top level; toolbox; matcher object; selector and dispatch.
const std::set<std::string> kExported = {
    "tintra", "tintra_Init", "tintra_Proc", "tintra_Free", "QemToolboxInit", "QemToolboxProc", "QemToolboxPostProc",
    "QemToolboxResetMatchingParam", "QemToolboxResetProfiles", "QemToolboxChangeImageWidth", "SetDirectoryName",
    "QemToolboxChangeImageLines", "QemToolboxChangeBufSize", "QemToolboxChange1DLUT", "QemToolboxMerge1DLUT",
    "QemToolboxLocateProfile", "InitCColorMatcher", "ReinitCColorMatcher", "TermCColorMatcher", "ColorMatchingProc1",
    "ColorMatchingProc2", "GetProgress", "CMGetError", "ChangeImageLines", "ChangeImageWidth", "ChangeBufSize",
    "Change1DLut", "Merge1DLut", "Initialize", "TermMatchingSelector", "LocateProfile", "CMatching1", "CMatching2",
};

TEST(Exports, ExactlyTheThirtyThreeCNames) {
    ASSERT_EQ(kExported.size(), 33u);
    const std::string command = std::string(TINTRA3_NM) + " -D --defined-only '" + TINTRA3_SHARED_LIBRARY + "'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::set<std::string> names;
    char value[64], type[8], name[512];  // each line: "<value> <type> <name>"
    while (std::fscanf(pipe, "%63s %7s %511s", value, type, name) == 3) {
        names.insert(std::string(name, std::strcspn(name, "@")));  // without a version suffix
        EXPECT_STREQ(type, "T") << name;                           // every export is code
    }
    ASSERT_EQ(pclose(pipe), 0) << command;
    for (const std::string& name : kExported) EXPECT_TRUE(names.count(name)) << "missing: " << name;
    for (const std::string& name : names) EXPECT_TRUE(kExported.count(name)) << "unexpected: " << name;
}

}  // namespace
