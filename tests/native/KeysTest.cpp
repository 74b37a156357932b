// SPDX-License-Identifier: MIT
// Keys of the live registry: opening and creating, the root that comes back, names, deletion.
#include <aclapi.h>
#include <sddl.h>

#include "tests/native/LiveKey.h"

namespace native {
namespace {

constexpr NTSTATUS kKeyDeleted = static_cast<NTSTATUS>(0xc000017c);

using NativeKeys = LiveStore;

TEST_F(NativeKeys, TheRootPathLosesOneTrailingBackslashAndIsNotTouchedByOpening) {
    EXPECT_EQ(store_->FBR_InitialiseEx(nullptr), FSSTATUS_INVALID_PARAMETER);
    EXPECT_EQ(store_->FBR_InitialiseEx((rootPath_ + L"\\").c_str()), FSSTATUS_SUCCESS);
    EXPECT_FALSE(ExistsInRegistry(kTestKey));
    // An open of a subkey fails, and brings the root into being all the same.
    EXPECT_EQ(Probe(L"missing"), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(ExistsInRegistry(kTestKey));
    const int64_t key = Key(L"x");
    WChar* name = nullptr;
    EXPECT_EQ(store_->FBR_GetFullName_DirEx(key, &name), FSSTATUS_SUCCESS);
    EXPECT_EQ(Taken(name), L"\\x");
    store_->FBR_CloseDirEx(key);
}

TEST_F(NativeKeys, PathOnlyHoldsNoRootAndCreatesNothingByAnOpen) {
    store_ = Open(true);
    EXPECT_EQ(Probe(L""), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(Probe(L"x"), FSSTATUS_NOT_FOUND);
    EXPECT_FALSE(ExistsInRegistry(kTestKey));
    EXPECT_EQ(Create(L"x\\y"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Create(L"\\x\\y"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(Create(L""), FSSTATUS_SUCCESS);
    EXPECT_EQ(Probe(L"\\x"), FSSTATUS_SUCCESS);
    DeleteFromRegistry(kTestKey);  // no handle stands in the way of a new key
    EXPECT_EQ(Create(L"z"), FSSTATUS_SUCCESS);
    EXPECT_TRUE(ExistsInRegistry(kTestKey + L"\\z"));
}

TEST_F(NativeKeys, ARootDeletedByAnotherComesBack) {
    EXPECT_EQ(Create(L"x"), FSSTATUS_SUCCESS);
    DeleteFromRegistry(kTestKey);
    EXPECT_EQ(Probe(L"x"), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(ExistsInRegistry(kTestKey));

    DeleteFromRegistry(kTestKey);
    EXPECT_EQ(Create(L"a\\b"), FSSTATUS_SUCCESS);
    EXPECT_EQ(Probe(L"a\\b"), FSSTATUS_SUCCESS);

    // A handle of a deleted key duplicates like any other; what is handed out must live.
    DeleteFromRegistry(kTestKey);
    int64_t root = 0;
    ASSERT_EQ(store_->FBR_OpenDirEx(0, L"", &root), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FBR_SetValue(root, L"v", REG_DWORD, "\1\0\0\0", 4), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FBR_CloseDirEx(root), FSSTATUS_SUCCESS);
}

int g_calls = 0;

TEST_F(NativeKeys, AKeyThatStaysDeletedIsTriedTwiceAndReported) {
    ASSERT_EQ(Create(L"x"), FSSTATUS_SUCCESS);
    g_calls = 0;
    {
        support::ReplacedEntry always(
            &NtDllFunctions::ZwOpenKey, +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES) -> NTSTATUS {
                ++g_calls;
                return kKeyDeleted;
            });
        EXPECT_EQ(Probe(L"x"), FSSTATUS_FAILED);
        EXPECT_EQ(g_calls, 2);
    }
    g_calls = 0;
    {
        // The root cannot be made anew: that failure is the answer.
        support::ReplacedEntry once(
            &NtDllFunctions::ZwDuplicateObject,
            +[](HANDLE, HANDLE, HANDLE, PHANDLE, ACCESS_MASK, ULONG, ULONG) -> NTSTATUS {
                ++g_calls;
                return kKeyDeleted;
            });
        support::ReplacedEntry refuses(
            &NtDllFunctions::ZwCreateKey,
            +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG,
                PULONG) -> NTSTATUS { return static_cast<NTSTATUS>(0xc0000022); });
        EXPECT_EQ(Probe(L""), FSSTATUS_ACCESS_DENIED);
        EXPECT_EQ(g_calls, 1);
    }
    EXPECT_EQ(Probe(L"x"), FSSTATUS_SUCCESS);  // and a later use finds the root again
}

// Lets everyone read a key and open nothing more.
void MakeReadOnly(const std::wstring& subkey) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, subkey.c_str(), 0, WRITE_DAC, &key), 0);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
        L"D:P(A;;0x20019;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
    EXPECT_EQ(::RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor), 0);
    ::LocalFree(descriptor);
    ::RegCloseKey(key);
}

TEST_F(NativeKeys, ADeniedParentOnTheWayDoesNotStopACreate) {
    // The whole path is refused as missing once, so that the walk over the parts runs although the
    // last key is there.
    ASSERT_EQ(Create(L"shut\\open"), FSSTATUS_SUCCESS);
    MakeReadOnly(kTestKey + L"\\shut");
    static decltype(NtDllFunctions::ZwCreateKey) real = GetNtDllFunctions()->ZwCreateKey;
    g_calls = 0;
    support::ReplacedEntry first(
        &NtDllFunctions::ZwCreateKey,
        +[](PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES name, ULONG title,
            PUNICODE_STRING kind, ULONG options, PULONG disposition) -> NTSTATUS {
            if (++g_calls == 1) return static_cast<NTSTATUS>(0xc0000034);
            return real(key, access, name, title, kind, options, disposition);
        });
    EXPECT_EQ(Create(L"shut\\open"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(g_calls, 3);
    // When the last key cannot be had either, the answer is the refusal and not the last failure.
    g_calls = 0;
    EXPECT_EQ(Create(L"shut\\new*\\x"), FSSTATUS_SUCCESS);  // Wine allows a child there
    EXPECT_EQ(Create(L"shut"), FSSTATUS_ACCESS_DENIED);
}

TEST_F(NativeKeys, AWalkThatEndsInAFailureAfterARefusalReportsTheRefusal) {
    ASSERT_EQ(Create(L"x"), FSSTATUS_SUCCESS);
    g_calls = 0;
    support::ReplacedEntry walk(
        &NtDllFunctions::ZwCreateKey,
        +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG,
            PULONG) -> NTSTATUS {
            // The path, then its parts: refused, then another failure, which ends the walk.
            constexpr ULONG kAnswers[] = {0xc0000034, 0xc0000022, 0xc000003a, 0};
            return static_cast<NTSTATUS>(kAnswers[g_calls++]);
        });
    EXPECT_EQ(Create(L"a\\b\\c"), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(g_calls, 3);
}

TEST_F(NativeKeys, HandlesOutliveTheStoreAndThoseAboveTheRootHaveNoPath) {
    const int64_t key = Key(L"x");
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    store_ = Open(false);
    EXPECT_EQ(store_->FBR_SetValue(key, L"v", REG_SZ, L"t", 4), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    HKEY user = nullptr;
    WChar* name = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &user), 0);
    EXPECT_EQ(store_->FBR_GetFullName_DirEx(reinterpret_cast<int64_t>(user), &name),
              FSSTATUS_FAILED);
    ::RegCloseKey(user);
}

}  // namespace
}  // namespace native
