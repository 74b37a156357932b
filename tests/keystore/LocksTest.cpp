// The types of a store's lock. That it excludes others is in tests/sharing/.
#include "tests/keystore/TestStore.h"

namespace keystore {
namespace {

class Locks : public testing::Test {
  protected:
    uint32_t Held() {
        uint32_t type = 99;
        EXPECT_EQ(FBR_GetLockTypeEx(store.handle, &type), FSSTATUS_SUCCESS);
        return type;
    }
    // Every operation that changes the store answers the same without a write lock, and changes
    // nothing.
    void ExpectWritesRefused() {
        const FBR_KEY root = store.Root();
        const Bytes before = support::ReadBytes(path);
        const FBR_STATUS answers[] = {store.Set(root, "v", {1}),
                                      store.TryMake("k"),
                                      store.DeleteValue(root, "FBRVersion"),
                                      store.Delete(root),
                                      store.DeleteTree("\\x"),
                                      store.Rename(root, "n")};
        for (const FBR_STATUS answer : answers) EXPECT_EQ(answer, FSSTATUS_LOCK_FAILED);
        EXPECT_EQ(support::ReadBytes(path), before);
        EXPECT_EQ(store.Values(root), Names{WTEXT("FBRVersion")});
        store.Close(root);
    }

    support::TempDir dir;
    const WString path = dir.File("store.fbr");
    Store store{path};
};

TEST_F(Locks, OnlyTypesOneAndTwoAllowWrites) {
    EXPECT_EQ(store.Unlock(), FSSTATUS_LOCK_FAILED) << "never locked";
    EXPECT_EQ(Held(), 0u);
    ExpectWritesRefused();
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    for (const uint32_t type : {0u, 4u, 9u, 0xFFFFFFFFu})
        EXPECT_EQ(store.Lock(type), FSSTATUS_LOCK_FAILED);
    EXPECT_EQ(Held(), kLockRead);
    ExpectWritesRefused();
    EXPECT_EQ(store.Unlock(kLockRead), FSSTATUS_SUCCESS);
    for (const uint32_t type : {kLockWrite, kLockWriteToo}) {
        ASSERT_EQ(store.Lock(type), FSSTATUS_SUCCESS);
        EXPECT_EQ(Held(), type);
        EXPECT_EQ(store.Set(store.Root(), "v", {1}), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Unlock(type), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(Held(), 0u);
}

TEST_F(Locks, NestAndTheStackTellsWhatIsInForce) {
    ASSERT_EQ(store.Lock(kLockWrite), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Lock(kLockRead), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Set(store.Root(), "v", {1}), FSSTATUS_LOCK_FAILED);
    // The type of a release does not have to match.
    EXPECT_EQ(store.Unlock(kLockWriteToo), FSSTATUS_SUCCESS);
    EXPECT_EQ(Held(), kLockWrite);
    EXPECT_EQ(store.Set(store.Root(), "v", {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Unlock(77), FSSTATUS_SUCCESS) << "any type releases";
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS) << "harmless";
    EXPECT_EQ(Held(), 0u);
}

// The word by which stores learn of one another's writes goes with its last user.
TEST_F(Locks, AStoreSeesWhatOthersWroteAndClosedBeforeItsFirstLock) {
    {
        Store other(path);
        ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
        other.Set(other.Make("k"), "v", {1});
    }
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Get(store.Open("k"), "v"), Bytes({1}));
}

}  // namespace
}  // namespace keystore
