#include "tools/format/JsonLines.h"

#include <nlohmann/json.hpp>

#include <random>
#include <sstream>

#include "tests/tool/Formats.h"

namespace {

using namespace formats;
using fbr::JsonLinesWriter;
using fbr::ReadJsonLines;

TEST(JsonLines, WritesOneObjectALine) {
    std::ostringstream out;
    JsonLinesWriter(out, WTEXT("P\\Q")).Key(WTEXT("a"));
    JsonLinesWriter writer(out, {});
    writer.Key(WTEXT(""));
    writer.Value(WTEXT("(Default)"), 4, {1, 0xAB, 0, 0});
    writer.Key(WTEXT("a\\b"));
    writer.Value(WTEXT("\"\\\n\u0001é😀"), 0xFFFFFFFF, {});
    writer.Value(WString(1, 0xDC00), 1, {});
    EXPECT_EQ(out.str(),
              "{\"key\":\"\\\\P\\\\Q\\\\a\"}\n{\"key\":\"\"}\n"
              "{\"key\":\"\",\"name\":\"(Default)\",\"type\":4,\"data\":\"01ab0000\"}\n"
              "{\"key\":\"\\\\a\\\\b\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\\"\\\\\\n\\u0001é😀\",\"type\":4294967295,"
              "\"data\":\"\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\udc00\",\"type\":1,\"data\":\"\"}\n");
}

TEST(JsonLines, ReadsAnyOrderSpacingAndEscape) {
    const std::vector<Item> expected = {KeyItem(WTEXT("")),
                                        ValueItem(WTEXT("a\\b"), WTEXT("n/é😀\t"), 7, {0xAB, 0xCD}),
                                        ValueItem(WTEXT("a\\b"), WTEXT(""), 0, {})};
    EXPECT_EQ(ItemsOf(ReadJsonLines(
                  "\xEF\xBB\xBF { \"key\" : \"\" }\r\n\n"
                  "{\"data\":\"ABcd\",\"type\": 7 , \"name\":\"n\\/\\u00e9\\uD83D\\ude00\\t\","
                  "\"key\":\"\\\\a\\\\b\"}\n"
                  "{\"key\":\"\\u005ca\\\\b\",\"name\":\"\",\"type\":0,\"data\":\"\"}")),
              expected);
}

// Names of any units come back, and what UTF-8 can carry is JSON to a reader that is not ours.
TEST(JsonLines, RoundTrips) {
    std::mt19937 random(20260102);
    for (int round = 0; round < 300; ++round) {
        WString name;
        for (size_t n = random() % 6; n > 0; --n) name += 1 + random() % (n % 2 ? 0x80 : 0xFFFF);
        Bytes data(random() % 20);
        for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
        std::ostringstream out;
        JsonLinesWriter writer(out, {});
        writer.Key(WTEXT("k"));
        writer.Value(name, random(), data);
        const auto items = ItemsOf(ReadJsonLines(out.str()));
        ASSERT_EQ(items.size(), 2u);
        EXPECT_EQ(items[1].name, name);
        EXPECT_EQ(items[1].data, data);

        bool lone = false;
        for (size_t i = 0; i < name.size(); ++i) lone |= fbr::IsLoneSurrogate(name, i);
        if (lone) continue;
        const auto json = nlohmann::json::parse(out.str().substr(out.str().find('\n') + 1));
        EXPECT_EQ(json.at("name").get<std::string>(), fbr::Utf8(name));
        EXPECT_EQ(json.at("key"), "\\k");
    }
}

TEST(JsonLines, SurvivesDamage) {
    const std::string whole =
        "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\u00e9é\",\"type\":42,\"data\":\"00ff\"}\n";
    const auto tryRead = [](const std::string& bytes) {
        return ErrorOf([&] { ReadJsonLines(bytes); }).size() > 0;
    };
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_TRUE(tryRead(whole.substr(0, i)));
        for (const char change : {'\0', '"', '\\', '{', '\n', '\xFF', 'u'}) {
            std::string damaged = whole;
            damaged[i] = change;
            EXPECT_TRUE(tryRead(damaged));
        }
    }
}

}  // namespace
