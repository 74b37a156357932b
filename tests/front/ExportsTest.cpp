// The exported functions: what they refuse themselves, and how a store comes to be.
#include <gtest/gtest.h>

#include "include/ZrFsLibrary.h"
#include "platform/Heap.h"
#include "storage/StorageApi.h"
#include "tests/support/TempDir.h"

namespace {

using platform::WChar;
using platform::WString;

FBR_METHOD Method(uint32_t number) {
    return static_cast<FBR_METHOD>(number);
}

TEST(Exports, NullHandlesPathsAndNamesAreRefused) {
    FBR_STORE none = nullptr;
    FBR_KEY key = 0;
    uint32_t word = 0;
    uint64_t size = 0;
    WChar* text = nullptr;
    FBR_SYSTEMTIME time{};
    std::vector<WString> names;
    const FBR_STATUS answers[] = {
        FBR_InitialiseEx(nullptr, &none, FS_VR_METHOD_TARN),
        FBR_InitialiseEx(WTEXT("x"), nullptr, FS_VR_METHOD_TARN),
        FBR_DeInitialiseEx(none),
        FBR_CheckFile(none),
        FBR_CheckFileEx(nullptr, nullptr),
        FBR_CheckAndRepairFileEx(nullptr, nullptr),
        FBR_IsCorrupted(none, &word),
        FBR_Compact(none, &word),
        FBR_GetLockEx(1, none),
        FBR_ReleaseLockEx(1, none),
        FBR_GetLockTypeEx(none, &word),
        FBR_DeleteValue(1, WTEXT("v"), none),
        FBR_SetValue(1, WTEXT("v"), 1, "", 1, none),
        FBR_QueryValue(1, WTEXT("v"), nullptr, 0, &size, &word, none),
        FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, &key, none),
        FBR_OpenDirEx(0, WTEXT("k"), &key, none),
        FBR_DeleteDirEx(1, none),
        FBR_DeleteDirNamedEx(WTEXT("k"), none),
        FBR_RenameDirEx(1, WTEXT("k"), none),
        FBR_CloseDirEx(1, none),
        FBR_EnumIntFileEx(1, 0, &text, none),
        FBR_EnumIntDirEx(1, 0, &text, none),
        FBR_GetName_DirEx(1, &text, none),
        FBR_GetFullName_DirEx(1, &text, none),
        FBR_DuplicateDirHandleEx(1, &key, none),
        FBR_GetDirTimesEx(1, &time, none),
        FBR_EnumerateAllValues(1, names, none),
        FBR_EnumerateAllKeys(1, names, none),
        FBR_GetKeySecurityString(1, text, &word, none),
        FBR_SetKeySecurityString(1, WTEXT("D:"), none),
        FBR_SetTARN_Functions(nullptr),
    };
    for (size_t i = 0; i < std::size(answers); ++i)
        EXPECT_EQ(answers[i], FSSTATUS_INVALID_PARAMETER) << i;
}

class OpenStore : public testing::Test {
  protected:
    OpenStore() {
        EXPECT_EQ(FBR_InitialiseEx(path.c_str(), &store, FS_VR_METHOD_TARN), FSSTATUS_SUCCESS);
    }
    ~OpenStore() override { FBR_DeInitialiseEx(store); }

    support::TempDir dir;
    const WString path = dir.File("s.fbr");
    FBR_STORE store = nullptr;
};

TEST_F(OpenStore, NullNamesAreRefused) {
    FBR_KEY key = 0;
    uint64_t size = 0;
    EXPECT_EQ(FBR_DeleteValue(1, nullptr, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_SetValue(1, nullptr, 1, "", 1, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_QueryValue(1, nullptr, nullptr, 0, &size, nullptr, store),
              FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_CreateDirEx(0, nullptr, FSCREATEOPTIONS_NONE, &key, store),
              FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_OpenDirEx(0, nullptr, &key, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_DeleteDirNamedEx(nullptr, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_RenameDirEx(1, nullptr, store), FSSTATUS_INVALID_PARAMETER);
}

TEST_F(OpenStore, NullOutputsAreRefusedByTheStore) {
    EXPECT_EQ(FBR_IsCorrupted(store, nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_Compact(store, nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_GetLockTypeEx(store, nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_OpenDirEx(0, WTEXT("\\"), nullptr, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_GetName_DirEx(1, nullptr, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_GetLockEx(1, store), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_CreateDirEx(0, WTEXT("k"), FSCREATEOPTIONS_NONE, nullptr, store),
              FSSTATUS_INVALID_PARAMETER);
}

TEST_F(OpenStore, KeySecurityIsNotKeptInAContainer) {
    uint32_t units = 0;
    EXPECT_EQ(FBR_GetKeySecurityString(0, nullptr, &units, store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_SetKeySecurityString(0, WTEXT("D:"), store), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(FBR_GetKeySecurityString(1, nullptr, &units, store), FSSTATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(FBR_SetKeySecurityString(1, WTEXT("D:"), store), FSSTATUS_NOT_IMPLEMENTED);
}

TEST_F(OpenStore, ANewStoreIsSound) {
    uint32_t corrupted = 0;
    EXPECT_EQ(FBR_IsCorrupted(store, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
    EXPECT_EQ(FBR_CheckFile(store), FSSTATUS_FAILED) << "file checking is off";
}

TEST(Initialise, TheHandleIsUntouchedByAFailure) {
    FBR_STORE handle = reinterpret_cast<FBR_STORE>(&handle);
    const struct {
        const WChar* path;
        uint32_t method;
        FBR_STATUS status;
    } rows[] = {
        {WTEXT(""), 1, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("||"), 1, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("x|y|z"), 1, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("!REMOTE"), 2, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("path"), 0, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("path"), 4, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("path"), 1000, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("path"), 5, FSSTATUS_INVALID_PARAMETER},
        {WTEXT("path"), 3, FSSTATUS_NOT_IMPLEMENTED},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FBR_InitialiseEx(row.path, &handle, Method(row.method)), row.status)
            << row.method;
    EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(&handle));
}

TEST(Initialise, AContainerBehindAServerNameIsLocal) {
    support::TempDir dir;
    FBR_STORE store = nullptr;
    ASSERT_EQ(FBR_InitialiseEx((WTEXT("|server||") + dir.File("b.fbr")).c_str(), &store,
                               FS_VR_METHOD_TARN),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(dir / "b.fbr"));
}

TEST(Release, GivesBackHeapStringsAndIgnoresNull) {
    FBR_Release(nullptr);
    FBR_Release(platform::HeapAllocate(10));
}

// The table is copied, serves open stores at once, and is left alone by a null one.
TEST_F(OpenStore, AnotherEngineTakesThePlaceOfTheBuiltInOne) {
    const storage::StorageFunctionTable builtIn = storage::g_storageFunctions;
    storage::StorageFunctionTable table = builtIn;
    static int calls;
    calls = 0;
    table.StorageIsCorrupted = [](storage::StorageContext*, uint8_t* corrupted) {
        ++calls;
        *corrupted = 1;
        return storage::kOk;
    };
    EXPECT_EQ(FBR_SetTARN_Functions(&table), FSSTATUS_SUCCESS);
    table.StorageIsCorrupted = nullptr;
    EXPECT_EQ(FBR_SetTARN_Functions(nullptr), FSSTATUS_INVALID_PARAMETER);
    uint32_t corrupted = 0;
    EXPECT_EQ(FBR_IsCorrupted(store, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(corrupted, 1u);
    EXPECT_EQ(FBR_SetTARN_Functions(&builtIn), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_IsCorrupted(store, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(calls, 1);
}

}  // namespace
