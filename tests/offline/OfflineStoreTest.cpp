// The offline hive as a store, through the interface that every store has.
#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/offline/FileTime.h"
#include "offreg/HiveFormat.h"
#include "platform/FileSystem.h"
#include "platform/Heap.h"
#include "tests/offline/OfflineHive.h"
#include "tests/shared/LogCapture.h"

using namespace offline_test;
using support::TempDir;

namespace {

constexpr FBR_CREATEOPTIONS kStable = FSCREATEOPTIONS_NONE;

// A store on a file of its own; closed with the object unless the test has done so.
class OfflineStore : public ::testing::Test {
  protected:
    OfflineStore() : path_(dir_.File("user.dat")) { Open(); }
    ~OfflineStore() override { Close(); }

    void Open() {
        store_ = std::make_unique<FsOfflineRegistryImpl>();
        ASSERT_EQ(store_->FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    }
    FBR_STATUS Close() {
        if (store_ == nullptr) return FSSTATUS_SUCCESS;
        for (const int64_t key : opened_) store_->FBR_CloseDirEx(key);
        opened_.clear();
        const FBR_STATUS status = store_->FBR_DeInitialiseEx();
        store_.reset();
        return status;
    }
    void Reopen() {
        ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
        Open();
    }
    int64_t Create(const WString& name, int64_t parent = 0) {
        int64_t key = 0;
        EXPECT_EQ(store_->FBR_CreateDirEx(parent, name.c_str(), kStable, &key), FSSTATUS_SUCCESS);
        opened_.insert(key);
        return key;
    }
    int64_t OpenKey(const WString& name, FBR_STATUS expected = FSSTATUS_SUCCESS) {
        int64_t key = 0;
        EXPECT_EQ(store_->FBR_OpenDirEx(0, name.c_str(), &key), expected);
        if (expected == FSSTATUS_SUCCESS) opened_.insert(key);
        return key;
    }
    void CloseKey(int64_t key) {
        opened_.erase(key);
        EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    }
    void Set(int64_t key, const WString& name, const Bytes& data, uint32_t type = 3) {
        EXPECT_EQ(store_->FBR_SetValue(key, name.c_str(), type, data.data(), data.size()),
                  FSSTATUS_SUCCESS);
    }
    Bytes Get(int64_t key, const WString& name) {
        Bytes data(2 << 20);
        uint64_t size = 0;
        uint32_t type = 0;
        EXPECT_EQ(store_->FBR_QueryValue(key, name.c_str(), data.data(), data.size(), &size, &type),
                  FSSTATUS_SUCCESS);
        data.resize(size);
        return data;
    }
    WString FullName(int64_t key) {
        WChar* name = nullptr;
        EXPECT_EQ(store_->FBR_GetFullName_DirEx(key, &name), FSSTATUS_SUCCESS);
        return TakeText(name);
    }
    WString Name(int64_t key) {
        WChar* name = nullptr;
        EXPECT_EQ(store_->FBR_GetName_DirEx(key, &name), FSSTATUS_SUCCESS);
        return TakeText(name);
    }
    std::vector<WString> Keys(int64_t key) {
        std::vector<WString> names;
        EXPECT_EQ(store_->FBR_EnumerateAllKeys(key, names), FSSTATUS_NO_MORE_ENTRIES);
        return names;
    }
    static WString TakeText(WChar* text) {
        WString copy = text != nullptr ? text : WTEXT("(null)");
        platform::HeapRelease(text);
        return copy;
    }

    TempDir dir_;
    WString path_;
    std::unique_ptr<FsOfflineRegistryImpl> store_;
    std::set<int64_t> opened_;
};

TEST_F(OfflineStore, ANewHiveIsOnDiskOnlyAfterTheClose) {
    EXPECT_EQ(Get(OpenKey(WTEXT("")), WTEXT("FBRVersion")), (Bytes{2, 0, 0, 0}));
    EXPECT_FALSE(std::filesystem::exists(dir_ / "user.dat"));
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "user.dat"));
    Open();
    EXPECT_EQ(Get(OpenKey(WTEXT("\\")), WTEXT("FBRVersion")), (Bytes{2, 0, 0, 0}));
}

