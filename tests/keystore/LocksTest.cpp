// The store's lock within a process and between processes.
#include <chrono>
#include <thread>

#include "tests/keystore/TestStore.h"
#include "tests/support/ChildProcess.h"

namespace keystore {
namespace {

class Locks : public testing::Test {
  protected:
    uint32_t Held() {
        uint32_t type = 99;
        EXPECT_EQ(FBR_GetLockTypeEx(store.handle, &type), FSSTATUS_SUCCESS);
        return type;
    }

    support::TempDir dir;
    const WString path = dir.File("store.fbr");
    Store store{path};
};

// Every operation that changes the store answers the same without a write lock, and changes
// nothing.
void ExpectWritesRefused(Store& store, const WString& path) {
    const FBR_KEY root = store.Root();
    FBR_KEY key = 0;
    const Bytes before = support::ReadBytes(path);
    EXPECT_EQ(store.Set(root, WTEXT("v"), {1}), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, &key, store.handle),
              FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(FBR_DeleteValue(root, WTEXT("FBRVersion"), store.handle), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(FBR_DeleteDirEx(root, store.handle), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(FBR_DeleteDirNamedEx(WTEXT("\\x"), store.handle), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(FBR_RenameDirEx(root, WTEXT("n"), store.handle), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(support::ReadBytes(path), before);
    EXPECT_EQ(store.Values(root), std::vector<WString>{WTEXT("FBRVersion")});
    FBR_CloseDirEx(root, store.handle);
}

TEST_F(Locks, OnlyTypesOneAndTwoAllowWrites) {
    EXPECT_EQ(Held(), 0u);
    ExpectWritesRefused(store, path);
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    EXPECT_EQ(Held(), kLockRead);
    ExpectWritesRefused(store, path);
    EXPECT_EQ(store.Unlock(kLockRead), FSSTATUS_SUCCESS);
    for (const uint32_t type : {kLockWrite, kLockWriteToo}) {
        ASSERT_EQ(store.Lock(type), FSSTATUS_SUCCESS);
        EXPECT_EQ(Held(), type);
        EXPECT_EQ(store.Set(store.Root(), WTEXT("v"), {1}), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Unlock(type), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(Held(), 0u);
}

TEST_F(Locks, NestAndTheStackTellsWhatIsInForce) {
    ASSERT_EQ(store.Lock(kLockWrite), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(store.Root(), WTEXT("v"), {1}), FSSTATUS_LOCK_FAILED);
    // The type of a release does not have to match.
    EXPECT_EQ(store.Unlock(kLockWriteToo), FSSTATUS_SUCCESS);
    EXPECT_EQ(Held(), kLockWrite);
    EXPECT_EQ(store.Set(store.Root(), WTEXT("v"), {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Unlock(77), FSSTATUS_SUCCESS) << "any type releases";
    EXPECT_EQ(Held(), 0u);
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS) << "harmless";
    EXPECT_EQ(Held(), 0u);
}

TEST_F(Locks, ReleasingAStoreThatWasNeverLockedFails) {
    EXPECT_EQ(store.Unlock(), FSSTATUS_LOCK_FAILED);
}

TEST_F(Locks, UnknownTypesAreNotTaken) {
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    for (const uint32_t type : {0u, 4u, 9u, 0xFFFFFFFFu})
        EXPECT_EQ(FBR_GetLockEx(type, store.handle), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(Held(), kLockRead);
}

TEST_F(Locks, AnotherHandleSeesWhatWasWrittenOnceItHasTheLock) {
    Store other(path);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    store.Set(store.Make(WTEXT("k")), WTEXT("v"), {1, 2});
    store.Unlock();
    ASSERT_EQ(other.Lock(kLockRead), FSSTATUS_SUCCESS);
    EXPECT_EQ(other.Get(other.Open(WTEXT("k")), WTEXT("v")), Bytes({1, 2}));
    other.Unlock();
    ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
    FBR_DeleteDirNamedEx(WTEXT("\\k"), other.handle);
    other.Unlock();
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_FALSE(store.Has(WTEXT("k")));
}

// The word by which stores learn of one another's writes goes with its last user.
TEST_F(Locks, AStoreSeesWhatOthersWroteAndClosedBeforeItsFirstLock) {
    {
        Store other(path);
        ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
        other.Set(other.Make(WTEXT("k")), WTEXT("v"), {1});
    }
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(store.Open(WTEXT("k")), WTEXT("v")), Bytes({1}));
}

// Threads on one store, some waiting for its lock while others read.
TEST_F(Locks, ThreadsShareAStore) {
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    const FBR_KEY key = store.Make(WTEXT("k"));
    for (uint8_t i = 0; i < 8; ++i) store.Set(key, WString(1, WChar('a' + i)), {i});
    store.Unlock();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (uint8_t i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 300; ++n) {
                const FBR_KEY own = store.Open(WTEXT("k"));
                if (store.Get(own, WString(1, WChar('a' + i))) != Bytes{i}) ++wrong;
                if (store.Values(own).size() != 8) ++wrong;
                FBR_CloseDirEx(own, store.handle);
            }
        });
        threads.emplace_back([&, i] {
            for (int n = 0; n < 100; ++n) {
                if (store.Lock() != FSSTATUS_SUCCESS) ++wrong;
                if (store.Set(key, WString(1, WChar('a' + 4 + i)), {i, i}) != FSSTATUS_SUCCESS)
                    ++wrong;
                store.Unlock();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    for (uint8_t i = 0; i < 4; ++i)
        EXPECT_EQ(store.Get(key, WString(1, WChar('a' + 4 + i))), (Bytes{i, i}));
}

constexpr int kTurns = 10000;

uint32_t ToNumber(const std::optional<Bytes>& bytes) {
    uint32_t number = 0;
    if (bytes && bytes->size() == sizeof number) memcpy(&number, bytes->data(), sizeof number);
    return number;
}
Bytes FromNumber(uint32_t number) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&number);
    return Bytes(bytes, bytes + sizeof number);
}

// Adds one to a shared counter and sets a value of its own, `turns` times. 0, or the first failure.
int CountUp(const WString& path, const WString& name, int turns) {
    Store store(path);
    if (store.status != FSSTATUS_SUCCESS) return 100;
    const FBR_KEY root = store.Root();
    for (int i = 1; i <= turns; ++i) {
        if (store.Lock() != FSSTATUS_SUCCESS) return 101;
        const uint32_t counter = ToNumber(store.Get(root, WTEXT("counter")));
        if (store.Set(root, WTEXT("counter"), FromNumber(counter + 1)) != FSSTATUS_SUCCESS)
            return 102;
        if (store.Set(root, name, FromNumber(static_cast<uint32_t>(i))) != FSSTATUS_SUCCESS)
            return 103;
        if (store.Unlock() != FSSTATUS_SUCCESS) return 104;
    }
    return 0;
}

const support::ChildRole kCount("count", [](const std::vector<std::string>& arguments) {
    return CountUp(platform::FromUtf8(arguments[0]), platform::FromUtf8(arguments[1]), kTurns);
});

TEST_F(Locks, TwoProcessesInTurnLoseNothing) {
    const std::string file = platform::ToUtf8(path);
    support::ChildProcess one("count", {file, "one"});
    support::ChildProcess two("count", {file, "two"});
    EXPECT_EQ(one.Wait(), 0);
    EXPECT_EQ(two.Wait(), 0);
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    const FBR_KEY root = store.Root();
    EXPECT_EQ(ToNumber(store.Get(root, WTEXT("counter"))), 2u * kTurns);
    EXPECT_EQ(ToNumber(store.Get(root, WTEXT("one"))), uint32_t{kTurns});
    EXPECT_EQ(ToNumber(store.Get(root, WTEXT("two"))), uint32_t{kTurns});
}

const support::ChildRole kHold("hold", [](const std::vector<std::string>& arguments) {
    Store store(platform::FromUtf8(arguments[0]));
    if (store.Lock() != FSSTATUS_SUCCESS) return 1;
    store.Set(store.Root(), WTEXT("held"), {1});
    std::ofstream(arguments[1]) << "held";
    std::this_thread::sleep_for(std::chrono::minutes(2));
    return 2;
});

TEST_F(Locks, AKilledHolderDoesNotLockTheOthersOut) {
    const std::string mark = (dir / "mark").string();
    support::ChildProcess holder("hold", {platform::ToUtf8(path), mark});
    ASSERT_TRUE(support::Eventually([&] { return std::filesystem::exists(mark); }));
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        holder.Kill();
    });
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS) << "granted to a thread that waits already";
    killer.join();
    EXPECT_EQ(store.Get(store.Root(), WTEXT("held")), Bytes({1}));
    EXPECT_EQ(store.Set(store.Root(), WTEXT("after"), {2}), FSSTATUS_SUCCESS);
    store.Unlock();
    EXPECT_EQ(CountUp(path, WTEXT("third"), 2), 0);
}

}  // namespace
}  // namespace keystore
