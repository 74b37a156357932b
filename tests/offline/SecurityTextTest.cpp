// SPDX-License-Identifier: MIT
// Security descriptors: what is merged, and what lies. Their text is in tests/front/functions.txt.
#include "Shared/security/SecurityText.h"

#include <gtest/gtest.h>

namespace {

using platform::WChar;
using platform::WString;
using security::Bytes;

constexpr uint32_t kAll = 0x1F;

TEST(SecurityDescriptor, MergesOnlyWhatIsNamed) {
    const auto parse = [](const WChar* text, Bytes* bytes, security::Parts* parts) {
        ASSERT_EQ(security::ParseSecurityText(text, bytes), 0u);
        ASSERT_TRUE(security::TakeApart(*bytes, parts));
    };
    Bytes oldBytes, newBytes;
    security::Parts oldParts, newParts;
    parse(WTEXT("O:BAG:BAD:(A;;KA;;;BA)S:(AU;FA;KA;;;WD)(ML;;NW;;;LW)"), &oldBytes, &oldParts);
    parse(WTEXT("O:SYG:SYD:P(A;;KR;;;BU)S:(AU;SA;KR;;;BU)(ML;;NW;;;HI)"), &newBytes, &newParts);
    const auto merged = [&](uint32_t information) {
        WString text;
        EXPECT_EQ(security::FormatSecurityText(Merge(oldParts, newParts, information), kAll, &text),
                  0u);
        return platform::ToUtf8(text);
    };
    EXPECT_EQ(merged(security::kOwner), "O:SYG:BAD:(A;;KA;;;BA)S:(AU;FA;KA;;;WD)(ML;;NW;;;LW)");
    EXPECT_EQ(merged(security::kGroup | security::kDacl),
              "O:BAG:SYD:P(A;;KR;;;BU)S:(AU;FA;KA;;;WD)(ML;;NW;;;LW)");
    EXPECT_EQ(merged(security::kLabel), "O:BAG:BAD:(A;;KA;;;BA)S:(AU;FA;KA;;;WD)(ML;;NW;;;HI)");
    EXPECT_EQ(merged(security::kSacl), "O:BAG:BAD:(A;;KA;;;BA)S:(AU;SA;KR;;;BU)(ML;;NW;;;LW)");
    EXPECT_EQ(merged(kAll), "O:SYG:SYD:P(A;;KR;;;BU)S:(AU;SA;KR;;;BU)(ML;;NW;;;HI)");
}

TEST(SecurityDescriptor, NeverReadsPastItsEnd) {
    Bytes sound;
    ASSERT_EQ(security::ParseSecurityText(
                  WTEXT("O:S-1-5-21-1-2-3-1001G:BUD:PAI(A;OICIIOID;GA;;;CO)(D;;KW;;;WD)"), &sound),
              0u);
    for (size_t size = 0; size <= sound.size(); ++size) {
        for (size_t at = 0; at < size; ++at) {
            for (const uint8_t changed : {uint8_t{0}, uint8_t{0x7F}, uint8_t{0xFF}}) {
                Bytes cut(sound.begin(), sound.begin() + static_cast<ptrdiff_t>(size));
                cut[at] = changed;
                const Bytes exact(cut);
                WString text;
                security::FormatSecurityText(exact, kAll, &text);
            }
        }
    }
}

}  // namespace
