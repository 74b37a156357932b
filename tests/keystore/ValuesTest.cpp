// Values: set, read, replaced, deleted, listed; and values that share a name with a subkey.
#include <algorithm>
#include <random>

#include "FS_Library_DLL/keystore/FsBrackenTarnImpl.h"
#include "storage/StorageApi.h"
#include "storage/namespace/MemoryLimits.h"
#include "tests/keystore/TestStore.h"

namespace keystore {
namespace {

class Values : public StoreTest {
  protected:
    FBR_KEY key = store.Make(WTEXT("k"));
};

TEST_F(Values, ComeBackWithTypeAndBytes) {
    for (const uint32_t type : {0u, kRegSz, kRegDword, 7u, 11u, 0xFFFFFFFFu}) {
        for (const size_t size : {size_t{0}, size_t{1}, size_t{4}, size_t{300}, size_t{20000}}) {
            Bytes data(size);
            for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(i * 7 + type);
            ASSERT_EQ(store.Set(key, WTEXT("v"), data, type), FSSTATUS_SUCCESS);
            uint32_t found = 1234;
            ASSERT_EQ(store.Get(key, WTEXT("v"), &found), data) << type << " " << size;
            EXPECT_EQ(found, type);
        }
    }
}

TEST_F(Values, TenMebibytes) {
    Bytes data(10 << 20);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i ^ (i >> 9));
    ASSERT_EQ(store.Set(key, WTEXT("big"), data), FSSTATUS_SUCCESS);
    store.Unlock();
    store.Close();
    Store again(path);
    EXPECT_EQ(again.Get(again.Open(WTEXT("k")), WTEXT("big")), data);
}

// Names and data tell the values apart, and the key stays usable under another name.
TEST_F(Values, AHundredThousandInOneKey) {
    constexpr uint32_t kCount = 100000;
    const auto name = [](uint32_t n) { return platform::FromUtf8("value " + std::to_string(n)); };
    const auto data = [](uint32_t n) {
        return Bytes(
            {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n >> 16)});
    };
    for (uint32_t n = 0; n < kCount; ++n)
        ASSERT_EQ(store.Set(key, name(n), data(n)), FSSTATUS_SUCCESS) << n;
    EXPECT_EQ(FBR_RenameDirEx(key, WTEXT("other"), store.handle), FSSTATUS_SUCCESS);
    store.Unlock();
    store.Close();
    Store again(path);
    const FBR_KEY other = again.Open(WTEXT("other"));
    std::vector<WString> names = again.Values(other);
    std::sort(names.begin(), names.end());
    ASSERT_EQ(std::unique(names.begin(), names.end()) - names.begin(), kCount);
    for (uint32_t n = 0; n < kCount; n += 7) ASSERT_EQ(again.Get(other, name(n)), data(n)) << n;
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeleteDirEx(other, again.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(again.Has(WTEXT("other")));
}

TEST_F(Values, ReplacingLeavesNothingOfTheOldValue) {
    store.Set(key, WTEXT("v"), Bytes(100, 1));
    store.Set(key, WTEXT("v"), Bytes(10, 2));
    Bytes buffer(100, 9);
    uint64_t size = 0;
    EXPECT_EQ(FBR_QueryValue(key, WTEXT("v"), buffer.data(), 100, &size, nullptr, store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 11), Bytes({2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 9}));
}

TEST_F(Values, AShortBufferGetsTheFirstBytes) {
    store.Set(key, WTEXT("v"), {1, 2, 3, 4, 5});
    Bytes buffer(3, 9);
    uint64_t size = 0;
    EXPECT_EQ(FBR_QueryValue(key, WTEXT("v"), buffer.data(), 2, &size, nullptr, store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(buffer, Bytes({1, 2, 9}));
}

TEST_F(Values, ASizeMustBeAskedFor) {
    store.Set(key, WTEXT("v"), {1, 2});
    Bytes buffer(2);
    EXPECT_EQ(FBR_QueryValue(key, WTEXT("v"), buffer.data(), 2, nullptr, nullptr, store.handle),
              FSSTATUS_INVALID_PARAMETER);
}

TEST_F(Values, TheEmptyNameIsDefault) {
    store.Set(key, WTEXT(""), {1});
    EXPECT_EQ(store.Get(key, WTEXT("(default)")), Bytes({1}));
    EXPECT_EQ(store.Values(key), std::vector<WString>{WTEXT("(Default)")});
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT(""), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(key, WTEXT("(Default)")), std::nullopt);
}

TEST_F(Values, NeedAnOpenKey) {
    for (const FBR_KEY bad : {FBR_KEY{0}, FBR_KEY{1}, FBR_KEY{-1}, key + 8}) {
        uint64_t size = 0;
        EXPECT_EQ(store.Set(bad, WTEXT("v"), {1}), FSSTATUS_FAILED);
        EXPECT_EQ(FBR_QueryValue(bad, WTEXT("v"), nullptr, 0, &size, nullptr, store.handle),
                  FSSTATUS_FAILED);
        EXPECT_EQ(FBR_DeleteValue(bad, WTEXT("v"), store.handle), FSSTATUS_FAILED);
    }
}

TEST_F(Values, ThatAreMissingAreNotFound) {
    uint64_t size = 5;
    EXPECT_EQ(FBR_QueryValue(key, WTEXT("v"), nullptr, 0, &size, nullptr, store.handle),
              FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("v"), store.handle), FSSTATUS_NOT_FOUND);
    store.Make(WTEXT("sub"), key);
    EXPECT_EQ(FBR_QueryValue(key, WTEXT("sub"), nullptr, 0, &size, nullptr, store.handle),
              FSSTATUS_NOT_FOUND);
    EXPECT_EQ(FBR_DeleteValue(key, WTEXT("sub"), store.handle), FSSTATUS_NOT_FOUND);
}

TEST_F(Values, NullDataWithASizeIsRefused) {
    EXPECT_EQ(FBR_SetValue(key, WTEXT("v"), kRegBinary, nullptr, 5, store.handle),
              FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_SetValue(key, WTEXT("v"), kRegBinary, nullptr, 0, store.handle),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(key, WTEXT("v")), Bytes());
}

TEST_F(Values, NamesHoldAnything) {
    std::vector<WString> names = {WTEXT("a\\b"),   WTEXT("\\"),       WTEXT("a/b:c*?\"<>|#"),
                                  WTEXT("#FILEv"), WString(300, 'n'), WTEXT("."),
                                  WTEXT("..")};
    for (WChar control = 1; control < 32; ++control) names.push_back({'c', control});
    for (const WString& name : names)
        ASSERT_EQ(store.Set(key, name, Bytes(name.size())), FSSTATUS_SUCCESS);
    for (const WString& name : names) EXPECT_EQ(store.Get(key, name), Bytes(name.size()));
    std::vector<WString> listed = store.Values(key);
    std::sort(listed.begin(), listed.end());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(listed, names);
    for (const WString& name : names)
        EXPECT_EQ(FBR_DeleteValue(key, name.c_str(), store.handle), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Values(key).empty());
    EXPECT_TRUE(store.Keys(key).empty()) << "no name made a key";
}

TEST_F(Values, AreListedOneByOne) {
    for (const WString name : {WTEXT("b"), WTEXT("a"), WTEXT("C/")}) store.Set(key, name, {1});
    WChar* name = nullptr;
    std::vector<WString> listed;
    for (uint32_t i = 0;
         FBR_EnumIntFileEx(key, i, &name, store.handle) == FSSTATUS_SUCCESS && i < 9; ++i) {
        listed.emplace_back(name);
        FBR_Release(name);
    }
    EXPECT_EQ(listed, (std::vector<WString>{WTEXT("a"), WTEXT("b"), WTEXT("C/")}));
    name = nullptr;
    EXPECT_EQ(FBR_EnumIntFileEx(key, 3, &name, store.handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(FBR_EnumIntDirEx(key, 0, &name, store.handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(FBR_EnumIntFileEx(key, 2, nullptr, store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_EnumIntFileEx(0, 0, &name, store.handle), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_EnumIntFileEx(5, 0, &name, store.handle), FSSTATUS_FAILED);
}

// A key remembers where the last look by number ended. Whatever happens in between, by this store
// or by another one, the next look tells the state of then.
TEST_F(Values, AreListedByNumberBesideChanges) {
    const storage::MemoryLimits before = storage::g_memoryLimits;
    const auto at = [&](FBR_KEY of, auto enumerate, uint32_t index) {
        WChar* name = nullptr;
        const FBR_STATUS status = enumerate(of, index, &name, store.handle);
        WString text = name != nullptr ? name : WTEXT("(none)");
        FBR_Release(name);
        EXPECT_EQ(status, name != nullptr ? FSSTATUS_SUCCESS : FSSTATUS_NO_MORE_ENTRIES);
        return text;
    };
    const auto expectSame = [&](FBR_KEY of, auto enumerate, const std::vector<WString>& names,
                                uint32_t index) {
        EXPECT_EQ(at(of, enumerate, index),
                  index < names.size() ? names[index] : WString(WTEXT("(none)")));
    };
    std::mt19937 random(7);
    const auto name = [&](WChar first) {
        return WString(1, first) + WString(random() % 2 * 25, 'n') +
               WString(1, static_cast<WChar>('a' + random() % 26)) +
               WString(1, static_cast<WChar>('a' + random() % 26));
    };
    for (int i = 0; i < 40; ++i) store.Set(key, name('v'), {1});
    for (int i = 0; i < 20; ++i) store.Make(name('k'), key);
    const FBR_KEY other = store.Make(WTEXT("other"));
    for (int i = 0; i < 20; ++i) store.Set(other, name('o'), {1});
    uint32_t index = 0;
    for (int step = 0; step < 600; ++step) {
        const auto values = store.Values(key);
        const auto keys = store.Keys(key);
        expectSame(key, FBR_EnumIntFileEx, values, index % 45);
        expectSame(key, FBR_EnumIntDirEx, keys, index % 25);
        expectSame(other, FBR_EnumIntFileEx, store.Values(other), index % 22);
        storage::g_memoryLimits = step % 3 == 0 ? storage::MemoryLimits{0, 0} : before;
        index = random() % 5 == 0 ? random() : index + 1;
        switch (random() % 8) {
            case 0:
                store.Set(key, name('v'), {1});
                break;
            case 1:
                if (!values.empty())
                    FBR_DeleteValue(key, values[random() % values.size()].c_str(), store.handle);
                break;
            case 2:
                store.Make(name('k'), key);
                break;
            case 3:
                if (const FBR_KEY gone = keys.empty() ? 0 : store.Open(keys[0], key)) {
                    FBR_DeleteDirEx(gone, store.handle);
                    FBR_CloseDirEx(gone, store.handle);
                }
                break;
            case 4: {
                ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
                Store second(path);
                ASSERT_EQ(second.Lock(), FSSTATUS_SUCCESS);
                second.Set(second.Open(store.FullName(key)), name('v'), {1});
                ASSERT_EQ(second.Unlock(), FSSTATUS_SUCCESS);
                expectSame(key, FBR_EnumIntFileEx, store.Values(key), index % 45);
                ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
                break;
            }
            case 5:
                ASSERT_EQ(FBR_RenameDirEx(key, name('r').c_str(), store.handle), FSSTATUS_SUCCESS);
                break;
            default:
                break;
        }
    }
    storage::g_memoryLimits = before;
}

TEST_F(Values, ListingsAddToTheVector) {
    store.Set(key, WTEXT("v"), {1});
    std::vector<WString> names{WTEXT("there")};
    EXPECT_EQ(FBR_EnumerateAllValues(key, names, store.handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(FBR_EnumerateAllValues(key, names, store.handle), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(names, (std::vector<WString>{WTEXT("there"), WTEXT("v"), WTEXT("v")}));
    EXPECT_EQ(FBR_EnumerateAllValues(1, names, store.handle), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_EnumerateAllKeys(0, names, store.handle), FSSTATUS_INVALID_PARAMETER);
}

// A value of fewer bytes than its header, as only other hands make it.
TEST_F(Values, ARecordThatIsTooShortReadsAsZeros) {
    storage::FileHandle* file = nullptr;
    store.Unlock();
    store.Close();
    storage::StorageContext* container = nullptr;
    ASSERT_EQ(storage::StorageOpen(path.c_str(), &container, '\\', nullptr, 0), 0);
    ASSERT_EQ(storage::StorageCreateFile(container, WTEXT("\\k\\v"), 1, 1, 0, 0, 0, WTEXT(""), 0,
                                         &file, 1, 1),
              0);
    uint32_t done = 0;
    EXPECT_EQ(storage::StorageWriteFile(file, "\x03\0\0\0\xFF", 5, &done), 0);
    EXPECT_EQ(storage::StorageCloseFile(file), 0);
    EXPECT_EQ(storage::StorageClose(container), 0);
    Store again(path);
    uint64_t size = 0;
    uint32_t type = 0;
    EXPECT_EQ(
        FBR_QueryValue(again.Open(WTEXT("k")), WTEXT("v"), nullptr, 0, &size, &type, again.handle),
        FSSTATUS_BUFFER_OVERFLOW);
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(size, 255u);
    EXPECT_EQ(again.Get(again.Open(WTEXT("k")), WTEXT("v")), std::nullopt) << "no byte of them";
}

class SharedName : public Values {
  protected:
    const WString name = WTEXT("x:y");  // with an escape
    void SetIt(uint8_t byte) { ASSERT_EQ(store.Set(key, name, {byte}), FSSTATUS_SUCCESS); }
    void MakeIt() { ASSERT_NE(store.Make(name, key), 0); }
    void ExpectBoth(uint8_t byte) {
        EXPECT_EQ(store.Get(key, name), Bytes({byte}));
        EXPECT_EQ(store.Values(key), std::vector<WString>{name});
        EXPECT_EQ(store.Keys(key), std::vector<WString>{name});
    }
};

TEST_F(SharedName, ValueFirst) {
    SetIt(1);
    MakeIt();
    ExpectBoth(1);
    SetIt(2);
    ExpectBoth(2);
    EXPECT_EQ(FBR_DeleteDirEx(store.Open(name, key), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(key, name), Bytes({2}));
    EXPECT_TRUE(store.Keys(key).empty());
}

TEST_F(SharedName, KeyFirst) {
    MakeIt();
    SetIt(1);
    ExpectBoth(1);
    EXPECT_EQ(FBR_DeleteValue(key, name.c_str(), store.handle), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Values(key).empty());
    EXPECT_TRUE(store.Has(WTEXT("k\\") + name));
}

TEST_F(SharedName, RenamingTheKeyAwayAndBack) {
    SetIt(1);
    MakeIt();
    const FBR_KEY sub = store.Open(name, key);
    ASSERT_EQ(FBR_RenameDirEx(sub, WTEXT("other"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Keys(key), std::vector<WString>{WTEXT("other")});
    EXPECT_EQ(store.Get(key, name), Bytes({1}));
    ASSERT_EQ(FBR_RenameDirEx(sub, name.c_str(), store.handle), FSSTATUS_SUCCESS);
    ExpectBoth(1);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\k"), store.handle), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("k")));
}

// A key on the way is not made where a value stands: the value does not move.
TEST_F(SharedName, OnTheWayTheValueStays) {
    SetIt(1);
    FBR_KEY below = 0;
    FBR_CreateDirEx(key, (name + WTEXT("\\b")).c_str(), FSCREATEOPTIONS_NONE, &below, store.handle);
    EXPECT_EQ(store.Get(key, name), Bytes({1}));
    EXPECT_TRUE(store.Keys(key).empty());
}

}  // namespace
}  // namespace keystore
