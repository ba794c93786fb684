// Helpers for the profile-reading tests: crafted profiles on disk and
// records that release themselves.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "profile/profile_file.h"
#include "profile/profile_model.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3::test {

inline std::string WriteProfile(const std::string& name, const icc::ProfileWriter& writer) {
    return WriteTempFile(name, writer.Bytes());
}

// An open profile, closed on scope exit.
struct OpenedProfile {
    ProfileFile file{};
    int opened = 0;
    explicit OpenedProfile(const std::string& path) { opened = OpenProfile(path.c_str(), &file); }
    ~OpenedProfile() {
        if (opened) CloseProfile(&file);
    }
};

// A zeroed model, released on scope exit.
struct ScopedModel {
    ProfileModel model{};
    ~ScopedModel() { ReleaseProfileModel(&model); }
};

// A fresh buffer, freed on scope exit.
struct ScopedBuffer {
    ValueBuffer buffer{};
    ~ScopedBuffer() { FreeValueBuffer(&buffer); }
    uint16_t u16(uint32_t i) const { return U16(buffer)[i]; }
    uint8_t u8(uint32_t i) const { return Bytes(buffer)[i]; }
};

}  // namespace tintra3::test
