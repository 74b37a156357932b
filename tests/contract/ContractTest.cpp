// What every store promises, whatever it is kept in.
#include <algorithm>

#include "FS_Library_DLL/IFSInterface.h"
#include "platform/Clock.h"
#include "tests/contract/OpenStore.h"

namespace contract {
namespace {

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
        ASSERT_NE(store_->Get(), nullptr);
    }
    const Differences& Differs() const { return GetParam().differences; }

    std::unique_ptr<Place> place_;
    std::unique_ptr<OpenStore> store_;
};

INSTANTIATE_TEST_SUITE_P(Stores, Contract, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Contract, ANewStoreHasARootAndNothingElse) {
    const OpenKey root = store_->Root();
    EXPECT_EQ(store_->Keys(root), std::set<WString>{});
    std::set<WString> values;
    if (Differs().rootHasVersion) values.insert(WTEXT("FBRVersion"));
    EXPECT_EQ(store_->Values(root), values);
    EXPECT_EQ(store_->FullName(root), Differs().rootFullName);
    EXPECT_EQ(!store_->Name(root).empty(), Differs().rootIsNamed);
    uint32_t corrupted = 7;
    EXPECT_EQ(FBR_IsCorrupted(store_->Get(), &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
}

TEST_P(Contract, KeysAreMadeWithTheirParentsAndFoundByAnySpelling) {
    EXPECT_EQ(store_->Probe(WTEXT("a")), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Make(WTEXT("a\\B\\c")), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Make(WTEXT("\\a\\B\\c")), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->Make(WTEXT("A\\b")), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->Probe(WTEXT("\\a\\b\\C")), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("a\\x")), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Probe(WTEXT("a\\x\\y")), FSSTATUS_NOT_FOUND);
    // The case in which it was made is kept.
    const OpenKey root = store_->Root();
    EXPECT_EQ(store_->Keys(store_->Open(WTEXT("A"))), std::set<WString>{WTEXT("B")});

    // Below a parent, and below the root's handle.
    const OpenKey parent = store_->Open(WTEXT("a"), root);
    EXPECT_EQ(store_->Make(WTEXT("d\\e"), parent), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("d\\e"), parent), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("a\\d\\e")), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FullName(store_->Open(WTEXT("d\\e"), parent)), WTEXT("\\a\\d\\e"));
    EXPECT_EQ(store_->Name(store_->Open(WTEXT("d\\e"), parent)), WTEXT("e"));
    // A value is no key.
    EXPECT_EQ(store_->Set(parent, WTEXT("value"), "x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("a\\value")), FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, HandlesOfOneKeyAreIndependent) {
    OpenKey first = store_->Create(WTEXT("k"));
    const OpenKey second = store_->Create(WTEXT("k"));
    FBR_KEY copied = 0;
    ASSERT_EQ(FBR_DuplicateDirHandleEx(first, &copied, store_->Get()), FSSTATUS_SUCCESS);
    const OpenKey copy(store_->Get(), copied);
    EXPECT_EQ(store_->Set(first, WTEXT("v"), "data"), FSSTATUS_SUCCESS);
    EXPECT_EQ(first.Close(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Get(second, WTEXT("v")).bytes, "data");
    EXPECT_EQ(store_->Get(copy, WTEXT("v")).bytes, "data");
    EXPECT_EQ(store_->FullName(copy), WTEXT("\\k"));
    EXPECT_EQ(store_->Make(WTEXT("below"), copy), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("k\\below")), FSSTATUS_SUCCESS);
}

TEST_P(Contract, ValuesKeepTheirTypeAndEveryByte) {
    const OpenKey key = store_->Create(WTEXT("k"));
    std::map<WString, Value> expected;
    uint32_t seed = 0;
    for (size_t size : {0, 1, 2, 3, 4, 5, 8, 22, 23, 100, 511, 513, 4096, 70000}) {
        const WString name = Name("value of " + std::to_string(size));
        expected[name] = {seed % 12, Bytes(size, ++seed)};
    }
    expected[WTEXT("odd type")] = {77, "x"};
    expected[WTEXT("largest type")] = {0xffffffff, "x"};
    for (const auto& [name, value] : expected) {
        ASSERT_EQ(store_->Set(key, name, value.bytes, value.type), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(store_->Content(WTEXT("\\k")).values, expected);
    // Overwritten by longer and by shorter data of another type.
    for (auto& [name, value] : expected) {
        value = {(value.type + 1) % 12, Bytes(value.bytes.size() % 1000 * 2 / 3 + 1, ++seed)};
        ASSERT_EQ(store_->Set(key, name, value.bytes, value.type), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(store_->Content(WTEXT("\\k")).values, expected);
    EXPECT_EQ(FBR_SetValue(key, WTEXT("nothing"), 0, nullptr, 0, store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Get(key, WTEXT("NOTHING")), Value{});
}

TEST_P(Contract, QueriesTellTheSizeAndUseTheBufferGiven) {
    const OpenKey key = store_->Create(WTEXT("k"));
    const std::string data = Bytes(100);
    const WString name = WTEXT("a longer name");
    ASSERT_EQ(store_->Set(key, name, data, 1), FSSTATUS_SUCCESS);
    uint64_t size = 0;
    uint32_t type = 0;
    EXPECT_EQ(FBR_QueryValue(key, name.c_str(), nullptr, 0, &size, &type, store_->Get()),
              FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(size, 100u);
    EXPECT_EQ(type, 1u);
    for (size_t room : {99, 100, 101, 200}) {
        std::string buffer(210, '#');
        size = 0;
        const FBR_STATUS status =
            FBR_QueryValue(key, name.c_str(), buffer.data(), room, &size, &type, store_->Get());
        const bool fits = room >= data.size();
        const bool succeeds = fits || Differs().shortBufferSucceeds;
        EXPECT_EQ(status, succeeds ? FSSTATUS_SUCCESS : FSSTATUS_BUFFER_OVERFLOW) << room;
        EXPECT_EQ(size, fits || !Differs().shortBufferSucceeds ? 100 : room) << room;
        if (succeeds) {
            EXPECT_EQ(buffer.substr(0, std::min<size_t>(room, 100)),
                      data.substr(0, std::min<size_t>(room, 100)));
        }
        EXPECT_EQ(buffer.find_first_not_of('#', std::min<size_t>(room, 100)), std::string::npos)
            << "wrote behind the buffer of " << room;
    }
    FBR_STATUS status = FSSTATUS_SUCCESS;
    store_->Get(key, WTEXT("missing"), &status);
    EXPECT_EQ(status, FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, TheEmptyNameIsDefaultWhereValuesAreSetAndRead) {
    const OpenKey key = store_->Create(WTEXT("k"));
    EXPECT_EQ(store_->Set(key, WTEXT(""), "data"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Get(key, WTEXT("(Default)")).bytes, "data");
    EXPECT_EQ(store_->Get(key, WTEXT("")).bytes, "data");
    EXPECT_EQ(store_->Values(key), std::set<WString>{WTEXT("(Default)")});
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT(""), store_->Get()),
              Differs().emptyNameIsDefault ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("(Default)"), store_->Get()),
              Differs().emptyNameIsDefault ? FSSTATUS_NOT_FOUND : FSSTATUS_SUCCESS);
}

TEST_P(Contract, ValuesAreDeletedOneByOne) {
    const OpenKey key = store_->Create(WTEXT("k"));
    for (const FBR_WCHAR* name : {WTEXT("one"), WTEXT("two"), WTEXT("three")}) {
        ASSERT_EQ(store_->Set(key, name, "x"), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("TWO"), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("two"), store_->Get()), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Values(key), (std::set<WString>{WTEXT("one"), WTEXT("three")}));
}

TEST_P(Contract, NamesOfAllSortsComeBackAsTheyWere) {
    const std::set<WString> names{WTEXT("plain"),           WTEXT("with blank"),
                                  WTEXT("dots.and...more"), WTEXT("a/b"),
                                  WTEXT("#hash #0023"),     WTEXT("\"quoted\" <x> |y| z*?"),
                                  WTEXT("tab\tand\x01"),    WTEXT("\u00e4\u00f6\u00fc \u20ac"),
                                  WTEXT("\u4e2d\u6587"),    WTEXT("\U0001F600"),
                                  WTEXT("%PATH%"),          WTEXT("colon:and;more"),
                                  WString(200, 'n'),        WTEXT("_R.I.P")};
    const OpenKey key = store_->Create(WTEXT("k"));
    for (const WString& name : names) {
        EXPECT_EQ(store_->Set(key, name, platform::ToUtf8(name)), FSSTATUS_SUCCESS);
        EXPECT_EQ(store_->Make(name, key), FSSTATUS_SUCCESS) << platform::ToUtf8(name);
    }
    // A value and a subkey of one name live side by side.
    EXPECT_EQ(store_->Values(key), names);
    EXPECT_EQ(store_->Keys(key), names);
    for (const WString& name : names) {
        EXPECT_EQ(store_->Get(key, name).bytes, platform::ToUtf8(name));
        const OpenKey child = store_->Open(name, key);
        EXPECT_EQ(store_->Name(child), name);
        EXPECT_EQ(store_->FullName(child), WTEXT("\\k\\") + name);
    }
    for (const WString& name : names) {
        EXPECT_EQ(FBR_DeleteDirEx(store_->Open(name, key), store_->Get()), FSSTATUS_SUCCESS);
        EXPECT_EQ(store_->Get(key, name).bytes, platform::ToUtf8(name));
    }
    EXPECT_EQ(store_->Keys(key), std::set<WString>{});
}

TEST_P(Contract, AValueNameMayHoldABackslash) {
    const OpenKey key = store_->Create(WTEXT("k"));
    const WString name = WTEXT("C:\\folder\\file");
    EXPECT_EQ(store_->Set(key, name, "x"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Values(key), std::set<WString>{name});
    EXPECT_EQ(store_->Keys(key), std::set<WString>{});
    EXPECT_EQ(FBR_DeleteValue(key, name.c_str(), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Values(key), std::set<WString>{});
}

TEST_P(Contract, EnumerationAddsToWhatItIsGivenAndEndsWithNoMoreEntries) {
    const OpenKey key = store_->Create(WTEXT("k"));
    std::vector<WString> names;
    EXPECT_EQ(FBR_EnumerateAllKeys(key, names, store_->Get()), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(FBR_EnumerateAllValues(key, names, store_->Get()), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(FBR_EnumerateAllKeys(0, names, store_->Get()), FSSTATUS_INVALID_PARAMETER);

    // Each takes its time on the way to a server.
    const uint32_t count = Differs().listsReplace ? 200 : 1000;
    std::set<WString> expected;
    for (uint32_t i = 0; i < count; ++i) {
        const WString name = Name("name " + std::to_string(i));
        ASSERT_EQ(store_->Make(name, key), FSSTATUS_SUCCESS);
        ASSERT_EQ(store_->Set(key, name, std::to_string(i)), FSSTATUS_SUCCESS);
        expected.insert(name);
    }
    EXPECT_EQ(store_->Keys(key), expected);
    EXPECT_EQ(store_->Values(key), expected);
    names = {WTEXT("before")};
    EXPECT_EQ(FBR_EnumerateAllKeys(key, names, store_->Get()), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(names.size(), Differs().listsReplace ? count : count + 1);
    EXPECT_EQ(names.front() == WTEXT("before"), !Differs().listsReplace);
    FBR_WCHAR* name = nullptr;
    EXPECT_EQ(FBR_EnumIntDirEx(key, count, &name, store_->Get()), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(name != nullptr, Differs().endHasName);
    FBR_Release(name);
}

TEST_P(Contract, ARenameTakesTheTreeAndTheOpenHandlesAlong) {
    const OpenKey key = store_->Create(WTEXT("a\\old"));
    const OpenKey below = store_->Create(WTEXT("a\\old\\b\\c"));
    ASSERT_EQ(store_->Set(key, WTEXT("v"), "1"), FSSTATUS_SUCCESS);
    ASSERT_EQ(store_->Set(below, WTEXT("w"), "2"), FSSTATUS_SUCCESS);
    ASSERT_EQ(store_->Make(WTEXT("a\\taken")), FSSTATUS_SUCCESS);
    const Tree before = store_->Content(WTEXT("\\a\\old"));

    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("Taken"), store_->Get()), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(store_->Content(WTEXT("\\a\\old")), before);
    EXPECT_EQ(store_->FullName(key), WTEXT("\\a\\old"));

    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("a new name"), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("a\\old")), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Content(WTEXT("\\a\\a new name")), before);
    EXPECT_EQ(store_->FullName(key), WTEXT("\\a\\a new name"));
    EXPECT_EQ(store_->Name(key), WTEXT("a new name"));
    EXPECT_EQ(store_->FullName(below), WTEXT("\\a\\a new name\\b\\c"));
    EXPECT_EQ(store_->Get(below, WTEXT("w")).bytes, "2");
    EXPECT_EQ(store_->Set(below, WTEXT("x"), "3"), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Make(WTEXT("a\\old")), FSSTATUS_SUCCESS);
}

TEST_P(Contract, AKeyWithValuesOnlyIsDeletedAndItsHandleIsOfNoUse) {
    OpenKey key = store_->Create(WTEXT("k\\x"));
    ASSERT_EQ(store_->Set(key, WTEXT("v"), "1"), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeleteDirEx(key, store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("k\\x")), FSSTATUS_NOT_FOUND);
    EXPECT_NE(store_->Set(key, WTEXT("v"), "2"), FSSTATUS_SUCCESS);
    EXPECT_EQ(key.Close(), Differs().handleOutlivesKey ? FSSTATUS_SUCCESS : FSSTATUS_FAILED);
    EXPECT_EQ(store_->Make(WTEXT("k\\x")), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Content(WTEXT("\\k\\x")), Tree{});
}

TEST_P(Contract, AKeyWithSubkeysIsDeletedByNameOnly) {
    const OpenKey key = store_->Create(WTEXT("k\\x"));
    ASSERT_EQ(store_->Make(WTEXT("k\\x\\y\\z")), FSSTATUS_SUCCESS);
    ASSERT_EQ(store_->Set(key, WTEXT("v"), "1"), FSSTATUS_SUCCESS);
    const FBR_STATUS refused = FBR_DeleteDirEx(key, store_->Get());
    const std::vector<FBR_STATUS>& allowed = Differs().deleteWithSubkeys;
    EXPECT_NE(std::find(allowed.begin(), allowed.end(), refused), allowed.end()) << refused;
    EXPECT_EQ(store_->Probe(WTEXT("k\\x\\y\\z")), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Values(key).empty(), Differs().refusedDeleteTakesValues);

    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\k\\x"), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("k\\x")), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Probe(WTEXT("k")), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\k\\x"), store_->Get()), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\no\\x"), store_->Get()), Differs().deleteBelowMissing);
}

TEST_P(Contract, DeepTreesAreMadeReadAndDeleted) {
    WString path;
    for (int level = 0; level < 100; ++level) path += Name("\\level" + std::to_string(level));
    {
        const OpenKey deepest = store_->Create(path);
        EXPECT_EQ(store_->FullName(deepest), path);
        ASSERT_EQ(store_->Set(deepest, WTEXT("v"), "deep"), FSSTATUS_SUCCESS);
    }
    Reopen();
    EXPECT_EQ(store_->Get(store_->Open(path), WTEXT("v")).bytes, "deep");
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\level0"), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Keys(store_->Root()), std::set<WString>{});
}

TEST_P(Contract, TheTimesOfAKeyAreThoseOfItsLastChange) {
    FBR_SYSTEMTIME time{};
    ASSERT_EQ(FBR_GetDirTimesEx(store_->Create(WTEXT("k")), &time, store_->Get()),
              FSSTATUS_SUCCESS);
    const platform::UtcTime now = platform::UtcNow();
    const auto minutes = [](int day, int hour, int minute) {
        return (day * 24 + hour) * 60 + minute;
    };
    const int passed =
        minutes(now.day, now.hour, now.minute) - minutes(time.wDay, time.wHour, time.wMinute);
    if (now.month == time.wMonth) {
        EXPECT_EQ(time.wYear, now.year);
        EXPECT_GE(passed, 0);
        EXPECT_LE(passed, 2);
    }
}

TEST_P(Contract, AClosedParentIsRefusedOrStandsForTheRoot) {
    OpenKey parent = store_->Create(WTEXT("parent"));
    const FBR_KEY closed = parent;
    ASSERT_EQ(parent.Close(), FSSTATUS_SUCCESS);
    if (Differs().unknownParentIsRoot) {
        EXPECT_EQ(store_->Make(WTEXT("stray"), closed), FSSTATUS_SUCCESS);
        EXPECT_EQ(store_->Probe(WTEXT("stray")), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(store_->Probe(WTEXT("parent\\stray")), FSSTATUS_NOT_FOUND);
}

TEST_P(Contract, WritesNeedTheLockWhereThereIsOne) {
    const OpenKey key = store_->Create(WTEXT("k"));
    ASSERT_EQ(store_->Set(key, WTEXT("v"), "1"), FSSTATUS_SUCCESS);
    ASSERT_EQ(FBR_ReleaseLockEx(2, store_->Get()), FSSTATUS_SUCCESS);
    const FBR_STATUS expected = Differs().writesNeedLock ? FSSTATUS_LOCK_FAILED : FSSTATUS_SUCCESS;
    EXPECT_EQ(store_->Set(key, WTEXT("w"), "2"), expected);
    EXPECT_EQ(store_->Make(WTEXT("k\\new")), expected);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("v"), store_->Get()), expected);
    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("other"), store_->Get()), expected);
    EXPECT_EQ(FBR_DeleteDirNamedEx(Differs().writesNeedLock ? WTEXT("\\k") : WTEXT("\\other"),
                                   store_->Get()),
              expected);
    // Reading needs none.
    if (Differs().writesNeedLock) {
        EXPECT_EQ(store_->Get(key, WTEXT("v")).bytes, "1");
        EXPECT_EQ(store_->Values(key), std::set<WString>{WTEXT("v")});
    }
    ASSERT_EQ(FBR_GetLockEx(2, store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Make(WTEXT("later")), FSSTATUS_SUCCESS);
}

TEST_P(Contract, LocksAndChecksThatMeanNothingSaySo) {
    if (Differs().writesNeedLock) return;
    FBR_STORE store = store_->Get();
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

// Below the exported functions the empty name is the unnamed value, where a store has one.
TEST_P(Contract, TheStoresOwnOperationsReachTheUnnamedValue) {
    const OpenKey key = store_->Create(WTEXT("k"));
    IFSInterface& store = *store_->Get();
    ASSERT_EQ(store_->Set(key, WTEXT("(Default)"), "called"), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.FBR_SetValue(key, WTEXT(""), 3, "real", 4), FSSTATUS_SUCCESS);
    char data[8] = {};
    uint64_t size = 0;
    EXPECT_EQ(store.FBR_QueryValue(key, WTEXT(""), data, sizeof data, &size, nullptr),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(std::string(data, size), "real");
    const bool one = Differs().emptyNameIsDefault;
    EXPECT_EQ(store_->Get(key, WTEXT("(Default)")).bytes, one ? "real" : "called");
    EXPECT_EQ(store_->Values(key).size(), one ? 1u : 2u);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT(""), store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Values(key).size(), one ? 0u : 1u);
}

TEST_P(Contract, SecurityStringsAreImplementedOrSaidNotToBe) {
    const OpenKey key = store_->Create(WTEXT("k"));
    FBR_WCHAR text[512];
    uint32_t chars = 0;
    const FBR_STATUS status = FBR_GetKeySecurityString(key, text, &chars, store_->Get());
    EXPECT_EQ(FBR_GetKeySecurityString(0, text, &chars, store_->Get()), FSSTATUS_INVALID_PARAMETER);
    if (!Differs().keepsSecurity) {
        EXPECT_EQ(status, FSSTATUS_NOT_IMPLEMENTED);
        EXPECT_EQ(FBR_SetKeySecurityString(key, WTEXT("D:(A;;GA;;;WD)"), store_->Get()),
                  FSSTATUS_NOT_IMPLEMENTED);
        return;
    }
    EXPECT_EQ(status, FSSTATUS_BUFFER_OVERFLOW);
    ASSERT_LE(chars, 512u);
    EXPECT_EQ(FBR_GetKeySecurityString(key, text, &chars, store_->Get()), FSSTATUS_SUCCESS);
    EXPECT_EQ(platform::Length(text) + 1, chars);
    EXPECT_EQ(FBR_SetKeySecurityString(key, text, store_->Get()), FSSTATUS_SUCCESS);
}

TEST_P(Contract, EverythingIsThereAfterClosingAndOpening) {
    Tree expected;
    for (int i = 0; i < 20; ++i) {
        const WString name = Name("key" + std::to_string(i));
        const OpenKey key = store_->Create(name + WTEXT("\\sub"));
        for (int j = 0; j < i; ++j) {
            const WString valueName = Name("value" + std::to_string(j));
            const Value value{static_cast<uint32_t>(j), Bytes(static_cast<size_t>(i * j * 11), 7)};
            ASSERT_EQ(store_->Set(key, valueName, value.bytes, value.type), FSSTATUS_SUCCESS);
            expected.keys[name].keys[WTEXT("sub")].values[valueName] = value;
        }
        expected.keys[name].keys[WTEXT("sub")];
    }
    EXPECT_EQ(store_->Content(), expected);
    Reopen();
    EXPECT_EQ(store_->Content(), expected);
    Reopen();
    EXPECT_EQ(store_->Content(), expected);
}

TEST_P(Contract, VolatileKeysEndWithTheStoreWhereTheyAreKnown) {
    const FBR_STATUS made = Differs().volatileCreate;
    EXPECT_EQ(store_->Make(WTEXT("gone"), 0, FSCREATEOPTIONS_VOLATILE), made);
    EXPECT_EQ(store_->Probe(WTEXT("gone")), made == FSSTATUS_SUCCESS ? made : FSSTATUS_NOT_FOUND);
    EXPECT_EQ(store_->Make(WTEXT("stays")), FSSTATUS_SUCCESS);
    Reopen();
    const bool gone = made != FSSTATUS_SUCCESS || Differs().volatileEndsWithStore;
    EXPECT_EQ(store_->Probe(WTEXT("gone")), gone ? FSSTATUS_NOT_FOUND : FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Probe(WTEXT("stays")), FSSTATUS_SUCCESS);
}

}  // namespace
}  // namespace contract
