// SPDX-License-Identifier: MIT
// The table of open keys and values against a plain list.
#include "FS_Library_DLL/keystore/FsHandles.h"

#include <gtest/gtest.h>

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

TEST(Handles, ValuesFollowTheirMoveOrLoseTheirPath) {
    FsHandleTable table;
    FsHandleEntry* value = table.Add(1, FakeFile(1), FsHandleKind::Value, WTEXT("\\k\\X"));
    FsHandleEntry* key = AddKey(table, WTEXT("\\k\\X"));
    table.RenameValues(WTEXT("\\K\\x"), WTEXT("\\k\\#FILEX"));
    EXPECT_EQ(value->Path(), WTEXT("\\k\\#FILEX"));
    EXPECT_EQ(key->Path(), WTEXT("\\k\\X"));
    {
        const support::FailingHeap heap(1, true);
        EXPECT_EQ(AddKey(table, WString(300, 'p')), nullptr);
        table.RenameValues(WTEXT("\\k\\#FILEX"), WString(500, 'p'));
    }
    EXPECT_EQ(value->path, nullptr);
    EXPECT_EQ(table.FindValue(WTEXT("\\k\\#FILEX")), nullptr);
    EXPECT_EQ(table.Count(), 2u);
}

// Many keys and values, opened, closed, forgotten and renamed at random, against a list of paths. A
// new path may have the old one as a prefix, and others may differ by a sign behind it.
TEST(Handles, AgreeWithAPlainListUnderRandomUse) {
    FsHandleTable table;
    std::vector<std::pair<FsHandleEntry*, WString>> model;
    std::mt19937 random(20261121);
    const auto randomPath = [&] {
        WString path;
        for (auto parts = random() % 4; parts > 0; --parts) {
            path += '\\';
            for (auto units = 1 + random() % 2; units > 0; --units)
                path += static_cast<WChar>("aA!]"[random() % 4]);
        }
        return path;
    };
    const auto expectSame = [&] {
        ASSERT_EQ(table.Count(), model.size());
        for (const auto& [entry, path] : model) {
            const bool key = entry->kind == FsHandleKind::Key;
            ASSERT_EQ(key ? table.FindKey(entry->id) : table.FindFile(entry->file), entry);
            ASSERT_EQ(entry->Path(), path);
        }
    };
    for (uintptr_t step = 1; step < 20000; ++step) {
        SCOPED_TRACE(step);
        const auto action = random() % 100;
        const WString path = randomPath();
        if (action < 55 || model.empty()) {
            model.emplace_back(AddKey(table, path), path);
        } else if (action < 60) {
            model.emplace_back(table.Add(1, FakeFile(step), FsHandleKind::Value, path), path);
        } else if (action < 90) {
            const size_t index = random() % model.size();
            table.Remove(model[index].first);
            model.erase(model.begin() + static_cast<ptrdiff_t>(index));
        } else if (action < 98 && (path.size() > 2 || step % 500 == 0)) {
            table.ForgetSubtree(path, [](storage::StorageSearchStruct*) {});
            std::erase_if(model, [&](auto& key) { return FsIsInSubtree(key.second, path); });
        } else if (path.size() > 2) {
            const WString to = path + WTEXT("\\n");
            ASSERT_TRUE(table.RenamePrefix(path, to));
            for (auto& key : model)
                if (FsIsInSubtree(key.second, path))
                    key.second = to + key.second.substr(path.size());
        }
        if (step % 100 == 0) {
            ASSERT_NO_FATAL_FAILURE(expectSame());
        }
    }
}

}  // namespace
