// SPDX-License-Identifier: MIT
// The tool in a folder of its own, for tests that run it as people do.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/RunProcess.h"
#include "tests/support/TempDir.h"
#include "tests/tool/Formats.h"
#include "tools/format/RegReader.h"

namespace tool {

using support::Bytes;
using support::ProcessResult;

inline std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

class ToolTest : public testing::Test {
  protected:
    ProcessResult Fbr(const std::vector<std::string>& words, const std::string& input = "") {
        return support::RunProcess(support::ProgramNamed("fbr"), words, input);
    }
    // Runs a command that must work and say nothing but its data, which is returned.
    std::string Good(const std::vector<std::string>& words, const std::string& input = "") {
        const ProcessResult result = Fbr(words, input);
        EXPECT_EQ(result.status, 0) << testing::PrintToString(words);
        EXPECT_EQ(result.err, "") << testing::PrintToString(words);
        return result.out;
    }
    // Runs a command that must fail with `status` and without data. What it says on standard error.
    std::string Bad(int status, const std::vector<std::string>& words,
                    const std::string& input = "") {
        const ProcessResult result = Fbr(words, input);
        EXPECT_EQ(result.status, status) << testing::PrintToString(words);
        EXPECT_EQ(result.out, "") << testing::PrintToString(words);
        return result.err;
    }

    std::string File(const std::string& name) const { return Utf8(dir_ / name); }
    void Write(const std::string& name, const std::string& text) const {
        support::WriteBytes(dir_ / name, Bytes(text.begin(), text.end()));
    }
    std::string Read(const std::string& name) const {
        const Bytes bytes = support::ReadBytes(dir_ / name);
        return std::string(bytes.begin(), bytes.end());
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(dir_ / name); }

    const support::TempDir dir_;
    const std::string store_ = File("x.fbr");
};

// An exported file as text.
inline std::string RegText(const std::string& bytes) {
    return fbr::Utf8(fbr::DecodeTextFile(bytes, [](std::string_view) { return false; }));
}

}  // namespace tool
