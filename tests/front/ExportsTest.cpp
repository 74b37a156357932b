// SPDX-License-Identifier: MIT
// The exported functions: what they refuse themselves, and how a store comes to be.
#include "platform/Heap.h"
#include "storage/StorageApi.h"
#include "tests/support/Store.h"

namespace {

using platform::WChar;
using support::Store;

// What a script cannot leave out. That nothing is done without a store is told there.
TEST(Exports, NullPathsNamesAndOutputsAreRefused) {
    FBR_STORE none = nullptr;
    FBR_KEY key = 0;
    uint64_t size = 0;
    const support::TempDir dir;
    const Store opened(dir.File("s.fbr"));
    FBR_STORE store = opened.handle;
    int row = 0;
    for (const FBR_STATUS answer : {
             FBR_InitialiseEx(nullptr, &none, FS_VR_METHOD_TARN),
             FBR_InitialiseEx(WTEXT("x"), nullptr, FS_VR_METHOD_TARN),
             FBR_DeInitialiseEx(nullptr),
             FBR_CheckFileEx(nullptr, nullptr),
             FBR_CheckAndRepairFileEx(nullptr, nullptr),
             FBR_DeleteValue(1, nullptr, store),
             FBR_SetValue(1, nullptr, 1, "", 1, store),
             FBR_QueryValue(1, nullptr, nullptr, 0, &size, nullptr, store),
             FBR_CreateDirEx(0, nullptr, FSCREATEOPTIONS_NONE, &key, store),
             FBR_OpenDirEx(0, nullptr, &key, store),
             FBR_DeleteDirNamedEx(nullptr, store),
             FBR_RenameDirEx(1, nullptr, store),
             FBR_SetKeySecurityString(0, WTEXT("D:"), store),
             FBR_GetKeySecurityString(0, nullptr, nullptr, store),
         })
        EXPECT_EQ(answer, FSSTATUS_INVALID_PARAMETER) << row++;
}

TEST(Initialise, TheHandleIsUntouchedByAFailure) {
    FBR_STORE handle = reinterpret_cast<FBR_STORE>(&handle);
    const struct {
        const WChar* path;
        uint32_t method;
        FBR_STATUS status = FSSTATUS_INVALID_PARAMETER;
    } rows[] = {
        {WTEXT(""), 1},
        {WTEXT("||"), 1},
        {WTEXT("x|y|z"), 1},
        {WTEXT("!REMOTE"), 2},
        {WTEXT("path"), 0},
        {WTEXT("path"), 4},
        {WTEXT("path"), 5},
        {WTEXT("path"), 1000},
        {WTEXT("path"), 3, FSSTATUS_NOT_IMPLEMENTED},
        {WTEXT("path"), 16, ZRFS_CLUSTER ? FSSTATUS_INVALID_NAME : FSSTATUS_NOT_IMPLEMENTED}};
    for (const auto& row : rows)
        EXPECT_EQ(FBR_InitialiseEx(row.path, &handle, static_cast<FBR_METHOD>(row.method)),
                  row.status)
            << row.method;
    EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(&handle));
}

// An engine that refuses, for as long as this lives.
class RefusingEngine {
  public:
    RefusingEngine() {
        storage::StorageFunctionTable table = builtIn_;
        table.StorageIsCorrupted = [](storage::StorageContext*, uint8_t* corrupted) {
            *corrupted = 1;
            return storage::kOk;
        };
        table.StorageOpenFile = [](auto...) { return storage::kNotFound; };
        table.StorageDeleteFile = [](auto...) { return storage::kAccess; };
        table.StorageIsDirectoryEmpty = [](auto...) { return storage::kNotFound; };
        table.StorageDeleteDirectory = [](auto...) { return storage::kNotEmpty; };
        EXPECT_EQ(FBR_SetTARN_Functions(&table), FSSTATUS_SUCCESS);
        table.StorageIsCorrupted = nullptr;
    }
    ~RefusingEngine() { EXPECT_EQ(FBR_SetTARN_Functions(&builtIn_), FSSTATUS_SUCCESS); }

  private:
    const storage::StorageFunctionTable builtIn_ = storage::g_storageFunctions;
};

// The table is copied, serves open stores at once, and is left alone by a null one. Nothing goes
// past it.
TEST(Exports, AnotherEngineTakesThePlaceOfTheBuiltInOne) {
    support::TempDir dir;
    Store store(dir.File("s.fbr"));
    store.Lock(support::kLockWrite);
    const support::OpenKey key(store.handle, store.Make("key"));
    EXPECT_EQ(store.Set(key, "value", {7}), FSSTATUS_SUCCESS);
    uint32_t corrupted = 0;
    uint64_t size = 0;
    {
        const RefusingEngine engine;
        EXPECT_EQ(FBR_SetTARN_Functions(nullptr), FSSTATUS_INVALID_PARAMETER);
        EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
        EXPECT_EQ(corrupted, 1u);
        EXPECT_EQ(store.Query(key, "value", nullptr, 0, &size), FSSTATUS_NOT_FOUND);
        EXPECT_NE(store.DeleteTree("key"), FSSTATUS_SUCCESS);
    }
    EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
    EXPECT_EQ(store.Get(key, "value"), support::Bytes{7});
    EXPECT_EQ(store.DeleteTree("key"), FSSTATUS_SUCCESS);
}

}  // namespace
