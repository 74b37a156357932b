// SPDX-License-Identifier: MIT
// Programs that share no code with us read our hives, and we read theirs.
#include <hivex.h>

#include <memory>

#include "tests/offline/OfflineHive.h"
#include "tests/support/RunProcess.h"

using namespace offline_test;
using support::TempDir;

namespace {

struct HiveCloser {
    void operator()(hive_h* hive) const { hivex_close(hive); }
};
using Hivex = std::unique_ptr<hive_h, HiveCloser>;

struct Freer {
    void operator()(void* memory) const { free(memory); }
};
template <class T>
using Owned = std::unique_ptr<T, Freer>;

Hivex OpenWithHivex(const std::filesystem::path& path, int flags = 0) {
    Hivex hive(hivex_open(path.c_str(), flags));
    EXPECT_NE(hive, nullptr) << "hivex refuses " << path;
    return hive;
}

// What hivex sees, in the shape of our own pictures; it tells no classes.
void PictureByHivex(hive_h* hive, hive_node_h node, const WString& path, std::vector<Item>* items) {
    items->push_back({path, 0, {}});
    const Owned<hive_value_h[]> values(hivex_node_values(hive, node));
    ASSERT_NE(values, nullptr);
    for (size_t i = 0; values[i] != 0; ++i) {
        const Owned<char> name(hivex_value_key(hive, values[i]));
        hive_type type = hive_t_REG_NONE;
        size_t size = 0;
        const Owned<char> data(hivex_value_value(hive, values[i], &type, &size));
        ASSERT_NE(data, nullptr) << name.get();
        const auto* start = reinterpret_cast<const uint8_t*>(data.get());
        items->push_back({path + WTEXT(":") + platform::FromUtf8(name.get()),
                          static_cast<uint32_t>(type), Bytes(start, start + size)});
    }
    const Owned<hive_node_h[]> children(hivex_node_children(hive, node));
    ASSERT_NE(children, nullptr);
    for (size_t i = 0; children[i] != 0; ++i) {
        const Owned<char> name(hivex_node_name(hive, children[i]));
        PictureByHivex(hive, children[i], path + WTEXT("\\") + platform::FromUtf8(name.get()),
                       items);
    }
}

std::vector<Item> PictureByHivex(const std::filesystem::path& path) {
    std::vector<Item> items;
    const Hivex hive = OpenWithHivex(path);
    if (hive != nullptr) PictureByHivex(hive.get(), hivex_root(hive.get()), WTEXT(""), &items);
    return items;
}

std::vector<Item> PictureWithoutClasses(const TestHive& hive) {
    std::vector<Item> items = Picture(hive);
    for (Item& item : items)
        if (item.path.find(':') == WString::npos) item.data.clear();
    return items;
}

// What a shell writes for a command in a folder; a failure of it fails the test.
std::string RunProgram(const TempDir& dir, const std::string& command) {
    const auto result =
        support::RunProcess("/bin/sh", {"-c", "cd " + dir.Path().string() + " && " + command});
    EXPECT_EQ(result.status, 0) << command;
    return result.out;
}

size_t Count(const std::string& text, const std::string& wanted) {
    size_t count = 0;
    for (size_t at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
        ++count;
    }
    return count;
}

// A hive with something of everything.
void Fill(TestHive& hive) {
    ORHKEY key = hive.Create(WTEXT("Software"), WTEXT("Shell"));
    hive.Set(key, WTEXT(""), 1, TextBytes(WTEXT("unnamed value")));
    hive.Set(key, WTEXT("Text"), 1, TextBytes(WTEXT("some text")));
    hive.Set(key, WTEXT("Expand"), 2, TextBytes(WTEXT("%PATH%\\x")));
    hive.Set(key, WTEXT("Number"), 4, {0x78, 0x56, 0x34, 0x12});
    hive.Set(key, WTEXT("Bytes"), 3, {1, 2, 3, 4, 5});
    hive.Set(key, WTEXT("Empty"), 3, {});
    ORHKEY foreign = hive.Create(WTEXT("\x0416\x00FC"));
    hive.Set(foreign, WTEXT("\x4E2D\x6587"), 1, TextBytes(WTEXT("\x4E2D")));
    for (size_t size : {16344, 16345, 50000, 1000000}) {
        const std::string name = "data " + std::to_string(size);
        hive.Set(foreign, WString(name.begin(), name.end()), 3, Pattern(size));
    }
    ORHKEY many = hive.Create(WTEXT("Many"));
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "Key" + std::to_string(i);
        ORHKEY child = hive.CreateBelow(many, WString(name.begin(), name.end()));
        hive.Set(child, WTEXT("i"), 4,
                 {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8), 0, 0});
        ORCloseKey(child);
    }
}

