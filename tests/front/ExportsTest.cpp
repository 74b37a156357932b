// SPDX-License-Identifier: MIT
// The exported functions: what they refuse themselves, and how a store comes to be.
#include "platform/Heap.h"
#include "storage/StorageApi.h"
#include "tests/support/Store.h"

namespace {

using platform::WChar;
using support::Store;

// Each with `store` and `name`, of which one is null.
std::vector<FBR_STATUS> NamedAnswers(FBR_STORE store, const WChar* name) {
    FBR_KEY key = 0;
    uint64_t size = 0;
    return {
        FBR_DeleteValue(1, name, store),
        FBR_SetValue(1, name, 1, "", 1, store),
        FBR_QueryValue(1, name, nullptr, 0, &size, nullptr, store),
        FBR_CreateDirEx(0, name, FSCREATEOPTIONS_NONE, &key, store),
        FBR_OpenDirEx(0, name, &key, store),
        FBR_DeleteDirNamedEx(name, store),
        FBR_RenameDirEx(1, name, store),
        FBR_SetKeySecurityString(0, WTEXT("D:"), store),
        FBR_GetKeySecurityString(0, nullptr, nullptr, store),
    };
}

TEST(Exports, NullHandlesPathsNamesAndOutputsAreRefused) {
    FBR_STORE none = nullptr;
    FBR_KEY key = 0;
    uint32_t word = 0;
    WChar* text = nullptr;
    FBR_SYSTEMTIME time{};
    support::Names names;
    std::vector<FBR_STATUS> answers = {
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
        FBR_DeleteDirEx(1, none),
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
    support::TempDir dir;
    Store store(dir.File("s.fbr"));
    for (const auto& more : {NamedAnswers(none, WTEXT("k")), NamedAnswers(store.handle, nullptr)})
        answers.insert(answers.end(), more.begin(), more.end());
    for (size_t i = 0; i < answers.size(); ++i)
        EXPECT_EQ(answers[i], FSSTATUS_INVALID_PARAMETER) << i;
}

TEST(Initialise, TheHandleIsUntouchedByAFailure) {
    FBR_STORE handle = reinterpret_cast<FBR_STORE>(&handle);
    const struct {
        const WChar* path;
        uint32_t method;
        FBR_STATUS status = FSSTATUS_INVALID_PARAMETER;
    } rows[] = {
        {WTEXT(""), 1},        {WTEXT("||"), 1},      {WTEXT("x|y|z"), 1},
        {WTEXT("!REMOTE"), 2}, {WTEXT("path"), 0},    {WTEXT("path"), 4},
        {WTEXT("path"), 5},    {WTEXT("path"), 1000}, {WTEXT("path"), 3, FSSTATUS_NOT_IMPLEMENTED}};
    for (const auto& row : rows)
        EXPECT_EQ(FBR_InitialiseEx(row.path, &handle, static_cast<FBR_METHOD>(row.method)),
                  row.status)
            << row.method;
    EXPECT_EQ(handle, reinterpret_cast<FBR_STORE>(&handle));
}

// The table is copied, serves open stores at once, and is left alone by a null one.
TEST(Exports, AnotherEngineTakesThePlaceOfTheBuiltInOne) {
    support::TempDir dir;
    Store store(dir.File("s.fbr"));
    const storage::StorageFunctionTable builtIn = storage::g_storageFunctions;
    storage::StorageFunctionTable table = builtIn;
    table.StorageIsCorrupted = [](storage::StorageContext*, uint8_t* corrupted) {
        *corrupted = 1;
        return storage::kOk;
    };
    EXPECT_EQ(FBR_SetTARN_Functions(&table), FSSTATUS_SUCCESS);
    table.StorageIsCorrupted = nullptr;
    EXPECT_EQ(FBR_SetTARN_Functions(nullptr), FSSTATUS_INVALID_PARAMETER);
    uint32_t corrupted = 0;
    EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 1u);
    EXPECT_EQ(FBR_SetTARN_Functions(&builtIn), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_IsCorrupted(store.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
}

}  // namespace
