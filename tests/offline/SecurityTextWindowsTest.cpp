// SPDX-License-Identifier: MIT
// Our own conversion of security text against the system's.
#include <windows.h>

#include <gtest/gtest.h>
#include <sddl.h>

#include "Shared/security/SecurityText.h"
#include "tests/offline/SecuritySamples.h"

namespace {

using platform::WString;
using security::Bytes;

constexpr uint32_t kAll = 0x1F;

// What both understand, both write alike.
TEST(SecurityText, AgreesWithTheSystem) {
    for (const platform::WChar* text : security_test::kUsual) {
        Bytes ours;
        ASSERT_EQ(security::ParseSecurityText(text, &ours), 0u);
        void* theirs = nullptr;
        ULONG size = 0;
        ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(text, 1, &theirs, &size));
        WString fromTheirs;
        const auto* start = static_cast<const uint8_t*>(theirs);
        EXPECT_EQ(security::FormatSecurityText({start, size}, kAll, &fromTheirs), 0u);
        EXPECT_EQ(platform::ToUtf8(fromTheirs), platform::ToUtf8(text));
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
