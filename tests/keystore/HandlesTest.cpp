// The table of open keys and values against a plain list.
#include "FS_Library_DLL/keystore/FsHandles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/FailingHeap.h"

namespace {

using storage::FileHandle;

FileHandle* FakeFile(uintptr_t number) {
    return reinterpret_cast<FileHandle*>(number * 16);
}

FsHandleEntry* AddKey(FsHandleTable& table, WStringView path) {
    return table.Add(0, nullptr, FsHandleKind::Key, path);
}

auto IgnoreSearch = [](storage::StorageSearchStruct*) {};

TEST(Handles, AreFoundByWhatTheyAreAndNothingElse) {
    FsHandleTable table;
    FsHandleEntry* key = AddKey(table, WTEXT("\\a"));
    FsHandleEntry* value = table.Add(key->id, FakeFile(7), FsHandleKind::Value, WTEXT("\\a\\V"));
    EXPECT_EQ(table.FindKey(key->id), key);
    EXPECT_EQ(table.FindFile(FakeFile(7)), value);
    EXPECT_EQ(table.FindValue(WTEXT("\\A\\v")), value);
    EXPECT_EQ(table.FindValue(WTEXT("\\a")), nullptr) << "a key";
    EXPECT_EQ(table.FindKey(static_cast<int64_t>(reinterpret_cast<intptr_t>(value))), nullptr);
    EXPECT_EQ(table.FindKey(12345), nullptr);
    EXPECT_EQ(table.FindKey(-1), nullptr);
    EXPECT_EQ(table.FindFile(FakeFile(8)), nullptr);
    EXPECT_EQ(table.FindId(key->id), key);
    const int64_t id = key->id;
    table.Remove(key);
    EXPECT_EQ(table.FindKey(id), nullptr);
    EXPECT_EQ(table.FindId(id), value) << "a close by id alone meets the value then";
    EXPECT_EQ(table.Count(), 1u);
}

TEST(Handles, ForgetTakesTheKeyAndWhatIsBelow) {
    FsHandleTable table;
    const WStringView paths[] = {WTEXT("\\a"),     WTEXT("\\a"),    WTEXT("\\a!"),
                                 WTEXT("\\a!\\b"), WTEXT("\\a\\b"), WTEXT("\\a\\b\\c"),
                                 WTEXT("\\a]"),    WTEXT("\\A"),    WTEXT(""),
                                 WTEXT("\\ab"),    WTEXT("\\a\\")};
    for (const WStringView path : paths) AddKey(table, path);
    table.Add(1, FakeFile(1), FsHandleKind::Value, WTEXT("\\a\\v"));
    table.Add(1, FakeFile(2), FsHandleKind::Value, WTEXT("\\av"));
    table.ForgetSubtree(WTEXT("\\a"), IgnoreSearch);
    EXPECT_EQ(table.Count(), 7u);
    EXPECT_EQ(table.FindFile(FakeFile(1)), nullptr);
    EXPECT_NE(table.FindFile(FakeFile(2)), nullptr);
    table.ForgetSubtree(WTEXT(""), IgnoreSearch);
    EXPECT_EQ(table.Count(), 0u) << "the root and all below it";
}

TEST(Handles, RenameTakesTheKeyAndWhatIsBelowIt) {
    FsHandleTable table;
    FsHandleEntry* key = AddKey(table, WTEXT("\\a\\b"));
    FsHandleEntry* below = AddKey(table, WTEXT("\\a\\b\\x"));
    FsHandleEntry* neighbour = AddKey(table, WTEXT("\\a\\bc"));
    FsHandleEntry* other = AddKey(table, WTEXT("\\a\\B"));
    FsHandleEntry* value = table.Add(key->id, FakeFile(3), FsHandleKind::Value, WTEXT("\\a\\b\\v"));
    // The new path has the old one as a prefix: nothing may be renamed twice.
    ASSERT_TRUE(table.RenamePrefix(WTEXT("\\a\\b"), WTEXT("\\a\\bb")));
    EXPECT_EQ(key->Path(), WTEXT("\\a\\bb"));
    EXPECT_EQ(below->Path(), WTEXT("\\a\\bb\\x"));
    EXPECT_EQ(neighbour->Path(), WTEXT("\\a\\bc"));
    EXPECT_EQ(other->Path(), WTEXT("\\a\\B"));
    EXPECT_EQ(value->Path(), WTEXT("\\a\\bb\\v"));
}

TEST(Handles, ValuesFollowTheirMoveOrLoseTheirPath) {
    FsHandleTable table;
    FsHandleEntry* value = table.Add(1, FakeFile(1), FsHandleKind::Value, WTEXT("\\k\\X"));
    FsHandleEntry* key = AddKey(table, WTEXT("\\k\\X"));
    table.RenameValues(WTEXT("\\K\\x"), WTEXT("\\k\\#FILEX"));
    EXPECT_EQ(value->Path(), WTEXT("\\k\\#FILEX"));
    EXPECT_EQ(key->Path(), WTEXT("\\k\\X"));
    const support::FailingHeap heap(1, true);
    table.RenameValues(WTEXT("\\k\\#FILEX"), WString(500, 'p'));
    EXPECT_EQ(value->path, nullptr);
    EXPECT_EQ(table.FindValue(WTEXT("\\k\\#FILEX")), nullptr);
}

TEST(Handles, WithoutMemoryNothingIsAdded) {
    FsHandleTable table;
    const WString longPath(300, 'p');
    for (uint64_t failing = 1; failing <= 2; ++failing) {
        const support::FailingHeap heap(failing);
        EXPECT_EQ(AddKey(table, longPath), nullptr);
        EXPECT_EQ(table.Count(), 0u);
    }
    ASSERT_NE(AddKey(table, longPath), nullptr);
}

// Many keys, opened, closed, forgotten and renamed at random, against a list of paths.
TEST(Handles, AgreeWithAPlainListUnderRandomUse) {
    FsHandleTable table;
    std::vector<std::pair<int64_t, WString>> model;
    std::mt19937 random(20261121);
    const auto randomPath = [&] {
        WString path;
        for (auto parts = random() % 4; parts > 0; --parts) {
            path += '\\';
            for (auto units = 1 + random() % 2; units > 0; --units)
                path += static_cast<WChar>("ab!]"[random() % 4]);
        }
        return path;
    };
    for (int step = 0; step < 20000; ++step) {
        const auto action = random() % 100;
        const WString path = randomPath();
        if (action < 60 || model.empty()) {
            model.emplace_back(AddKey(table, path)->id, path);
        } else if (action < 90) {
            const size_t index = random() % model.size();
            table.Remove(table.FindKey(model[index].first));
            model.erase(model.begin() + static_cast<ptrdiff_t>(index));
        } else if (action < 98 && path.size() > 3) {
            table.ForgetSubtree(path, IgnoreSearch);
            std::erase_if(model, [&](auto& key) { return FsIsInSubtree(key.second, path); });
        } else if (path.size() > 3) {
            const WString to = path + WTEXT("\\n");
            ASSERT_TRUE(table.RenamePrefix(path, to));
            for (auto& key : model)
                if (FsIsInSubtree(key.second, path))
                    key.second = to + key.second.substr(path.size());
        }
        ASSERT_EQ(table.Count(), model.size()) << "step " << step;
    }
    for (const auto& [id, path] : model) {
        ASSERT_NE(table.FindKey(id), nullptr);
        EXPECT_EQ(table.FindKey(id)->Path(), path);
    }
}

}  // namespace
