// SPDX-License-Identifier: MIT
// The offline hive as a store: what it has beyond the contract of all stores.
#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>

#include "FS_Library_DLL/offline/FileTime.h"
#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "FS_Library_DLL/registry/CombinePath.h"
#include "offreg/HiveFormat.h"
#include "platform/FileSystem.h"
#include "tests/offline/SavedValue.h"
#include "tests/shared/LogCapture.h"
#include "tests/support/ChildProcess.h"

using namespace offline_test;
using support::Names;
using support::TempDir;
using support::Text;

namespace {

// A store on a file of its own.
class OfflineStore : public testing::Test {
  protected:
    OfflineStore() { Open(); }
    void Open() {
        store_ = std::make_unique<Offline>(path_);
        ASSERT_EQ(store_->status, FSSTATUS_SUCCESS);
    }
    FBR_STATUS Close() { return store_->Close(); }
    void Reopen() {
        ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
        Open();
    }
    int64_t Create(const Text& name, int64_t parent = 0) { return store_->Make(name, parent); }
    int64_t Key(const Text& name) {
        const int64_t key = store_->Open(name);
        EXPECT_NE(key, 0) << platform::ToUtf8(name);
        return key;
    }
    void Set(int64_t key, const Text& name, const Bytes& data) {
        EXPECT_EQ(store_->Set(key, name, data), FSSTATUS_SUCCESS);
    }
    Bytes FileBytes() const { return support::ReadBytes(file_); }

    TempDir dir_;
    const WString path_ = dir_.File("user.dat");
    const std::filesystem::path file_ = dir_ / "user.dat";
    std::unique_ptr<Offline> store_;
};

TEST_F(OfflineStore, ANewHiveIsOnDiskOnlyAfterTheClose) {
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(store_->Get(Key("\\"), "FBRVersion"), (Bytes{2, 0, 0, 0}));
        EXPECT_EQ(std::filesystem::exists(file_), round == 1);
        Reopen();
    }
}

