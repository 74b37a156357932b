// SPDX-License-Identifier: MIT
// Values as a container alone has them: very many, and listings by number.
#include <algorithm>
#include <random>

#include "storage/namespace/MemoryLimits.h"
#include "tests/support/Store.h"

namespace keystore {
namespace {

using namespace support;

// On a key of a new store, under a write lock.
class Values : public testing::Test {
  protected:
    Values() : key(store.Lock() == FSSTATUS_SUCCESS ? store.Make("k") : 0) {}

    TempDir dir;
    const WString path = dir.File("store.fbr");
    Store store{path};
    FBR_KEY key;
};

// Names and data tell the values apart, the key stays usable under another name, and one value may
// be large.
TEST_F(Values, AHundredThousandInOneKeyAndTenMebibytes) {
    constexpr uint32_t kCount = 100000;
    const auto name = [](uint32_t n) { return Text("value " + std::to_string(n)); };
    const auto data = [](uint32_t n) {
        return Bytes({static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)});
    };
    Bytes big(10 << 20);
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i ^ (i >> 9));
    for (uint32_t n = 1; n < kCount; ++n)
        ASSERT_EQ(store.Set(key, name(n), data(n)), FSSTATUS_SUCCESS) << n;
    ASSERT_EQ(store.Set(key, name(0), big), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Rename(key, "other"), FSSTATUS_SUCCESS);
    store.Close();
    Store again(path);
    const FBR_KEY other = again.Open("other");
    Names names = again.Values(other);
    std::sort(names.begin(), names.end());
    ASSERT_EQ(std::unique(names.begin(), names.end()) - names.begin(), kCount);
    EXPECT_TRUE(again.Get(other, name(0)) == big);
    for (uint32_t n = 1; n < kCount; n += 7) ASSERT_EQ(again.Get(other, name(n)), data(n)) << n;
    EXPECT_EQ(again.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(again.Delete(other), FSSTATUS_SUCCESS);
    EXPECT_FALSE(again.Has("other"));
}

// A key remembers where the last look by number ended. Whatever happens in between, by this store
// or by another one, the next look tells the state of then.
TEST_F(Values, AreListedByNumberBesideChanges) {
    const storage::MemoryLimits before = storage::g_memoryLimits;
    const auto expectSame = [&](FBR_KEY of, auto enumerate, const Names& names, uint32_t index) {
        WChar* name = nullptr;
        const FBR_STATUS status = enumerate(of, index, &name, store.handle);
        const bool there = index < names.size();
        EXPECT_EQ(status, there ? FSSTATUS_SUCCESS : FSSTATUS_NO_MORE_ENTRIES);
        EXPECT_EQ(Taken(name), there ? names[index] : WString(WTEXT("(none)")));
    };
    std::mt19937 random(7);
    const auto name = [&](WChar first) {
        return WString(1, first) + WString(random() % 2 * 25, 'n') +
               WString(1, static_cast<WChar>('a' + random() % 26)) +
               WString(1, static_cast<WChar>('a' + random() % 26));
    };
    for (int i = 0; i < 40; ++i) store.Set(key, name('v'), {1});
    for (int i = 0; i < 20; ++i) store.Make(name('k'), key);
    const FBR_KEY other = store.Make("other");
    for (int i = 0; i < 20; ++i) store.Set(other, name('o'), {1});
    uint32_t index = 0;
    for (int step = 0; step < 600; ++step) {
        const Names values = store.Values(key), keys = store.Keys(key);
        expectSame(key, FBR_EnumIntFileEx, values, index % 45);
        expectSame(key, FBR_EnumIntDirEx, keys, index % 25);
        expectSame(other, FBR_EnumIntFileEx, store.Values(other), index % 22);
        storage::g_memoryLimits = step % 3 == 0 ? storage::MemoryLimits{0, 0} : before;
        index = random() % 5 == 0 ? random() : index + 1;
        const uint32_t what = random() % 8;
        if (what == 0) store.Set(key, name('v'), {1});
        if (what == 1 && !values.empty()) store.DeleteValue(key, values[random() % values.size()]);
        if (what == 2) store.Make(name('k'), key);
        if (what == 3 && !keys.empty()) store.Delete(store.Open(keys[0], key));
        if (what == 4) {
            ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
            Store second(path);
            ASSERT_EQ(second.Lock(), FSSTATUS_SUCCESS);
            second.Set(second.Open(store.FullName(key)), name('v'), {1});
            ASSERT_EQ(second.Unlock(), FSSTATUS_SUCCESS);
            expectSame(key, FBR_EnumIntFileEx, store.Values(key), index % 45);
            ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        }
        if (what == 5) {
            ASSERT_EQ(store.Rename(key, name('r')), FSSTATUS_SUCCESS);
        }
    }
    storage::g_memoryLimits = before;
}

}  // namespace
}  // namespace keystore