TEST_F(OfflineStore, OnlyAChangeWritesTheFile) {
    Create(WTEXT("a"));
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // The file is made read-only and marked: written again, it would have lost both.
    Bytes marked = support::ReadBytes(dir_ / "user.dat");
    marked.back() ^= 0x55;
    const auto touch = [&](auto change) {
        support::WriteBytes(dir_ / "user.dat", marked);
        Open();
        change();
        ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    };
    int64_t key = 0;
    touch([] {});
    EXPECT_EQ(support::ReadBytes(dir_ / "user.dat"), marked);
    touch([&] {
        WChar text[512];
        uint32_t units = 512;
        EXPECT_EQ(store_->FBR_CreateDirEx(0, WTEXT("a"), kStable, &key), FSSTATUS_ALREADY_EXISTS);
        opened_.insert(key);
        EXPECT_EQ(store_->FBR_CreateDirEx(0, WTEXT(""), kStable, &key), FSSTATUS_SUCCESS);
        EXPECT_EQ(store_->FBR_DeleteValue(OpenKey(WTEXT("a")), WTEXT("none")), FSSTATUS_NOT_FOUND);
        EXPECT_EQ(store_->FBR_GetKeySecurityString(OpenKey(WTEXT("a")), text, &units),
                  FSSTATUS_SUCCESS);
        // A change of security alone is not saved; that is meant.
        EXPECT_EQ(store_->FBR_SetKeySecurityString(OpenKey(WTEXT("a")), WTEXT("O:SYG:SY")),
                  FSSTATUS_SUCCESS);
    });
    EXPECT_EQ(support::ReadBytes(dir_ / "user.dat"), marked);
    touch([&] { Set(OpenKey(WTEXT("a")), WTEXT("v"), {1}); });
    EXPECT_NE(support::ReadBytes(dir_ / "user.dat"), marked);
}

TEST_F(OfflineStore, SavesOverAReadOnlyFile) {
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    ASSERT_EQ(platform::SetAttributes(path_.c_str(), platform::kAttributeReadOnly), 0u);
    Open();
    Create(WTEXT("a"));
    Reopen();
    OpenKey(WTEXT("a"));
}