TEST_F(OfflineStore, OnlyAChangeWritesTheFile) {
    Create("a");
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // The file is marked: written again, it would have lost the mark.
    Bytes marked = FileBytes();
    marked.back() ^= 0x55;
    const auto touch = [&](auto change) {
        support::WriteBytes(file_, marked);
        Open();
        change();
        ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    };
    touch([] {});
    EXPECT_EQ(FileBytes(), marked);
    touch([&] {
        WChar text[512];
        uint32_t units = 512;
        EXPECT_EQ(store_->TryMake("a"), FSSTATUS_ALREADY_EXISTS);
        EXPECT_EQ(store_->TryMake(""), FSSTATUS_SUCCESS);
        EXPECT_EQ(store_->DeleteValue(Key("a"), "none"), FSSTATUS_NOT_FOUND);
        EXPECT_EQ(FBR_GetKeySecurityString(Key("a"), text, &units, store_->handle),
                  FSSTATUS_SUCCESS);
        // A change of security alone is not saved.
        EXPECT_EQ(FBR_SetKeySecurityString(Key("a"), WTEXT("O:SYG:SY"), store_->handle),
                  FSSTATUS_SUCCESS);
    });
    EXPECT_EQ(FileBytes(), marked);
    touch([&] { Set(Key("a"), "v", {1}); });
    EXPECT_NE(FileBytes(), marked);
    // Also over a read-only one.
    ASSERT_EQ(platform::SetAttributes(path_.c_str(), platform::kAttributeReadOnly), 0u);
    Open();
    Create("b");
    Reopen();
    Key("b");
}

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
TEST_F(OfflineStore, ATreesDeletionStopsAtTheFirstFailure) {
    for (const char* name : {"a\\b\\x", "a\\c", "a\\d"}) Create(name);
    Reopen();
    OddKeys store;
    ASSERT_EQ(store.FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    store.locked = WTEXT("a\\c");
    EXPECT_EQ(store.FBR_DeleteDirNamedEx(WTEXT("a")), FSSTATUS_ACCESS_DENIED);
    store.locked.clear();
    int64_t key = 0;
    ASSERT_EQ(store.FBR_OpenDirEx(0, WTEXT("a"), &key), FSSTATUS_SUCCESS);
    std::vector<WString> left;
    EXPECT_EQ(store.FBR_EnumerateAllKeys(key, left), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(left, (Names{WTEXT("c"), WTEXT("d")}));
    store.nameless = true;
    EXPECT_EQ(store.FBR_DeleteDirNamedEx(WTEXT("a")), FSSTATUS_TREE_DELETE_FAILED);
    EXPECT_EQ(store.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
}

TEST(CombinePath, PutsOneBackslashBetween) {
    const WChar* const rows[][3] = {
        {WTEXT("a"), WTEXT("b"), WTEXT("a\\b")},
        {WTEXT("a\\"), WTEXT("\\b"), WTEXT("a\\b")},
        {WTEXT("a"), WTEXT("\\\\b"), WTEXT("a\\\\b")},
        {WTEXT(""), WTEXT("\\b"), WTEXT("\\b")},
        {WTEXT("a\\"), WTEXT(""), WTEXT("a\\")},
        {WTEXT("\\\\?\\C:"), WTEXT("\\\\?\\x"), WTEXT("\\\\?\\C:\\x")},
        {WTEXT("a"), WTEXT("\\\\?\\x"), WTEXT("a\\x")},
        {WTEXT("\\\\?\\"), WTEXT("x"), WTEXT("\\\\?\\x")},
    };
    for (const auto& [left, right, whole] : rows) EXPECT_EQ(CombinePath(left, right), whole);
}

TEST(FileTimes, AreCalendarTimes) {
    const std::pair<uint64_t, const char*> rows[] = {
        {0, "1601-01-01/1 00:00:00.000"},
        {116444736000000000, "1970-01-01/4 00:00:00.000"},
        {125963423999999999, "2000-02-29/2 23:59:59.999"},
        {0x7FFFFFFFFFFFFFFF, "30828-09-14/4 02:48:05.477"}};
    for (const auto& [ticks, expected] : rows) {
        FBR_SYSTEMTIME t = {};
        EXPECT_TRUE(FileTimeToCalendar(ticks, &t));
        char text[64];
        snprintf(text, sizeof text, "%04d-%02d-%02d/%d %02d:%02d:%02d.%03d", t.wYear, t.wMonth,
                 t.wDay, t.wDayOfWeek, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
        EXPECT_STREQ(text, expected);
    }
    FBR_SYSTEMTIME untouched = {7, 7, 7, 7, 7, 7, 7, 7};
    EXPECT_FALSE(FileTimeToCalendar(uint64_t{1} << 63, &untouched));
    EXPECT_EQ(untouched.wYear, 7);
}

// Changes bytes of the closed hive's file. The base block's sum is made right.
void Patch(const std::filesystem::path& path, const std::function<void(Bytes&)>& change) {
    Bytes file = support::ReadBytes(path);
    change(file);
    offreg::format::Store(file.data() + offreg::format::base::kChecksum,
                          offreg::format::Checksum(file.data()));
    support::WriteBytes(path, file);
}

// Where a name of one byte a character stands in the file.
size_t PlaceOf(const Bytes& file, const std::string& name) {
    const auto found = std::search(file.begin() + 4096, file.end(), name.begin(), name.end());
    EXPECT_NE(found, file.end()) << name;
    return static_cast<size_t>(found - file.begin());
}

class OfflineStoreThatCannotBeSavedWhole : public OfflineStore {
  protected:
    // All there is to change; and the file stays as it is.
    void ExpectNoChange() {
        const Bytes before = FileBytes();
        const int64_t key = Key("a");
        for (const FBR_STATUS answer :
             {store_->Set(key, "v", {1}), store_->DeleteValue(key, "sound"),
              store_->TryMake("a\\n\\o"), store_->Delete(key), store_->DeleteTree("a"),
              store_->Rename(key, "b"),
              FBR_SetKeySecurityString(key, WTEXT("O:SYG:SY"), store_->handle)})
            EXPECT_EQ(answer, FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->TryMake("a"), FSSTATUS_ALREADY_EXISTS);
        EXPECT_EQ(store_->Get(key, "sound"), Bytes{7});
        EXPECT_EQ(store_->Keys(Key("")), Names{WTEXT("a")});
        EXPECT_EQ(Close(), FSSTATUS_SUCCESS);
        EXPECT_EQ(FileBytes(), before);
    }
};

TEST_F(OfflineStoreThatCannotBeSavedWhole, OfADamagedHiveTheRestIsReadAndNothingChanged) {
    const int64_t key = Create("a");
    Set(key, "torn", {1});
    Set(key, "sound", {7});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // The name stands behind the 20 bytes of its value's cell.
    Patch(file_, [](Bytes& file) { file[PlaceOf(file, "torn") - 20] = 'x'; });
    const LogCapture log;
    Open();
    EXPECT_EQ(store_->Values(Key("a")), Names{WTEXT("sound")});
    ExpectNoChange();
    const std::string file = "[" + platform::ToUtf8(path_) + "] is ";
#ifndef _WIN32  // elsewhere the library has a log of its own
    EXPECT_TRUE(log.Has(file + "damaged: value 0 of key \\a cannot be read"));
    EXPECT_TRUE(log.Has(file + "read without [1] damaged parts and cannot be changed"));
#endif
    EXPECT_TRUE(log.Has(file + "not changed: a part of it cannot be read and would be lost"));
}

TEST_F(OfflineStoreThatCannotBeSavedWhole, AHiveInTheMiddleOfAChangeIsReadAndNotChanged) {
    Set(Create("a"), "sound", {7});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    Patch(file_, [](Bytes& file) { ++file[offreg::format::base::kSequence1]; });
    const LogCapture log(Varnhold::Hob::Detail::kWarning);
    Open();
    ASSERT_FALSE(log.lines.empty());
    EXPECT_NE(log.lines.front().message.find("sequence numbers that differ"), std::string::npos);
    ExpectNoChange();
    EXPECT_TRUE(
        log.Has("[" + platform::ToUtf8(path_) + "] is not changed: its sequence numbers differ"));
}

// Such names come from a hive or the live registry; no caller can spell them.
TEST_F(OfflineStore, NamesWithAZeroAreShownAndLeadToNothing) {
    const int64_t top = Create("top");
    for (const char* name : {"!one", "kid", "kid#le", "z"}) Create(name, top);
    for (const char* name : {"!two", "mid", "mid#le", "z"}) Set(top, name, {2});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    Patch(file_, [](Bytes& file) {
        for (const std::string name : {"!one", "!two"}) file[PlaceOf(file, name)] = 0;
        for (const std::string name : {"kid#le", "mid#le"}) file[PlaceOf(file, name) + 3] = 0;
    });
    Open();
    const int64_t key = Key("top");
    const auto withZeros = [](Names names) {
        for (WString& name : names) std::replace(name.begin(), name.end(), WChar{'#'}, WChar{0});
        return names;
    };
    const Names keys = withZeros({WTEXT("#one"), WTEXT("kid"), WTEXT("kid#le"), WTEXT("z")});
    const Names values = withZeros({WTEXT("#two"), WTEXT("mid"), WTEXT("mid#le"), WTEXT("z")});
    EXPECT_EQ(store_->Keys(key), keys);
    EXPECT_EQ(store_->Values(key), values);
    for (const auto& [one, names] :
         {std::pair{&FBR_EnumIntDirEx, &keys}, {&FBR_EnumIntFileEx, &values}})
        for (uint32_t i = 0; i < 5; ++i) {
            WChar* name = nullptr;
            const bool plain = i % 2 == 1;
            EXPECT_EQ(one(key, i, &name, store_->handle), plain    ? FSSTATUS_SUCCESS
                                                          : i == 4 ? FSSTATUS_NO_MORE_ENTRIES
                                                                   : FSSTATUS_INVALID_NAME);
            if (plain) {
                EXPECT_EQ(support::Taken(name), (*names)[i]);
            }
        }
    // Copied by such names, the tree would come out as another one.
    EXPECT_EQ(store_->Rename(key, "new"), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(store_->DeleteTree("top"), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(store_->Keys(Key("")), Names{WTEXT("top")});
    Set(key, "more", {3});
    Reopen();
    EXPECT_EQ(store_->Keys(Key("top")), keys);
}

// Whatever the way in which another one has changed the file: its data stay, and who comes too late
// is told.
TEST_F(OfflineStore, TheSecondToCloseUndoesNothing) {
    auto early = std::make_unique<Offline>(path_);
    Set(Create("k"), "v", {1});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    const auto tooLate = [&](FBR_STATUS expected) {
        ASSERT_EQ(early->TryMake("late"), FSSTATUS_SUCCESS);
        const LogCapture log(Varnhold::Hob::Detail::kError);
        EXPECT_EQ(early->Close(), expected);
        EXPECT_EQ(log.lines.size(), expected == FSSTATUS_SUCCESS ? 0u : 1u);
        EXPECT_EQ(FilesIn(dir_), 1u);
    };
    // A hive that was not there before, then one that was.
    tooLate(FSSTATUS_SHARING_VIOLATION);
    early = std::make_unique<Offline>(path_);
    Open();
    Set(Key("k"), "v", {2});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    tooLate(FSSTATUS_SHARING_VIOLATION);
    // Written in place, with the time as it was: the base block tells.
    early = std::make_unique<Offline>(path_);
    const auto time = std::filesystem::last_write_time(file_);
    Patch(file_, [](Bytes& file) {
        file[offreg::format::base::kSequence1] = file[offreg::format::base::kSequence2] = 9;
    });
    std::filesystem::last_write_time(file_, time);
    tooLate(FSSTATUS_SHARING_VIOLATION);
    Open();
    EXPECT_EQ(store_->Get(Key("k"), "v"), Bytes{2});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // A file that is gone holds nobody's change.
    early = std::make_unique<Offline>(path_);
    std::filesystem::remove(file_);
    tooLate(FSSTATUS_SUCCESS);
    Open();
    Key("late");
}

// The file is the one that the path led to at the opening; handles may stay open at the close.
TEST_F(OfflineStore, ARelativePathIsThatOfTheOpening) {
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.Path());
    Offline store("user.dat");
    std::filesystem::current_path(before);
    EXPECT_NE(store.Make("a"), 0);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    Open();
    Key("a");
}

// Where the file should go there is a folder by now, or its own is gone: changes are lost, nothing
// else. What is no hive stays as it is.
TEST_F(OfflineStore, AFailedCloseStillClosesTheStore) {
    std::filesystem::create_directories(file_ / "full");
    EXPECT_EQ(Close(), FSSTATUS_SHARING_VIOLATION);
    EXPECT_TRUE(std::filesystem::is_directory(file_ / "full"));
    std::filesystem::remove_all(file_);
    Open();
    std::filesystem::remove_all(dir_.Path());
    EXPECT_EQ(Close(), FSSTATUS_PATH_NOT_FOUND);
    EXPECT_EQ(Offline(path_).status, FSSTATUS_PATH_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(dir_.Path()));
    const TempDir other;
    const Bytes junk(5000, 'x');
    support::WriteBytes(other / "junk", junk);
    EXPECT_EQ(Offline(other.File("junk")).status, FSSTATUS_FAILED);
    EXPECT_EQ(support::ReadBytes(other / "junk"), junk);
}

TEST_F(OfflineStore, ThreadsShareAStore) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 200; ++i) {
                const int64_t key = Create("t" + std::to_string(t) + "\\k" + std::to_string(i));
                Set(key, "v", {1});
                EXPECT_EQ(store_->Close(key), FSSTATUS_SUCCESS);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    Reopen();
    for (const char* top : {"t0", "t3"}) EXPECT_EQ(store_->Keys(Key(top)).size(), 200u);
}

// Adds 1 to the value, as often as the second argument says; the exit code is the number of times
// that the store said yes, or 200 and a status that is none of the two to be expected.
const support::ChildRole kCount("count", [](const std::vector<std::string>& arguments) {
    const WString path = platform::FromUtf8(arguments[0]);
    int done = 0;
    for (int i = std::stoi(arguments[1]); i > 0; --i) {
        Offline store(path);
        if (store.status != FSSTATUS_SUCCESS) continue;
        const auto data = store.Get(store.Root(), "v");
        uint32_t number = 0;
        if (data && data->size() == 4) std::memcpy(&number, data->data(), 4);
        ++number;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&number);
        store.Set(store.Root(), "v", Bytes(bytes, bytes + 4));
        const FBR_STATUS status = store.Close();
        if (status == FSSTATUS_SUCCESS) ++done;
        if (status != FSSTATUS_SUCCESS && status != FSSTATUS_SHARING_VIOLATION)
            return 200 + static_cast<int>(status);
    }
    return done;
});

TEST(OfflineStoreProcesses, OfManyThatSaveAtOnceEachYesIsKept) {
    TempDir dir;
    ASSERT_EQ(Save(dir.File("user.dat"), {0, 0, 0, 0}), FSSTATUS_SUCCESS);
    constexpr int kChildren = 4;
    std::vector<std::unique_ptr<support::ChildProcess>> children;
    children.reserve(kChildren);
    for (int i = 0; i < kChildren; ++i) {
        children.push_back(std::make_unique<support::ChildProcess>(
            "count", std::vector<std::string>{(dir / "user.dat").string(), "60"}));
    }
    uint32_t sum = 0;
    for (const auto& child : children) {
        const int yes = child->Wait();
        EXPECT_LE(yes, 60);
        sum += static_cast<uint32_t>(yes);
    }
    const Bytes data = Load(dir.File("user.dat"));
    uint32_t number = 0;
    ASSERT_EQ(data.size(), sizeof number);
    std::memcpy(&number, data.data(), sizeof number);
    EXPECT_EQ(number, sum);
    EXPECT_GE(sum, 20u);
    EXPECT_EQ(FilesIn(dir), 1u);
}

}  // namespace
