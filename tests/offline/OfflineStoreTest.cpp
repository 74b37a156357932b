// SPDX-License-Identifier: MIT
// The offline hive as a store: what it has beyond the contract of all stores.
#include <cstring>
#include <thread>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "tests/offline/SavedValue.h"
#include "tests/support/ChildProcess.h"

using namespace offline_test;
using support::TempDir;

namespace {

// Keys that cannot be opened, or that list a subkey without a name.
struct OddKeys final : FsOfflineRegistryImpl {
    FBR_STATUS FBR_OpenDirEx(int64_t parent, const WChar* name, int64_t* key) override {
        if (name == locked) return FSSTATUS_ACCESS_DENIED;
        return FsOfflineRegistryImpl::FBR_OpenDirEx(parent, name, key);
    }
    FBR_STATUS FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) override {
        const FBR_STATUS status = FsOfflineRegistryImpl::FBR_EnumIntDirEx(key, index, name);
        if (nameless && status == FSSTATUS_SUCCESS) **name = 0;
        return status;
    }
    WString locked;
    bool nameless = false;
};

// A subkey that is its own parent would have no end.
TEST(OfflineStore, ATreesDeletionStopsAtTheFirstFailure) {
    const TempDir dir;
    OddKeys store;
    ASSERT_EQ(store.FBR_InitialiseEx(dir.File("user.dat").c_str()), FSSTATUS_SUCCESS);
    int64_t key = 0;
    for (const WChar* name : {WTEXT("a\\b\\x"), WTEXT("a\\c"), WTEXT("a\\d"), WTEXT("a")})
        store.FBR_CreateDirEx(0, name, FSCREATEOPTIONS_NONE, &key);
    store.locked = WTEXT("a\\c");
    EXPECT_EQ(store.FBR_DeleteDirNamedEx(WTEXT("a")), FSSTATUS_ACCESS_DENIED);
    support::Names left;
    EXPECT_EQ(store.FBR_EnumerateAllKeys(key, left), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(left, (support::Names{WTEXT("c"), WTEXT("d")}));
    store.locked.clear();
    store.nameless = true;
    EXPECT_EQ(store.FBR_DeleteDirNamedEx(WTEXT("a")), FSSTATUS_TREE_DELETE_FAILED);
}

// The file is the one that the path led to at the opening; handles may stay open at the close.
TEST(OfflineStore, ARelativePathIsThatOfTheOpening) {
    const TempDir dir;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path());
    Offline store("user.dat");
    std::filesystem::current_path(before);
    EXPECT_NE(store.Make("a"), 0);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(Offline(dir.File("user.dat")).Has("a"));
}

TEST(OfflineStore, ThreadsShareAStore) {
    const TempDir dir;
    Offline store(dir.File("user.dat"));
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (const char* name : {"t0", "t1", "t2", "t3"})
        threads.emplace_back([&store, top = std::string(name)] {
            for (int i = 0; i < 200; ++i) {
                const int64_t key = store.Make(top + "\\k" + std::to_string(i));
                EXPECT_EQ(store.Set(key, "v", {1}), FSSTATUS_SUCCESS);
                EXPECT_EQ(store.Close(key), FSSTATUS_SUCCESS);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    Offline again(dir.File("user.dat"));
    for (const char* top : {"t0", "t1", "t2", "t3"})
        EXPECT_EQ(again.Keys(again.Open(top)).size(), 200u);
}

uint32_t NumberIn(const std::optional<Bytes>& data) {
    uint32_t number = 0;
    if (data && data->size() == sizeof number) std::memcpy(&number, data->data(), sizeof number);
    return number;
}

// Adds 1 to the value, as often as the second argument says; the exit code is the number of times
// that the store said yes, or 200 and a status that is none of the two to be expected.
const support::ChildRole kCount("count", [](const std::vector<std::string>& arguments) {
    int done = 0;
    for (int i = std::stoi(arguments[1]); i > 0; --i) {
        Offline store(arguments[0]);
        if (store.status != FSSTATUS_SUCCESS) continue;
        const uint32_t number = NumberIn(store.Get(store.Root(), "v")) + 1;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&number);
        store.Set(store.Root(), "v", Bytes(bytes, bytes + 4));
        const FBR_STATUS status = store.Close();
        if (status == FSSTATUS_SUCCESS)
            ++done;
        else if (status != FSSTATUS_SHARING_VIOLATION)
            return 200 + static_cast<int>(status);
    }
    return done;
});

TEST(OfflineStoreProcesses, OfManyThatSaveAtOnceEachYesIsKept) {
    const TempDir dir;
    ASSERT_EQ(Save(dir.File("user.dat"), {0, 0, 0, 0}), FSSTATUS_SUCCESS);
    std::vector<std::unique_ptr<support::ChildProcess>> children;
    const std::vector<std::string> words = {platform::ToUtf8(dir.File("user.dat")), "60"};
    children.reserve(4);
    for (int i = 0; i < 4; ++i)
        children.push_back(std::make_unique<support::ChildProcess>("count", words));
    uint32_t sum = 0;
    for (const auto& child : children) {
        const int yes = child->Wait();
        EXPECT_LE(yes, 60);
        sum += static_cast<uint32_t>(yes);
    }
    EXPECT_EQ(NumberIn(Load(dir.File("user.dat"))), sum);
    EXPECT_GE(sum, 20u);
    EXPECT_EQ(FilesIn(dir), 1u);
}

}  // namespace