TEST_F(OfflineStore, TheRootIsOneHandleWithoutAName) {
    const int64_t root = OpenKey(WTEXT("\\"));
    EXPECT_EQ(OpenKey(WTEXT("")), root);
    EXPECT_EQ(FullName(root), WTEXT("\\"));
    EXPECT_EQ(Name(root), WTEXT(""));
    CloseKey(root);
    EXPECT_EQ(OpenKey(WTEXT("\\")), root);
    EXPECT_EQ(store_->FBR_DeleteDirEx(root), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(store_->FBR_RenameDirEx(root, WTEXT("x")), FSSTATUS_INVALID_NAME);
    Create(WTEXT("below"), root);
}

TEST_F(OfflineStore, PathsAreKeptAsTheyWereSpelled) {
    const int64_t key = Create(WTEXT("\\one\\\\two\\three\\"));
    EXPECT_EQ(FullName(key), WTEXT("\\one\\\\two\\three"));
    EXPECT_EQ(Name(key), WTEXT("three"));
    const int64_t two = OpenKey(WTEXT("ONE\\two"));
    EXPECT_EQ(FullName(Create(WTEXT("four\\five"), two)), WTEXT("\\ONE\\two\\four\\five"));
    // The first component exists, the second cannot be made: no handle comes of that.
    int64_t none = 77;
    const WString tooLong = WTEXT("one\\new\\") + WString(256, 'n');
    EXPECT_EQ(store_->FBR_CreateDirEx(0, tooLong.c_str(), kStable, &none), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(none, 77);
}

TEST_F(OfflineStore, AShortBufferStaysAsItWasAndASizeNeedNotBeAskedFor) {
    const int64_t key = Create(WTEXT("k"));
    Set(key, WTEXT("v"), {1, 2, 3, 4, 5});
    uint64_t size = 0;
    uint8_t data[8] = {};
    EXPECT_EQ(store_->FBR_QueryValue(key, WTEXT("v"), data, 4, &size, nullptr),
              FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(data[0], 0);
    EXPECT_EQ(store_->FBR_QueryValue(key, WTEXT("v"), nullptr, 0, nullptr, nullptr),
              FSSTATUS_SUCCESS);
}

TEST_F(OfflineStore, ValuesComeInTheOrderOfTheirMakingWhateverTheirNames) {
    const int64_t key = Create(WTEXT("k"));
    const std::vector<WString> names = {WTEXT("b"), WString(), WString(3000, 'v'), WTEXT("a")};
    for (const WString& name : names) Set(key, name, {1});
    std::vector<WString> values;
    EXPECT_EQ(store_->FBR_EnumerateAllValues(key, values), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(values, names);
    WChar* name = nullptr;
    for (uint32_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(store_->FBR_EnumIntFileEx(key, i, &name), FSSTATUS_SUCCESS);
        EXPECT_EQ(TakeText(name), values[i]);
    }
}

// By whole components, whatever the spelling, and by the handle: a duplicate follows, and the
// handle of a deleted key stays one.
TEST_F(OfflineStore, ARenameMovesTheHandlesInTheKeyAndNoOther) {
    const int64_t key = Create(WTEXT("m"));
    const std::vector<std::pair<int64_t, WString>> others = {
        {Create(WTEXT("n\\m")), WTEXT("\\n\\m")},
        {Create(WTEXT("n\\m\\x")), WTEXT("\\n\\m\\x")},
        {Create(WTEXT("mx")), WTEXT("\\mx")},
    };
    Create(WTEXT("m\\\x00E4\\y"));
    const int64_t inside = OpenKey(WTEXT("M\\\x00C4\\Y"));
    const int64_t spelled = Create(WTEXT("m\\\\z\\u"));
    int64_t copy = 0;
    ASSERT_EQ(store_->FBR_DuplicateDirHandleEx(inside, &copy), FSSTATUS_SUCCESS);
    opened_.insert(copy);
    CloseKey(inside);
    const int64_t deleted = Create(WTEXT("m\\gone"));
    ASSERT_EQ(store_->FBR_DeleteDirEx(deleted), FSSTATUS_SUCCESS);
    const int64_t again = Create(WTEXT("m\\gone"));
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("q")), FSSTATUS_SUCCESS);
    for (const auto& [other, path] : others) {
        EXPECT_EQ(FullName(other), path);
        Set(other, WTEXT("own"), {1});
        EXPECT_EQ(Get(OpenKey(path), WTEXT("own")), Bytes{1});
    }
    const std::vector<std::pair<int64_t, WString>> moved = {{key, WTEXT("\\q")},
                                                            {copy, WTEXT("\\q\\\x00C4\\Y")},
                                                            {spelled, WTEXT("\\q\\\\z\\u")},
                                                            {again, WTEXT("\\q\\gone")}};
    for (const auto& [handle, path] : moved) {
        EXPECT_EQ(FullName(handle), path);
        Set(handle, WTEXT("new"), {2});
    }
    for (const WChar* path :
         {WTEXT("q"), WTEXT("q\\\x00E4\\y"), WTEXT("q\\z\\u"), WTEXT("q\\gone")}) {
        EXPECT_EQ(Get(OpenKey(path), WTEXT("new")), Bytes{2});
    }
    const uint8_t byte = 3;
    EXPECT_EQ(store_->FBR_SetValue(deleted, WTEXT("new"), 3, &byte, 1), FSSTATUS_FAILED);
    OpenKey(WTEXT("m"), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->FBR_RenameDirEx(deleted, WTEXT("r")), FSSTATUS_FAILED);
    OpenKey(WTEXT("m\\r"), FSSTATUS_NOT_FOUND);
    // A key is its last name, though a handle's path may end in a backslash.
    EXPECT_EQ(store_->FBR_RenameDirEx(Create(WTEXT("e\\f\\\\\\")), WTEXT("g")), FSSTATUS_SUCCESS);
    EXPECT_EQ(Keys(OpenKey(WTEXT("e"))), std::vector<WString>{WTEXT("g")});
}

TEST_F(OfflineStore, RenameLeavesAllAsItIsWhereItCannotBe) {
    const int64_t key = Create(WTEXT("a\\b"));
    Set(key, WTEXT("v"), {1});
    Create(WTEXT("a\\c\\x"));
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("C")), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("B")), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("")), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->FBR_RenameDirEx(OpenKey(WTEXT("a")), WTEXT("")), FSSTATUS_ALREADY_EXISTS);
    // Into itself: the copy would never end.
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("b\\n")), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(store_->FBR_RenameDirEx(key, nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(store_->FBR_RenameDirEx(0, WTEXT("n")), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FullName(key), WTEXT("\\a\\b"));
    EXPECT_EQ(Get(key, WTEXT("v")), Bytes{1});
    EXPECT_EQ(Keys(OpenKey(WTEXT("a"))), (std::vector<WString>{WTEXT("b"), WTEXT("c")}));
    EXPECT_EQ(Keys(OpenKey(WTEXT("a\\c"))), std::vector<WString>{WTEXT("x")});
}

TEST_F(OfflineStore, DeepTreesAreCopiedAndDeleted) {
    WString path = WTEXT("top");
    for (int i = 0; i < 600; ++i) path += WTEXT("\\d");
    Set(Create(path), WTEXT("v"), {1});
    EXPECT_EQ(store_->FBR_RenameDirEx(OpenKey(WTEXT("top")), WTEXT("new")), FSSTATUS_SUCCESS);
    EXPECT_EQ(Get(OpenKey(WTEXT("new") + path.substr(3)), WTEXT("v")), Bytes{1});
    EXPECT_EQ(store_->FBR_DeleteDirNamedEx(WTEXT("new")), FSSTATUS_SUCCESS);
    EXPECT_EQ(Keys(OpenKey(WTEXT(""))), std::vector<WString>{});
}

TEST_F(OfflineStore, SecurityGoesInAndOutAsText) {
    const int64_t key = Create(WTEXT("a"));
    const WString text = WTEXT("O:SYG:BAD:(A;CI;KA;;;BA)(A;;KR;;;BU)");
    ASSERT_EQ(store_->FBR_SetKeySecurityString(key, text.c_str()), FSSTATUS_SUCCESS);
    Set(key, WTEXT("v"), {1});
    Reopen();
    const int64_t again = OpenKey(WTEXT("a"));
    const auto need = static_cast<uint32_t>(text.size() + 1);
    std::vector<WChar> buffer(need);
    uint32_t units = need - 1;
    EXPECT_EQ(store_->FBR_GetKeySecurityString(again, buffer.data(), &units),
              FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(units, need);
    units = 0;
    EXPECT_EQ(store_->FBR_GetKeySecurityString(again, nullptr, &units), FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(units, need);
    EXPECT_EQ(store_->FBR_GetKeySecurityString(again, buffer.data(), &units), FSSTATUS_SUCCESS);
    EXPECT_EQ(units, need);
    EXPECT_EQ(WString(buffer.data()), text);
    EXPECT_EQ(store_->FBR_SetKeySecurityString(again, WTEXT("junk")), FSSTATUS_INVALID_NAME);
}

TEST(FileTimes, AreCalendarTimes) {
    const auto at = [](uint64_t ticks) {
        FBR_SYSTEMTIME t = {};
        EXPECT_TRUE(FileTimeToCalendar(ticks, &t));
        char text[64];
        snprintf(text, sizeof text, "%04d-%02d-%02d/%d %02d:%02d:%02d.%03d", t.wYear, t.wMonth,
                 t.wDay, t.wDayOfWeek, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
        return std::string(text);
    };
    EXPECT_EQ(at(0), "1601-01-01/1 00:00:00.000");
    EXPECT_EQ(at(116444736000000000), "1970-01-01/4 00:00:00.000");
    EXPECT_EQ(at(125963423999999999), "2000-02-29/2 23:59:59.999");
    EXPECT_EQ(at(0x7FFFFFFFFFFFFFFF), "30828-09-14/4 02:48:05.477");
    FBR_SYSTEMTIME untouched = {7, 7, 7, 7, 7, 7, 7, 7};
    EXPECT_FALSE(FileTimeToCalendar(uint64_t{1} << 63, &untouched));
    EXPECT_EQ(untouched.wYear, 7);
}

TEST_F(OfflineStore, WhatIsNoHiveDoesNotOpenAndStays) {
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    const Bytes junk(5000, 'x');
    support::WriteBytes(dir_ / "user.dat", junk);
    FsOfflineRegistryImpl store;
    EXPECT_EQ(store.FBR_InitialiseEx(path_.c_str()), FSSTATUS_FAILED);
    EXPECT_EQ(store.FBR_InitialiseEx(nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(store.FBR_InitialiseEx(support::Wide(dir_ / "no" / "x").c_str()),
              FSSTATUS_PATH_NOT_FOUND);
    EXPECT_EQ(support::ReadBytes(dir_ / "user.dat"), junk);
}

// Changes bytes of the closed hive's file and opens it. The base block's sum is made right.
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
        const Bytes before = support::ReadBytes(dir_ / "user.dat");
        const int64_t key = OpenKey(WTEXT("a"));
        int64_t made = 0;
        EXPECT_EQ(store_->FBR_SetValue(key, WTEXT("v"), 3, "x", 1), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_DeleteValue(key, WTEXT("sound")), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_CreateDirEx(0, WTEXT("a\\n\\o"), kStable, &made),
                  FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_DeleteDirEx(key), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_DeleteDirNamedEx(WTEXT("a")), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("b")), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_SetKeySecurityString(key, WTEXT("O:SYG:SY")), FSSTATUS_FILE_CORRUPT);
        EXPECT_EQ(store_->FBR_CreateDirEx(0, WTEXT("a"), kStable, &made), FSSTATUS_ALREADY_EXISTS);
        opened_.insert(made);
        EXPECT_EQ(Get(key, WTEXT("sound")), Bytes{7});
        EXPECT_EQ(Keys(OpenKey(WTEXT(""))), std::vector<WString>{WTEXT("a")});
        EXPECT_EQ(Close(), FSSTATUS_SUCCESS);
        EXPECT_EQ(support::ReadBytes(dir_ / "user.dat"), before);
    }
};

TEST_F(OfflineStoreThatCannotBeSavedWhole, OfADamagedHiveTheRestIsReadAndNothingChanged) {
    const int64_t key = Create(WTEXT("a"));
    Set(key, WTEXT("torn"), {1});
    Set(key, WTEXT("sound"), {7});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // The name stands behind the 20 bytes of its value's cell.
    Patch(dir_ / "user.dat", [](Bytes& file) { file[PlaceOf(file, "torn") - 20] = 'x'; });
    const LogCapture log;
    Open();
    std::vector<WString> names;
    EXPECT_EQ(store_->FBR_EnumerateAllValues(OpenKey(WTEXT("a")), names), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(names, std::vector<WString>{WTEXT("sound")});
    ExpectNoChange();
    const std::string file = "[" + platform::ToUtf8(path_) + "] is ";
#ifndef _WIN32  // elsewhere the library has a log of its own
    EXPECT_TRUE(log.Has(file + "damaged: value 0 of key \\a cannot be read"));
    EXPECT_TRUE(log.Has(file + "read without [1] damaged parts and cannot be changed"));
#endif
    EXPECT_TRUE(log.Has(file + "not changed: a part of it cannot be read and would be lost"));
}

TEST_F(OfflineStoreThatCannotBeSavedWhole, AHiveInTheMiddleOfAChangeIsReadAndNotChanged) {
    Set(Create(WTEXT("a")), WTEXT("sound"), {7});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    Patch(dir_ / "user.dat", [](Bytes& file) { ++file[offreg::format::base::kSequence1]; });
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
    const int64_t top = Create(WTEXT("top"));
    for (const WChar* name : {WTEXT("!one"), WTEXT("kid"), WTEXT("kid#le"), WTEXT("z")}) {
        Create(WString(WTEXT("top\\")) + name);
    }
    for (const WChar* name : {WTEXT("!two"), WTEXT("mid"), WTEXT("mid#le"), WTEXT("z")}) {
        Set(top, name, {2});
    }
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    Patch(dir_ / "user.dat", [](Bytes& file) {
        for (const std::string name : {"!one", "!two"}) file[PlaceOf(file, name)] = 0;
        for (const std::string name : {"kid#le", "mid#le"}) {
            const size_t place = PlaceOf(file, name);
            std::replace(&file[place], &file[place] + name.size(), '#', '\0');
        }
    });
    Open();
    const int64_t key = OpenKey(WTEXT("top"));
    const auto withZero = [](const WChar* name) {
        WString text(name);
        std::replace(text.begin(), text.end(), WChar{'#'}, WChar{0});
        return text;
    };
    const std::vector<WString> keys = {withZero(WTEXT("#one")), WTEXT("kid"),
                                       withZero(WTEXT("kid#le")), WTEXT("z")};
    EXPECT_EQ(Keys(key), keys);
    std::vector<WString> values;
    EXPECT_EQ(store_->FBR_EnumerateAllValues(key, values), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(values, (std::vector<WString>{withZero(WTEXT("#two")), WTEXT("mid"),
                                            withZero(WTEXT("mid#le")), WTEXT("z")}));
    WChar* name = nullptr;
    for (uint32_t i = 0; i < 4; ++i) {
        const bool isPlain = i % 2 == 1;
        const FBR_STATUS status = isPlain ? FSSTATUS_SUCCESS : FSSTATUS_INVALID_NAME;
        ASSERT_EQ(store_->FBR_EnumIntDirEx(key, i, &name), status);
        EXPECT_EQ(isPlain ? TakeText(name) : keys[i], keys[i]);
        ASSERT_EQ(store_->FBR_EnumIntFileEx(key, i, &name), status);
        EXPECT_EQ(isPlain ? TakeText(name) : values[i], values[i]);
    }
    EXPECT_EQ(store_->FBR_EnumIntDirEx(key, 4, &name), FSSTATUS_NO_MORE_ENTRIES);
    // Copied by such names, the tree would come out as another one.
    EXPECT_EQ(store_->FBR_RenameDirEx(key, WTEXT("new")), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(store_->FBR_DeleteDirNamedEx(WTEXT("top")), FSSTATUS_INVALID_NAME);
    EXPECT_EQ(Keys(key), keys);
    EXPECT_EQ(Keys(OpenKey(WTEXT(""))), std::vector<WString>{WTEXT("top")});
    Set(key, WTEXT("more"), {3});
    Reopen();
    EXPECT_EQ(Keys(OpenKey(WTEXT("top"))), keys);
}

// Whatever the way in which another one has changed the file: its data stay, and who comes too late
// is told.
TEST_F(OfflineStore, TheSecondToCloseUndoesNothing) {
    FsOfflineRegistryImpl early;
    int64_t key = 0;
    ASSERT_EQ(early.FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    Set(Create(WTEXT("k")), WTEXT("v"), {1});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    const auto tooLate = [&](FBR_STATUS expected) {
        ASSERT_EQ(early.FBR_CreateDirEx(0, WTEXT("late"), kStable, &key), FSSTATUS_SUCCESS);
        ASSERT_EQ(early.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
        const LogCapture log(Varnhold::Hob::Detail::kError);
        EXPECT_EQ(early.FBR_DeInitialiseEx(), expected);
        EXPECT_EQ(log.lines.size(), expected == FSSTATUS_SUCCESS ? 0u : 1u);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.Path()), {}), 1);
    };
    // A hive that was not there before, then one that was.
    tooLate(FSSTATUS_SHARING_VIOLATION);
    ASSERT_EQ(early.FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    Open();
    Set(OpenKey(WTEXT("k")), WTEXT("v"), {2});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    tooLate(FSSTATUS_SHARING_VIOLATION);
    // Written in place, with the time as it was: the base block tells.
    ASSERT_EQ(early.FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    const auto time = std::filesystem::last_write_time(dir_ / "user.dat");
    Patch(dir_ / "user.dat", [](Bytes& file) {
        file[offreg::format::base::kSequence1] = file[offreg::format::base::kSequence2] = 9;
    });
    std::filesystem::last_write_time(dir_ / "user.dat", time);
    tooLate(FSSTATUS_SHARING_VIOLATION);
    Open();
    EXPECT_EQ(Get(OpenKey(WTEXT("k")), WTEXT("v")), Bytes{2});
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    // A file that is gone holds nobody's change.
    ASSERT_EQ(early.FBR_InitialiseEx(path_.c_str()), FSSTATUS_SUCCESS);
    std::filesystem::remove(dir_ / "user.dat");
    tooLate(FSSTATUS_SUCCESS);
    Open();
    OpenKey(WTEXT("late"));
}

// The file is the one that the path led to at the opening.
TEST_F(OfflineStore, ARelativePathIsThatOfTheOpening) {
    ASSERT_EQ(Close(), FSSTATUS_SUCCESS);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.Path());
    FsOfflineRegistryImpl store;
    EXPECT_EQ(store.FBR_InitialiseEx(WTEXT("user.dat")), FSSTATUS_SUCCESS);
    std::filesystem::current_path(before);
    int64_t key = 0;
    EXPECT_EQ(store.FBR_CreateDirEx(0, WTEXT("a"), kStable, &key), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    Open();
    OpenKey(WTEXT("a"));
}

// Where the file should go there is a folder by now: changes are lost, nothing else.
TEST_F(OfflineStore, WhatStandsInTheWayStays) {
    std::filesystem::create_directories(dir_ / "user.dat" / "full");
    EXPECT_EQ(Close(), FSSTATUS_SHARING_VIOLATION);
    EXPECT_TRUE(std::filesystem::is_directory(dir_ / "user.dat" / "full"));
    std::filesystem::remove_all(dir_ / "user.dat");
}

// The folder is gone by the time of the save.
TEST_F(OfflineStore, AFailedCloseStillClosesTheStore) {
    std::filesystem::remove_all(dir_.Path());
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_PATH_NOT_FOUND);
    std::filesystem::create_directories(dir_.Path());
    // Closed is closed: there is nothing left to save.
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "user.dat"));
}

TEST_F(OfflineStore, HandlesMayStayOpenAtTheClose) {
    int64_t left = 0;
    EXPECT_EQ(store_->FBR_CreateDirEx(0, WTEXT("a"), kStable, &left), FSSTATUS_SUCCESS);
    int64_t copy = 0;
    EXPECT_EQ(store_->FBR_DuplicateDirHandleEx(OpenKey(WTEXT("")), &copy), FSSTATUS_SUCCESS);
    CloseKey(copy);
    Reopen();
    OpenKey(WTEXT("a"));
}

TEST_F(OfflineStore, ThreadsShareAStore) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 200; ++i) {
                const std::string name = "t" + std::to_string(t) + "\\k" + std::to_string(i);
                int64_t key = 0;
                EXPECT_EQ(store_->FBR_CreateDirEx(0, WString(name.begin(), name.end()).c_str(),
                                                  kStable, &key),
                          FSSTATUS_SUCCESS);
                EXPECT_EQ(store_->FBR_SetValue(key, WTEXT("v"), 4, &i, 4), FSSTATUS_SUCCESS);
                EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    Reopen();
    for (const WChar* top : {WTEXT("t0"), WTEXT("t3")}) {
        EXPECT_EQ(Keys(OpenKey(top)).size(), 200u);
    }
}

}  // namespace
