// The shared library's export table holds the C interface and nothing else:
// no C++ name of the core, no runtime helper. On ELF systems it is read with
// nm from the dynamic symbol table; on Windows from the loaded DLL's export
// directory, where the ordinals must also be those fixed in Tintra3.def.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#ifdef _WIN32
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
#endif

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

#ifdef _WIN32

struct Export {
    unsigned ordinal;
    bool code;  // in an executable section, not forwarded to another DLL
};

// Name -> ordinal and kind, read from the image the loader mapped.
std::map<std::string, Export> ExportDirectory(HMODULE dll) {
    const auto* base = reinterpret_cast<const uint8_t*>(dll);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& entry = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto* dir = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(base + dir->AddressOfNames);
    const auto* indices = reinterpret_cast<const WORD*>(base + dir->AddressOfNameOrdinals);
    const auto* functions = reinterpret_cast<const DWORD*>(base + dir->AddressOfFunctions);
    const IMAGE_SECTION_HEADER* sections = IMAGE_FIRST_SECTION(nt);
    std::map<std::string, Export> result;
    for (DWORD i = 0; i < dir->NumberOfNames; ++i) {
        const DWORD rva = functions[indices[i]];
        const bool forwarded = rva >= entry.VirtualAddress && rva < entry.VirtualAddress + entry.Size;
        bool executable = false;
        for (WORD s = 0; s < nt->FileHeader.NumberOfSections; ++s) {
            const IMAGE_SECTION_HEADER& h = sections[s];
            if (rva >= h.VirtualAddress && rva < h.VirtualAddress + h.Misc.VirtualSize)
                executable = (h.Characteristics & IMAGE_SCN_MEM_EXECUTE) != 0;
        }
        const char* name = reinterpret_cast<const char*>(base + names[i]);
        result[name] = {unsigned(dir->Base + indices[i]), executable && !forwarded};
    }
    return result;
}

// "    name    @ordinal" lines of the .def file.
std::map<std::string, unsigned> DefOrdinals(const char* path) {
    std::ifstream def(path);
    std::map<std::string, unsigned> result;
    std::string line;
    while (std::getline(def, line)) {
        std::istringstream words(line);
        std::string name, ordinal;
        if (words >> name >> ordinal && ordinal.size() > 1 && ordinal[0] == '@')
            result[name] = unsigned(std::stoul(ordinal.substr(1)));
    }
    return result;
}

TEST(Exports, ExactlyTheThirtyThreeCNames) {
    ASSERT_EQ(kExported.size(), 33u);
    HMODULE dll = LoadLibraryA("Tintra3.dll");
    ASSERT_NE(dll, nullptr);
    const std::map<std::string, Export> exports = ExportDirectory(dll);
    const std::map<std::string, unsigned> def = DefOrdinals(TINTRA3_DEF_FILE);
    ASSERT_EQ(def.size(), 33u) << TINTRA3_DEF_FILE;
    for (const auto& [name, e] : exports) {
        EXPECT_TRUE(kExported.count(name)) << "unexpected: " << name;  // decorated names fail here too
        EXPECT_TRUE(e.code) << name;
        EXPECT_EQ(e.ordinal, def.count(name) ? def.at(name) : 0u) << name;  // ordinals are part of the ABI
    }
    for (const std::string& name : kExported) EXPECT_TRUE(exports.count(name)) << "missing: " << name;
    FreeLibrary(dll);
}

#else

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

#endif

}  // namespace
