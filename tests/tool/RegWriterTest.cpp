#include "tools/format/RegWriter.h"

#include <random>
#include <sstream>

#include "tests/tool/Formats.h"
#include "tools/format/RegReader.h"

namespace {

using namespace formats;
using fbr::RegWriter;

// What the writer makes of what `write` gives it, in UTF-8, without the byte-order mark.
template <typename Write>
std::string Written(Write write, const WString& prefix = {}) {
    std::ostringstream out;
    RegWriter writer(out, prefix);
    write(writer);
    writer.Finish();
    const std::string bytes = out.str();
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    return fbr::Utf8(fbr::DecodeTextFile(bytes, [](std::string_view) { return false; }));
}

std::string ValueLine(const WString& name, uint32_t type, const Bytes& data) {
    const std::string text = Written([&](RegWriter& writer) { writer.Value(name, type, data); });
    const std::string header = "Windows Registry Editor Version 5.00\r\n";
    return text.substr(header.size(), text.size() - header.size() - 4);
}

TEST(RegWriter, LaysOutKeysAndEnds) {
    EXPECT_EQ(Written(
                  [](RegWriter& writer) {
                      writer.Key(WTEXT(""));
                      writer.Value(WTEXT(""), 1, Sz(WTEXT("x")));
                      writer.Value(WTEXT("(Default)"), 1, Sz(WTEXT("y")));
                      writer.Key(WTEXT("a\\b"));
                      writer.DeleteValue(WTEXT("v"));
                      writer.DeleteKey(WTEXT("a\\c"));
                  },
                  WTEXT("HKEY_CURRENT_USER\\Software")),
              "Windows Registry Editor Version 5.00\r\n"
              "\r\n[HKEY_CURRENT_USER\\Software]\r\n@=\"x\"\r\n\"(Default)\"=\"y\"\r\n"
              "\r\n[HKEY_CURRENT_USER\\Software\\a\\b]\r\n\"v\"=-\r\n"
              "\r\n[-HKEY_CURRENT_USER\\Software\\a\\c]\r\n\r\n");
}

// The lines that regedit wraps: it breaks behind the comma that reaches column 77, and continued
// lines hold 25 bytes. The lengths are what it writes for names of these lengths.
TEST(RegWriter, WrapsBytesWhereRegeditDoes) {
    const std::pair<size_t, size_t> kFirstLines[] = {{1, 78},  {2, 79},  {3, 80},  {4, 78},
                                                     {67, 78}, {68, 79}, {69, 80}, {70, 81},
                                                     {71, 82}, {84, 95}};
    for (const auto& [nameLength, lineLength] : kFirstLines) {
        const std::string text = ValueLine(WString(nameLength, WChar('n')), 3, Bytes(60));
        EXPECT_EQ(text.find("\r\n"), lineLength) << nameLength;
        EXPECT_EQ(text.substr(lineLength - 4, 9), "00,\\\r\n  0") << nameLength;
        const size_t second = text.find("\r\n", lineLength + 2);
        EXPECT_EQ(second - lineLength - 2, 78u) << nameLength;
    }
    EXPECT_EQ(ValueLine(WTEXT("n"), 3, Bytes(23)).find('\\'), std::string::npos)
        << "ends at column 77";
    EXPECT_NE(ValueLine(WTEXT("n"), 3, Bytes(24)).find('\\'), std::string::npos);
}

WString RandomName(std::mt19937& random, bool key) {
    const WString kOdd = WTEXT("\r\n\t\"\\[]-;@=:u#/ \u0001\u007f\u00e9\u20ac\U0001F600\uffff");
    WString name;
    for (size_t n = 1 + random() % 8; n > 0; --n) {
        WString::value_type unit =
            random() % 4 ? kOdd[random() % kOdd.size()] : 1 + random() % 0xFFFF;
        if (key && unit == '\\') unit = 'x';
        name += unit;
    }
    return name;
}

// Names of any units and data of any bytes come back from our own reader as they went out.
TEST(RegWriter, RoundTrips) {
    std::mt19937 random(20260101);
    for (int round = 0; round < 200; ++round) {
        std::vector<Item> items;
        std::ostringstream out;
        RegWriter writer(out, {});
        for (int keys = 0; keys < 4; ++keys) {
            WString path = RandomName(random, true);
            if (random() % 2) path += WTEXT("\\") + RandomName(random, true);
            items.push_back(KeyItem(path));
            writer.Key(path);
            for (int values = 0; values < 6; ++values) {
                const WString name = RandomName(random, false);
                Bytes data = random() % 2 ? Sz(RandomName(random, false)) : Bytes(random() % 90);
                const auto type = static_cast<uint32_t>(random() % 13);
                items.push_back(ValueItem(path, name, type, data));
                writer.Value(name, type, data);
            }
        }
        writer.Finish();
        ASSERT_EQ(ItemsOf(fbr::ReadReg(out.str())), items) << "round " << round;
    }
}

}  // namespace
