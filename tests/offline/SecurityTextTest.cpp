// SPDX-License-Identifier: MIT
// Security descriptors as text, by our own conversion; on Windows it is held against the system's.
#include "Shared/security/SecurityText.h"

#include <gtest/gtest.h>

#include "tests/offline/SecuritySamples.h"

namespace {

using platform::WChar;
using platform::WString;
using security::Bytes;

constexpr uint32_t kAll = 0x1F;

TEST(SecurityText, ComesBackAsItWasByTheNameOfWhatIsMeant) {
    std::vector<std::pair<const WChar*, const WChar*>> rows = {
        {WTEXT("o:s-1-5-32-544d:(a;oici;0xF003F;;;s-1-1-0)"), WTEXT("O:BAD:(A;OICI;KA;;;WD)")},
        {WTEXT("D:(A;;131097;;;BU)"), WTEXT("D:(A;;KR;;;BU)")},
        {WTEXT("D:(A;;KX;;;BU)"), WTEXT("D:(A;;KR;;;BU)")},
        {WTEXT("G:S-1-0x5-18"), WTEXT("G:SY")},
    };
    for (const WChar* text : security_test::kUsual) rows.emplace_back(text, text);
    for (const WChar* text :
         {WTEXT("D:NO_ACCESS_CONTROL"), WTEXT("D:ARS:AI(AU;CIFA;SD;;;AN)"), WTEXT("G:S-1-5"),
          WTEXT("O:S-1-5-80-1-2-3-4-4294967295"), WTEXT("S:(ML;;NW;;;LW)"),
          WTEXT("S:P(AU;FA;KA;;;WD)(ML;CI;NWNR;;;HI)"), WTEXT("")})
        rows.emplace_back(text, text);
    for (const auto& [text, expected] : rows) {
        SCOPED_TRACE(platform::ToUtf8(text));
        Bytes descriptor;
        WString back;
        EXPECT_EQ(security::ParseSecurityText(text, &descriptor), 0u);
        EXPECT_EQ(security::FormatSecurityText(descriptor, kAll, &back), 0u);
        EXPECT_EQ(platform::ToUtf8(back), platform::ToUtf8(expected));
    }
}

TEST(SecurityText, RefusesWhatItDoesNotUnderstand) {
    const std::pair<const WChar*, uint32_t> bad[] = {
        {WTEXT("junk"), 87},
        {WTEXT("O:BAO:BA"), 87},
        {WTEXT("D:(A;;KA;;;BA)junk"), 87},
        {WTEXT("D:(A;;ZZ;;;BA)"), security::kErrorInvalidAcl},
        {WTEXT("D:(Q;;KA;;;BA)"), security::kErrorInvalidAcl},
        {WTEXT("D:(A;;KA;;;BA"), security::kErrorInvalidAcl},
        {WTEXT("D:(A;;0x100000000;;;BA)"), security::kErrorInvalidAcl},
        {WTEXT("O:QQ"), security::kErrorInvalidSid},
        {WTEXT("O:S-1-"), security::kErrorInvalidSid},
        {WTEXT("O:S-1-5-4294967296"), security::kErrorInvalidSid},
        {WTEXT("O:S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"), security::kErrorInvalidSid},
    };
    for (const auto& [text, error] : bad) {
        Bytes descriptor;
        EXPECT_EQ(security::ParseSecurityText(text, &descriptor), error) << platform::ToUtf8(text);
    }
}

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
    ASSERT_EQ(security::ParseSecurityText(security_test::kUsual[2], &sound), 0u);
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
