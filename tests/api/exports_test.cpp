// The shared library's dynamic symbol table holds the C interface and
// nothing else: no C++ name of the core, no runtime helper.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

// The four exported layers, by family.
const std::set<std::string> kExported = {
    // top level
    "tintra", "tintra_Init", "tintra_Proc", "tintra_Free",
    // toolbox
    "QemToolboxInit", "QemToolboxProc", "QemToolboxPostProc", "QemToolboxResetMatchingParam",
    "QemToolboxResetProfiles", "QemToolboxChangeImageWidth", "QemToolboxChangeImageLines",
    "QemToolboxChangeBufSize", "QemToolboxChange1DLUT", "QemToolboxMerge1DLUT", "QemToolboxLocateProfile",
    "SetDirectoryName",
    // matcher object
    "InitCColorMatcher", "ReinitCColorMatcher", "TermCColorMatcher", "ColorMatchingProc1", "ColorMatchingProc2",
    "GetProgress", "CMGetError", "ChangeImageLines", "ChangeImageWidth", "ChangeBufSize", "Change1DLut",
    "Merge1DLut",
    // selector and dispatch
    "Initialize", "TermMatchingSelector", "LocateProfile", "CMatching1", "CMatching2",
};

// Names of the defined dynamic symbols, version suffixes ("@@...") removed.
// Each nm line is "<value> <type> <name>".
std::set<std::string> DefinedDynamicSymbols(std::string* types) {
    const std::string command = std::string(TINTRA3_NM) + " -D --defined-only '" + TINTRA3_SHARED_LIBRARY + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return {};
    std::string text;
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) text.append(chunk, got);
    EXPECT_EQ(pclose(pipe), 0) << command;

    std::set<std::string> names;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string value, type, name;
        if (!(fields >> value >> type >> name)) continue;
        name = name.substr(0, name.find('@'));
        names.insert(name);
        if (types != nullptr) *types += type;
    }
    return names;
}

TEST(Exports, ExactlyTheThirtyThreeCNames) {
    ASSERT_EQ(kExported.size(), 33u);
    std::string types;
    const std::set<std::string> names = DefinedDynamicSymbols(&types);
    for (const std::string& name : kExported) EXPECT_TRUE(names.count(name)) << "missing: " << name;
    for (const std::string& name : names) EXPECT_TRUE(kExported.count(name)) << "unexpected: " << name;
    // Every export is code.
    for (char type : types) EXPECT_EQ(type, 'T');
}

}  // namespace