TEST(IndependentReaders, ReadWhatWeWrote) {
    TempDir dir;
    TestHive hive;
    Fill(hive);
    hive.Save(dir.File("a.hiv"));
    EXPECT_TRUE(PictureByHivex(dir / "a.hiv") == PictureWithoutClasses(hive));
    // What a program is to print of the hive, and how often.
    const struct {
        const char* command;
        std::vector<std::pair<const char*, size_t>> counts;
    } readers[] = {
        // Security: owner and group of every key, the class of the one that has it.
        {"reglookup -s a.hiv 2>/dev/null",
         {{"\n/Many/Key", 6000},
          {"\n/Software/Text,SZ,some text,", 1},
          {"\n/Software/Expand,EXPAND_SZ,%25PATH%25\\x,", 1},
          {"\n/Software/Number,DWORD,0x12345678,", 1},
          {"\n/Software/Bytes,BINARY,%01%02%03%04%05,", 1},
          {",S-1-5-32-544,S-1-5-18,", 3004},
          {",Shell\n", 1}}},
        // It does not survive names outside its code page, so it is shown a key without them.
        {"reged -x a.hiv P '\\Software' out >log 2>&1 && cat out",
         {{"\"Text\"=\"some text\"", 1},
          {"\"Number\"=dword:12345678", 1},
          {"\"Bytes\"=hex:01,02,03,04,05", 1}}},
        {"regfexport a.hiv",
         {{"Key: Key", 3000},
          {"Class name: Shell", 1},
          {"Data: some text", 1},
          {"Data size: 1000000", 1},
          {"\xE4\xB8\xAD\xE6\x96\x87", 1}}},
    };
    for (const auto& reader : readers) {
        const std::string text = RunProgram(dir, reader.command);
        for (const auto& [wanted, count] : reader.counts)
            EXPECT_EQ(Count(text, wanted), count) << wanted << " of " << reader.command;
    }
}

// hivex keeps no sizes of its own: it grows our lists, splits them, and leaves freed cells.
TEST(IndependentReaders, WeReadWhatHivexMadeOfOurs) {
    TempDir dir;
    {
        TestHive hive;
        hive.Set(hive.Create(WTEXT("Base")), WTEXT("old"), 1, TextBytes(WTEXT("text")));
        hive.Create(WTEXT("Gone"));
        hive.Save(dir.File("a.hiv"));
    }
    {
        const Hivex hive = OpenWithHivex(dir / "a.hiv", HIVEX_OPEN_WRITE);
        const hive_node_h root = hivex_root(hive.get());
        ASSERT_EQ(
            hivex_node_delete_child(hive.get(), hivex_node_get_child(hive.get(), root, "Gone")), 0);
        const hive_node_h base = hivex_node_get_child(hive.get(), root, "Base");
        Bytes large = Pattern(12000);
        for (int i = 0; i < 2500; ++i) {
            const std::string name = "n" + std::to_string(i * 7 % 2500) + "\xC3\xA9";
            const hive_node_h child = hivex_node_add_child(hive.get(), base, name.c_str());
            ASSERT_NE(child, 0u);
            std::string valueName = "v";
            hive_set_value value = {valueName.data(), hive_t_REG_BINARY, i % 100 == 0 ? 12000u : 3u,
                                    reinterpret_cast<char*>(large.data())};
            ASSERT_EQ(hivex_node_set_value(hive.get(), child, &value, 0), 0);
        }
        ASSERT_EQ(hivex_commit(hive.get(), (dir / "b.hiv").c_str(), 0), 0);
    }
    TestHive read(dir.File("b.hiv"));
    EXPECT_TRUE(PictureWithoutClasses(read) == PictureByHivex(dir / "b.hiv"));
    ORHKEY gone = nullptr;
    EXPECT_EQ(OROpenKey(read.Root(), WTEXT("Gone"), &gone), 2u);
    ORHKEY child = read.Open(WTEXT("base\\N700\x00C9"));
    EXPECT_EQ(read.Get(child, WTEXT("V")), Pattern(12000));

    // And the other way once more, through a hive that both have changed.
    EXPECT_EQ(ORDeleteKey(child, nullptr), 0u);
    read.Set(read.Open(WTEXT("Base\\n1\x00E9")), WTEXT("ours"), 3, Pattern(20000));
    read.Save(dir.File("c.hiv"));
    EXPECT_TRUE(PictureWithoutClasses(read) == PictureByHivex(dir / "c.hiv"));
}

// reged changes a hive in place, and grows it for what it brings.
TEST(IndependentReaders, WeReadWhatRegedChanged) {
    TempDir dir;
    {
        TestHive hive;
        ORHKEY base = hive.Create(WTEXT("Base"));
        hive.Set(base, WTEXT("old"), 1, TextBytes(WTEXT("text")));
        hive.Set(base, WTEXT("kept"), 3, Pattern(5000));
        hive.Save(dir.File("a.hiv"));
    }
    std::string text =
        "Windows Registry Editor Version 5.00\r\n\r\n[P\\Base]\r\n\"old\"=\"new\"\r\n";
    for (int i = 0; i < 300; ++i) {
        const std::string name = "k" + std::to_string(i);
        text +=
            "\r\n[P\\Base\\" + name + "]\r\n\"v\"=dword:" + std::to_string(10000000 + i) + "\r\n";
    }
    support::WriteBytes(dir / "in.reg", Bytes(text.begin(), text.end()));
    // The status says that it wrote.
    RunProgram(dir, "reged -C -I a.hiv P in.reg >log 2>&1; test $? -eq 2");
    TestHive read(dir.File("a.hiv"));
    EXPECT_TRUE(PictureWithoutClasses(read) == PictureByHivex(dir / "a.hiv"));
    EXPECT_EQ(Picture(read).size(), 604u);
    EXPECT_EQ(read.Get(read.Open(WTEXT("Base")), WTEXT("old")), TextBytes(WTEXT("new")));
    EXPECT_EQ(read.Get(read.Open(WTEXT("Base")), WTEXT("kept")), Pattern(5000));
    EXPECT_EQ(read.Get(read.Open(WTEXT("Base\\k299")), WTEXT("v")), (Bytes{0x99, 0x02, 0, 0x10}));
}

}  // namespace
