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
    JsonLinesWriter writer(out, {});
    writer.Key(WTEXT(""));
    writer.Value(WTEXT("(Default)"), 4, {1, 0xAB, 0, 0});
    writer.Key(WTEXT("a\\b"));
    writer.Value(WTEXT("\"\\\n\u0001é😀"), 0xFFFFFFFF, {});
    writer.Value(WString(1, 0xDC00), 1, {});
    EXPECT_EQ(out.str(),
              "{\"key\":\"\"}\n"
              "{\"key\":\"\",\"name\":\"(Default)\",\"type\":4,\"data\":\"01ab0000\"}\n"
              "{\"key\":\"\\\\a\\\\b\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\\"\\\\\\n\\u0001é😀\",\"type\":4294967295,"
              "\"data\":\"\"}\n"
              "{\"key\":\"\\\\a\\\\b\",\"name\":\"\\udc00\",\"type\":1,\"data\":\"\"}\n");
}

TEST(JsonLines, PutsThePrefixInFront) {
    std::ostringstream out;
    JsonLinesWriter writer(out, WTEXT("P\\Q"));
    writer.Key(WTEXT(""));
    writer.Key(WTEXT("a"));
    EXPECT_EQ(out.str(), "{\"key\":\"\\\\P\\\\Q\"}\n{\"key\":\"\\\\P\\\\Q\\\\a\"}\n");
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

TEST(JsonLines, TellsTheLineAndWhatWasExpected) {
    const auto error = [](const std::string& line) {
        return ErrorOf([&] { ReadJsonLines("{\"key\":\"\"}\n" + line); });
    };
    EXPECT_EQ(error("[]"), "2: expected \"{\" at the start of the line");
    EXPECT_EQ(error("{\"key\":\"\"} x"), "2: expected the end of the line after \"}\"");
    EXPECT_EQ(error("{\"key\":\"\""), "2: expected \",\" or \"}\" after a member");
    EXPECT_EQ(error("{}"), "2: expected \"key\", \"name\", \"type\" or \"data\"");
    EXPECT_EQ(error("{\"kex\":1}"), "2: expected \"key\", \"name\", \"type\" or \"data\"");
    EXPECT_EQ(error("{\"key\" 1}"), "2: expected \":\" after the name of a member");
    EXPECT_EQ(error("{\"key\":1}"), "2: expected a string in quotes for \"key\"");
    EXPECT_EQ(error("{\"key\":\"x"), "2: expected a quote at the end of a string");
    EXPECT_EQ(error("{\"key\":\"\\x\"}"), "2: expected an escape of JSON after a backslash");
    EXPECT_EQ(error("{\"key\":\"\\u12\"}"), "2: expected an escape of JSON after a backslash");
    EXPECT_EQ(error("{\"key\":\"\xFF\"}"), "2: expected UTF-8 text");
    EXPECT_EQ(error("{\"key\":\"\t\"}"), "2: expected control characters to stand as \\u escapes");
    EXPECT_EQ(error("{\"key\":\"\",\"key\":\"\"}"), "2: expected one \"key\" in a line");
    EXPECT_EQ(error("{\"name\":\"\",\"type\":1,\"data\":\"\"}"),
              "2: expected a \"key\" in every line");
    EXPECT_EQ(error("{\"key\":\"\",\"name\":\"\"}"),
              "2: expected \"name\", \"type\" and \"data\" together for a value");
    for (const char* key : {"a", "\\\\", "\\\\a\\\\", "\\\\a\\\\\\\\b", "\\\\a\\u0000"}) {
        EXPECT_EQ(error("{\"key\":\"" + std::string(key) + "\"}"),
                  "2: expected \"\" for the root or a key like \"\\\\a\\\\b\"");
    }
    for (const char* type : {"-1", "4294967296", "99999999999999999999", "\"1\"", "x"}) {
        EXPECT_EQ(error("{\"type\":" + std::string(type) + "}"),
                  "2: expected a number from 0 to 4294967295 for \"type\"");
    }
    for (const char* data : {"\"0\"", "\"0g\"", "00", "\"00"}) {
        EXPECT_EQ(error("{\"data\":" + std::string(data) + "}"),
                  "2: expected pairs of hexadecimal digits in quotes for \"data\"");
    }
    EXPECT_EQ(error("{\"key\":\"\",\"name\":\"\\u0000\",\"type\":1,\"data\":\"\"}"),
              "2: expected a value name without a zero character");
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
