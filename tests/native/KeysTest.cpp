// SPDX-License-Identifier: MIT
// Keys of the live registry where the system refuses, or answers oddly. What needs no such system
// is in tests/contract/scripts/registry.txt.
#include <aclapi.h>
#include <sddl.h>

#include <cstring>
#include <set>

#include "tests/native/LiveKey.h"

namespace native {
namespace {

constexpr NTSTATUS kKeyDeleted = static_cast<NTSTATUS>(0xc000017c);

using NativeKeys = LiveStore;

TEST(NtDllTable, IsOneAndFullAndInOrder) {
    EXPECT_EQ(GetNtDllFunctions(), GetNtDllFunctions());
    FARPROC entries[62];
    std::memcpy(entries, GetNtDllFunctions(), sizeof entries);
    EXPECT_FALSE(std::set<FARPROC>(std::begin(entries), std::end(entries)).contains(nullptr));
    HMODULE module = ::GetModuleHandleW(L"ntdll.dll");
    for (const auto& [index, name] : {std::pair{0, "ZwQueryAttributesFile"},
                                      {9, "ZwClose"},
                                      {19, "ZwDuplicateObject"},
                                      {35, "RtlSetDaclSecurityDescriptor"},
                                      {61, "RtlFreeUnicodeString"}})
        EXPECT_EQ(entries[index], ::GetProcAddress(module, name)) << name;
}

TEST_F(NativeKeys, TheRootPathLosesOneTrailingBackslash) {
    EXPECT_EQ(store_->handle->FBR_InitialiseEx(nullptr), FSSTATUS_INVALID_PARAMETER);
    support::Store store(rootPath_ + L"\\", FS_VR_METHOD_NATIVE);
    const support::OpenKey key(store.handle, store.Make("x"));
    EXPECT_EQ(store.FullName(key), L"\\x");
}

int g_calls = 0;

TEST_F(NativeKeys, AKeyThatStaysDeletedIsTriedTwiceAndReported) {
    ASSERT_EQ(store_->TryMake("x"), FSSTATUS_SUCCESS);
    g_calls = 0;
    {
        support::ReplacedEntry always(
            &NtDllFunctions::ZwOpenKey, +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES) -> NTSTATUS {
                return ++g_calls, kKeyDeleted;
            });
        EXPECT_EQ(store_->TryOpen("x"), FSSTATUS_FAILED);
        EXPECT_EQ(g_calls, 2);
    }
    {
        // The root cannot be made anew: that failure is the answer.
        support::ReplacedEntry once(
            &NtDllFunctions::ZwDuplicateObject,
            +[](HANDLE, HANDLE, HANDLE, PHANDLE, ACCESS_MASK, ULONG, ULONG) -> NTSTATUS {
                return ++g_calls, kKeyDeleted;
            });
        support::ReplacedEntry refuses(
            &NtDllFunctions::ZwCreateKey,
            +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG,
                PULONG) -> NTSTATUS { return static_cast<NTSTATUS>(0xc0000022); });
        EXPECT_EQ(store_->TryOpen(""), FSSTATUS_ACCESS_DENIED);
        EXPECT_EQ(g_calls, 3);
    }
    EXPECT_EQ(store_->TryOpen("x"), FSSTATUS_SUCCESS);  // and a later use finds the root again
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
    ASSERT_EQ(store_->TryMake("shut\\open"), FSSTATUS_SUCCESS);
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
    EXPECT_EQ(store_->TryMake("shut\\open"), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(g_calls, 3);
    // When the last key cannot be had either, the answer is the refusal and not the last failure.
    EXPECT_EQ(store_->TryMake("shut\\new*\\x"), FSSTATUS_SUCCESS);  // Wine allows a child there
    EXPECT_EQ(store_->TryMake("shut"), FSSTATUS_ACCESS_DENIED);
}

TEST_F(NativeKeys, AWalkThatEndsInAFailureAfterARefusalReportsTheRefusal) {
    ASSERT_EQ(store_->TryMake("x"), FSSTATUS_SUCCESS);
    g_calls = 0;
    support::ReplacedEntry walk(
        &NtDllFunctions::ZwCreateKey,
        +[](PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, ULONG, PUNICODE_STRING, ULONG,
            PULONG) -> NTSTATUS {
            // The path, then its parts: refused, then another failure, which ends the walk.
            constexpr ULONG kAnswers[] = {0xc0000034, 0xc0000022, 0xc000003a, 0};
            return static_cast<NTSTATUS>(kAnswers[g_calls++]);
        });
    EXPECT_EQ(store_->TryMake("a\\b\\c"), FSSTATUS_ACCESS_DENIED);
    EXPECT_EQ(g_calls, 3);
}

TEST_F(NativeKeys, HandlesOutliveTheStoreAndThoseAboveTheRootHaveNoPath) {
    const FBR_KEY key = store_->Make("x");
    EXPECT_EQ(store_->Close(), FSSTATUS_SUCCESS);
    store_.emplace(rootPath_, FS_VR_METHOD_NATIVE);
    EXPECT_EQ(store_->Set(key, "v", {1}), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->Close(key), FSSTATUS_SUCCESS);
    HKEY user = nullptr;
    FBR_WCHAR* name = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &user), 0);
    EXPECT_EQ(FBR_GetFullName_DirEx(reinterpret_cast<int64_t>(user), &name, store_->handle),
              FSSTATUS_FAILED);
    ::RegCloseKey(user);
}

}  // namespace
}  // namespace native
