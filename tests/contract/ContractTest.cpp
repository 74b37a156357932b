// What every store promises, whatever it is kept in. That lists of changes do what each of them
// says is in ModelTest.cpp.
#include <algorithm>

#include "FS_Library_DLL/IFSInterface.h"
#include "platform/Clock.h"
#include "tests/contract/OpenStore.h"

namespace contract {
namespace {

// Bytes that no other size has.
std::string Pattern(size_t size) {
    std::string bytes(size, '\0');
    uint32_t seed = static_cast<uint32_t>(size);
    for (char& byte : bytes) byte = static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
    return bytes;
}

class Contract : public StoreTest {
  protected:
    void SetUp() override {
        StoreTest::SetUp();
        place_ = GetParam().makePlace();
        Reopen();
    }
    void TearDown() override {
        store_.reset();
        place_.reset();
        StoreTest::TearDown();
    }
    void Reopen() {
        store_.reset();
        store_ = std::make_unique<OpenStore>(*place_);
        ASSERT_NE(store_->handle, nullptr);
    }
    OpenStore& Store() { return *store_; }
    const Differences& Differs() const { return GetParam().differences; }

  private:
    std::unique_ptr<Place> place_;
    std::unique_ptr<OpenStore> store_;
};

INSTANTIATE_TEST_SUITE_P(Stores, Contract, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Contract, ANewStoreHasARootAndNothingElse) {
    const OpenKey root = Store().Key("\\");
    EXPECT_EQ(Store().KeyNames(root), Set{});
    EXPECT_EQ(Store().ValueNames(root),
              Differs().rootHasVersion ? Set{WTEXT("FBRVersion")} : Set{});
    EXPECT_EQ(Store().FullName(root), Differs().rootFullName);
    EXPECT_EQ(!Store().Name(root).empty(), Differs().rootIsNamed);
    uint32_t corrupted = 7;
    EXPECT_EQ(FBR_IsCorrupted(Store().handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
}

TEST_P(Contract, KeysAreMadeWithTheirParentsAndFoundByAnySpelling) {
    EXPECT_EQ(Store().TryOpen("a"), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(Store().TryMake("a\\B\\c"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryMake("\\a\\B\\c"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(Store().TryMake("A\\b"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(Store().TryOpen("\\a\\b\\C"), FSSTATUS_SUCCESS);
    for (const char* missing : {"a\\x", "a\\x\\y"})
        EXPECT_EQ(Store().TryOpen(missing), FSSTATUS_NOT_FOUND);
    // The case in which it was made is kept.
    EXPECT_EQ(Store().KeyNames(Store().Key("A")), Set{WTEXT("B")});

    // Below a parent, and below the root's handle.
    const OpenKey root = Store().Key("\\"), parent = Store().Key("a", root);
    EXPECT_EQ(Store().TryMake("d\\e", parent), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryOpen("a\\d\\e"), FSSTATUS_SUCCESS);
    const OpenKey below = Store().Key("d\\e", parent);
    EXPECT_EQ(Store().FullName(below), WTEXT("\\a\\d\\e"));
    EXPECT_EQ(Store().Name(below), WTEXT("e"));
    // A value is no key.
    EXPECT_EQ(Store().Set(parent, "value", "x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryOpen("a\\value"), FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, ValuesKeepTheirTypeAndEveryByte) {
    const OpenKey key = Store().Create("k");
    const size_t sizes[] = {0, 1, 2, 3, 4, 5, 8, 22, 23, 100, 511, 513, 4096, 70000};
    const auto name = [](size_t size) { return Text("value of " + std::to_string(size)); };
    for (int round = 0; round < 2; ++round) {
        // Overwritten by longer and by shorter data of another type.
        const auto data = [&](size_t size) {
            return Pattern(round == 0 ? size : size % 1000 * 2 / 3 + 1);
        };
        const auto typeOf = [&](size_t size) { return static_cast<uint32_t>(size + round) % 12; };
        for (const size_t size : sizes)
            ASSERT_EQ(Store().Set(key, name(size), data(size), typeOf(size)), FSSTATUS_SUCCESS);
        for (const size_t size : sizes) {
            uint32_t type = 99;
            EXPECT_EQ(Store().Data(key, name(size)), data(size)) << size;
            Store().Get(key, name(size), &type);
            EXPECT_EQ(type, typeOf(size));
        }
    }
    for (const uint32_t odd : {77u, 0xFFFFFFFFu}) {
        uint32_t type = 0;
        EXPECT_EQ(Store().Set(key, "odd", "x", odd), FSSTATUS_SUCCESS);
        EXPECT_TRUE(Store().Get(key, "ODD", &type));
        EXPECT_EQ(type, odd);
    }
    EXPECT_EQ(FBR_SetValue(key, WTEXT("no"), 0, nullptr, 0, Store().handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().Data(key, "NO"), "");
}

TEST_P(Contract, QueriesTellTheSizeAndUseTheBufferGiven) {
    const OpenKey key = Store().Create("k");
    const std::string data = Pattern(100);
    ASSERT_EQ(Store().Set(key, "a longer name", data, 1), FSSTATUS_SUCCESS);
    uint64_t size = 0;
    uint32_t type = 0;
    EXPECT_EQ(Store().Query(key, "a longer name", nullptr, 0, &size, &type),
              FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(size, 100u);
    EXPECT_EQ(type, 1u);
    for (const size_t room : {99, 100, 101, 200}) {
        std::string buffer(210, '#');
        size = 0;
        const FBR_STATUS status =
            Store().Query(key, "a longer name", buffer.data(), room, &size, &type);
        const bool fits = room >= data.size();
        const bool succeeds = fits || Differs().shortBufferSucceeds;
        const size_t given = std::min<size_t>(room, 100);
        EXPECT_EQ(status, succeeds ? FSSTATUS_SUCCESS : FSSTATUS_BUFFER_OVERFLOW) << room;
        EXPECT_EQ(size, fits || !Differs().shortBufferSucceeds ? 100 : room) << room;
        if (succeeds) {
            EXPECT_EQ(buffer.substr(0, given), data.substr(0, given));
        }
        EXPECT_EQ(buffer.find_first_not_of('#', given), std::string::npos)
            << "wrote behind the buffer of " << room;
    }
    EXPECT_EQ(Store().Query(key, "missing", nullptr, 0, &size), FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, TheEmptyNameIsDefaultWhereValuesAreSetAndRead) {
    const OpenKey key = Store().Create("k");
    EXPECT_EQ(Store().Set(key, "", "data"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().Data(key, "(Default)"), "data");
    EXPECT_EQ(Store().Data(key, ""), "data");
    EXPECT_EQ(Store().ValueNames(key), Set{WTEXT("(Default)")});
    const bool one = Differs().emptyNameIsDefault;
    EXPECT_EQ(Store().DeleteValue(key, ""), one ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
    EXPECT_EQ(Store().DeleteValue(key, "(Default)"), one ? FSSTATUS_NOT_FOUND : FSSTATUS_SUCCESS);
    // Below the exported functions the empty name is the unnamed value, where a store has one.
    IFSInterface& inner = *Store().handle;
    ASSERT_EQ(Store().Set(key, "(Default)", "called"), FSSTATUS_SUCCESS);
    ASSERT_EQ(inner.FBR_SetValue(key, WTEXT(""), 3, "real", 4), FSSTATUS_SUCCESS);
    char data[8] = {};
    uint64_t size = 0;
    EXPECT_EQ(inner.FBR_QueryValue(key, WTEXT(""), data, sizeof data, &size, nullptr),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(std::string(data, size), "real");
    EXPECT_EQ(Store().Data(key, "(Default)"), one ? "real" : "called");
    EXPECT_EQ(Store().ValueNames(key).size(), one ? 1u : 2u);
    EXPECT_EQ(Store().DeleteValue(key, ""), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().ValueNames(key).size(), one ? 0u : 1u);
}

// A value and a subkey of one name live side by side.
TEST_P(Contract, NamesOfAllSortsComeBackAsTheyWere) {
    const Set names{WTEXT("plain"),           WTEXT("with blank"),
                    WTEXT("dots.and...more"), WTEXT("a/b"),
                    WTEXT("#hash #0023"),     WTEXT("\"quoted\" <x> |y| z*?"),
                    WTEXT("tab\tand\x01"),    WTEXT("\u00e4\u00f6\u00fc \u20ac"),
                    WTEXT("\u4e2d\u6587"),    WTEXT("\U0001F600"),
                    WTEXT("%PATH%"),          WTEXT("colon:and;more"),
                    WString(200, 'n'),        WTEXT("_R.I.P")};
    const OpenKey key = Store().Create("k");
    const auto utf8 = [](const WString& name) { return platform::ToUtf8(name); };
    for (const WString& name : names) {
        EXPECT_EQ(Store().Set(key, name, utf8(name)), FSSTATUS_SUCCESS);
        EXPECT_EQ(Store().TryMake(name, key), FSSTATUS_SUCCESS) << utf8(name);
    }
    EXPECT_EQ(Store().ValueNames(key), names);
    EXPECT_EQ(Store().KeyNames(key), names);
    for (const WString& name : names) {
        const OpenKey child = Store().Key(name, key);
        EXPECT_EQ(Store().Name(child), name);
        EXPECT_EQ(Store().FullName(child), WTEXT("\\k\\") + name);
        EXPECT_EQ(Store().Delete(child), FSSTATUS_SUCCESS);
        EXPECT_EQ(Store().Data(key, name), utf8(name));
    }
    EXPECT_EQ(Store().KeyNames(key), Set{});
    // A value's name may hold a backslash.
    EXPECT_EQ(Store().Set(key, "C:\\folder\\file", "x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().ValueNames(key).count(WTEXT("C:\\folder\\file")), 1u);
    EXPECT_EQ(Store().KeyNames(key), Set{});
    EXPECT_EQ(Store().DeleteValue(key, "C:\\folder\\file"), FSSTATUS_SUCCESS);
}

TEST_P(Contract, EnumerationAddsToWhatItIsGivenAndEndsWithNoMoreEntries) {
    const OpenKey key = Store().Create("k");
    EXPECT_TRUE(Store().Keys(key).empty());
    support::Names names;
    EXPECT_EQ(FBR_EnumerateAllKeys(0, names, Store().handle), FSSTATUS_INVALID_PARAMETER);

    // Each takes its time on the way to a server.
    const uint32_t count = Differs().listsReplace ? 200 : 1000;
    Set expected;
    for (uint32_t i = 0; i < count; ++i) {
        const Text name = "name " + std::to_string(i);
        ASSERT_EQ(Store().TryMake(name, key), FSSTATUS_SUCCESS);
        ASSERT_EQ(Store().Set(key, name, std::to_string(i)), FSSTATUS_SUCCESS);
        expected.insert(name);
    }
    EXPECT_EQ(Store().KeyNames(key), expected);
    EXPECT_EQ(Store().ValueNames(key), expected);
    names = {WTEXT("before")};
    EXPECT_EQ(FBR_EnumerateAllKeys(key, names, Store().handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(names.size(), Differs().listsReplace ? count : count + 1);
    EXPECT_EQ(names.front() == WTEXT("before"), !Differs().listsReplace);
    FBR_WCHAR* name = nullptr;
    EXPECT_EQ(FBR_EnumIntDirEx(key, count, &name, Store().handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(name != nullptr, Differs().endHasName);
    FBR_Release(name);
}

TEST_P(Contract, ARenameTakesTheOpenHandlesAlongAndNoNeighbours) {
    const OpenKey key = Store().Create("a\\old"), below = Store().Create("a\\old\\b");
    const OpenKey neighbour = Store().Create("a\\ol"), other = Store().Create("a\\older\\b");
    EXPECT_EQ(Store().Rename(key, "OL"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(Store().FullName(key), WTEXT("\\a\\old"));
    EXPECT_EQ(Store().Rename(key, "a new name"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().Name(key), WTEXT("a new name"));
    EXPECT_EQ(Store().FullName(below), WTEXT("\\a\\a new name\\b"));
    EXPECT_EQ(Store().FullName(neighbour), WTEXT("\\a\\ol"));
    EXPECT_EQ(Store().FullName(other), WTEXT("\\a\\older\\b"));
    EXPECT_EQ(Store().Set(below, "x", "3"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().Data(Store().Key("a\\a new name\\b"), "x"), "3");
    EXPECT_EQ(Store().TryMake("a\\old"), FSSTATUS_SUCCESS);
}

TEST_P(Contract, AKeyWithValuesOnlyIsDeletedAndItsHandleIsOfNoUse) {
    OpenKey key = Store().Create("k\\x");
    ASSERT_EQ(Store().Set(key, "v", "1"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().Delete(key), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryOpen("k\\x"), FSSTATUS_NOT_FOUND);
    EXPECT_NE(Store().Set(key, "v", "2"), FSSTATUS_SUCCESS);
    EXPECT_EQ(key.Close(), Differs().handleOutlivesKey ? FSSTATUS_SUCCESS : FSSTATUS_FAILED);
    EXPECT_EQ(Store().TryMake("k\\x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().ValueNames(Store().Key("k\\x")), Set{});
}

TEST_P(Contract, AKeyWithSubkeysIsDeletedByNameOnly) {
    const OpenKey key = Store().Create("k\\x");
    ASSERT_EQ(Store().TryMake("k\\x\\y\\z"), FSSTATUS_SUCCESS);
    ASSERT_EQ(Store().Set(key, "v", "1"), FSSTATUS_SUCCESS);
    const FBR_STATUS refused = Store().Delete(key);
    const std::vector<FBR_STATUS>& allowed = Differs().deleteWithSubkeys;
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), refused), allowed.end()) << refused;
    EXPECT_EQ(Store().TryOpen("k\\x\\y\\z"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().ValueNames(key).empty(), Differs().refusedDeleteTakesValues);
    EXPECT_EQ(Store().DeleteTree("\\k\\x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryOpen("k\\x"), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(Store().TryOpen("k"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().DeleteTree("\\no\\x"), Differs().deleteBelowMissing);
}

TEST_P(Contract, DeepTreesAreMadeReadAndDeleted) {
    std::string path;
    for (int level = 0; level < 100; ++level) path += "\\level" + std::to_string(level);
    {
        const OpenKey deepest = Store().Create(path);
        EXPECT_EQ(Store().FullName(deepest), Text(path));
        ASSERT_EQ(Store().Set(deepest, "v", "deep"), FSSTATUS_SUCCESS);
    }
    Reopen();
    EXPECT_EQ(Store().Data(Store().Key(path), "v"), "deep");
    EXPECT_EQ(Store().DeleteTree("\\level0"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().KeyNames(Store().Key("\\")), Set{});
}

TEST_P(Contract, TheTimesOfAKeyAreThoseOfItsLastChange) {
    FBR_SYSTEMTIME time{};
    ASSERT_EQ(FBR_GetDirTimesEx(Store().Create("k"), &time, Store().handle), FSSTATUS_SUCCESS);
    const platform::UtcTime now = platform::UtcNow();
    if (now.month != time.wMonth) return;
    EXPECT_EQ(time.wYear, now.year);
    const int passed =
        ((now.day - time.wDay) * 24 + now.hour - time.wHour) * 60 + now.minute - time.wMinute;
    EXPECT_GE(passed, 0);
    EXPECT_LE(passed, 2);
}

TEST_P(Contract, AClosedParentIsRefusedOrStandsForTheRoot) {
    OpenKey parent = Store().Create("parent");
    const FBR_KEY closed = parent;
    ASSERT_EQ(parent.Close(), FSSTATUS_SUCCESS);
    if (Differs().unknownParentIsRoot) {
        EXPECT_EQ(Store().TryMake("stray", closed), FSSTATUS_SUCCESS);
        EXPECT_EQ(Store().TryOpen("stray"), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(Store().TryOpen("parent\\stray"), FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, WritesNeedTheLockWhereThereIsOne) {
    const bool needed = Differs().writesNeedLock;
    const OpenKey key = Store().Create("k");
    ASSERT_EQ(Store().Set(key, "v", "1"), FSSTATUS_SUCCESS);
    ASSERT_EQ(Store().Unlock(2), FSSTATUS_SUCCESS);
    const FBR_STATUS answers[] = {Store().Set(key, "w", "2"), Store().TryMake("k\\new"),
                                  Store().DeleteValue(key, "v"), Store().Rename(key, "other"),
                                  Store().DeleteTree(needed ? "\\k" : "\\other")};
    for (const FBR_STATUS answer : answers)
        EXPECT_EQ(answer, needed ? FSSTATUS_LOCK_FAILED : FSSTATUS_SUCCESS);
    // Reading needs none.
    if (needed) {
        EXPECT_EQ(Store().Data(key, "v"), "1");
        EXPECT_EQ(Store().ValueNames(key), Set{WTEXT("v")});
    }
    ASSERT_EQ(Store().Lock(2), FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryMake("later"), FSSTATUS_SUCCESS);
}

TEST_P(Contract, LocksAndChecksThatMeanNothingSaySo) {
    if (Differs().writesNeedLock) return;
    FBR_STORE store = Store().handle;
    uint32_t number = 77;
    EXPECT_EQ(FBR_GetLockTypeEx(store, &number), FSSTATUS_SUCCESS);
    EXPECT_EQ(number, 77u);
    EXPECT_EQ(FBR_GetLockEx(99, store), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_Compact(store, &number), FSSTATUS_SUCCESS);
    EXPECT_EQ(number, Differs().compactDone);
    EXPECT_EQ(FBR_Compact(store, nullptr), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_IsCorrupted(store, nullptr), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CheckFile(store), FSSTATUS_FAILED);
    FBR_FileChecking(true);
    EXPECT_EQ(FBR_CheckFile(store), FSSTATUS_SUCCESS);
    FBR_FileChecking(false);
}

TEST_P(Contract, SecurityStringsAreImplementedOrSaidNotToBe) {
    const OpenKey key = Store().Create("k");
    FBR_STORE store = Store().handle;
    FBR_WCHAR text[512];
    uint32_t chars = 0;
    const FBR_STATUS status = FBR_GetKeySecurityString(key, text, &chars, store);
    EXPECT_EQ(FBR_GetKeySecurityString(0, text, &chars, store), FSSTATUS_INVALID_PARAMETER);
    if (!Differs().keepsSecurity) {
        EXPECT_EQ(status, FSSTATUS_NOT_IMPLEMENTED);
        EXPECT_EQ(FBR_SetKeySecurityString(key, WTEXT("D:(A;;GA;;;WD)"), store),
                  FSSTATUS_NOT_IMPLEMENTED);
        return;
    }
    EXPECT_EQ(status, FSSTATUS_BUFFER_OVERFLOW);
    ASSERT_LE(chars, 512u);
    EXPECT_EQ(FBR_GetKeySecurityString(key, text, &chars, store), FSSTATUS_SUCCESS);
    EXPECT_EQ(platform::Length(text) + 1, chars);
    EXPECT_EQ(FBR_SetKeySecurityString(key, text, store), FSSTATUS_SUCCESS);
}

TEST_P(Contract, VolatileKeysEndWithTheStoreWhereTheyAreKnown) {
    const FBR_STATUS made = Differs().volatileCreate;
    EXPECT_EQ(Store().TryMake("gone", 0, FSCREATEOPTIONS_VOLATILE), made);
    EXPECT_EQ(Store().TryOpen("gone"), made == FSSTATUS_SUCCESS ? made : FSSTATUS_NOT_FOUND);
    EXPECT_EQ(Store().TryMake("stays"), FSSTATUS_SUCCESS);
    Reopen();
    const bool gone = made != FSSTATUS_SUCCESS || Differs().volatileEndsWithStore;
    EXPECT_EQ(Store().TryOpen("gone"), gone ? FSSTATUS_NOT_FOUND : FSSTATUS_SUCCESS);
    EXPECT_EQ(Store().TryOpen("stays"), FSSTATUS_SUCCESS);
}

}  // namespace
}  // namespace contract
