// SPDX-License-Identifier: MIT
// Our own conversion of security text against the system's.
#include <windows.h>

#include <gtest/gtest.h>
#include <sddl.h>

#include "Shared/security/SecurityText.h"
#include "tests/support/ScriptText.h"

namespace {

using platform::WString;
using security::Bytes;

constexpr uint32_t kAllParts = 0x1F;

// What both understand, both write alike.
TEST(SecurityText, AgreesWithTheSystem) {
    std::vector<WString> texts;
    for (const support::Section& section : support::SectionsIn("front/functions.txt"))
        for (const auto& [number, line] : section.lines)
            if (section.name == "SecurityTextThatEveryConversionUnderstands")
                texts.push_back(support::WordsOf(line).at(1));
    ASSERT_GT(texts.size(), 5u);
    for (const WString& text : texts) {
        Bytes ours;
        ASSERT_EQ(security::ParseSecurityText(text.c_str(), &ours), 0u);
        void* theirs = nullptr;
        ULONG size = 0;
        ASSERT_TRUE(
            ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), 1, &theirs, &size));
        WString fromTheirs;
        const auto* start = static_cast<const uint8_t*>(theirs);
        EXPECT_EQ(security::FormatSecurityText({start, size}, kAllParts, &fromTheirs), 0u);
        EXPECT_EQ(fromTheirs, text);
        LocalFree(theirs);
        wchar_t* fromOurs = nullptr;
        ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(ours.data(), 1, 0xF,
                                                                         &fromOurs, nullptr));
        Bytes again;
        EXPECT_EQ(security::ParseSecurityText(fromOurs, &again), 0u);
        EXPECT_EQ(again, ours) << platform::ToUtf8(fromOurs);
        LocalFree(fromOurs);
    }
}

}  // namespace
