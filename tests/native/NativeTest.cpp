// SPDX-License-Identifier: MIT
// The live registry: buffers of every size, and answers of the system that are none. What needs no
// such system is in tests/contract/scripts/registry.txt.
#include <algorithm>
#include <cstring>
#include <optional>
#include <set>

#include "FS_Library_DLL/IFSInterface.h"
#include "tests/support/Store.h"
#include "tests/support/windows/ProcessState.h"
#include "tests/support/windows/Replace.h"

namespace {

const std::wstring kTestKey = L"Software\\ZrFsNativeTest";

// The kernel's path of HKEY_CURRENT_USER.
std::wstring CurrentUserPath() {
    UNICODE_STRING path{};
    EXPECT_EQ(GetNtDllFunctions()->RtlFormatCurrentUserKeyPath(&path), 0);
    std::wstring text(path.Buffer, path.Length / sizeof(wchar_t));
    GetNtDllFunctions()->RtlFreeUnicodeString(&path);
    return text;
}

support::Bytes Pattern(size_t bytes) {
    support::Bytes data(bytes);
    for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<uint8_t>('a' + i % 23);
    return data;
}

// A store on a key of the test's own, with a key in it that has a value.
class Native : public support::LeavesNothingBehind {
  protected:
    void SetUp() override {
        Drop();
        LeavesNothingBehind::SetUp();
        store_.emplace(rootPath_, FS_VR_METHOD_NATIVE);
        key_ = store_->Make("k");
        EXPECT_EQ(store_->Set(key_, "v", Pattern(1000)), FSSTATUS_SUCCESS);
    }
    void TearDown() override {
        EXPECT_EQ(store_->Close(key_), FSSTATUS_SUCCESS);
        store_.reset();
        LeavesNothingBehind::TearDown();
        Drop();
    }
    static void Drop() { ::RegDeleteTreeW(HKEY_CURRENT_USER, kTestKey.c_str()); }
    FBR_STATUS Query(uint64_t room) {
        uint64_t size = 0;
        return store_->Query(key_, "v", buffer_, room, &size);
    }

    const std::wstring rootPath_ = CurrentUserPath() + L"\\" + kTestKey;
    std::optional<support::Store> store_;
    FBR_KEY key_ = 0;
    uint8_t buffer_[1000];
};

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

TEST_F(Native, TheRootPathLosesOneTrailingBackslash) {
    EXPECT_EQ(store_->handle->FBR_InitialiseEx(nullptr), FSSTATUS_INVALID_PARAMETER);
    support::Store store(rootPath_ + L"\\", FS_VR_METHOD_NATIVE);
    const support::OpenKey key(store.handle, store.Make("x"));
    EXPECT_EQ(store.FullName(key), L"\\x");
}

TEST_F(Native, HandlesOutliveTheStoreAndThoseAboveTheRootHaveNoPath) {
    EXPECT_EQ(store_->Close(), FSSTATUS_SUCCESS);
    store_.emplace(rootPath_, FS_VR_METHOD_NATIVE);
    EXPECT_EQ(store_->Set(key_, "v", {1}), FSSTATUS_SUCCESS);
    HKEY user = nullptr;
    FBR_WCHAR* name = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &user), 0);
    EXPECT_EQ(FBR_GetFullName_DirEx(reinterpret_cast<int64_t>(user), &name, store_->handle),
              FSSTATUS_FAILED);
    ::RegCloseKey(user);
}

// Every length around the room that a first query has to spare, with short and long names, into
// buffers of every length around the data's: never a byte too many, the bytes that fit, and a
// status that tells.
TEST_F(Native, QueriesAnswerRightForEveryShortfall) {
    for (const std::wstring& name : {std::wstring(L"n"), std::wstring(40, L'n')})
        for (size_t length : {1, 3, 4, 5, 23, 24, 25, 500, 5000}) {
            const support::Bytes data = Pattern(length);
            ASSERT_EQ(store_->Set(key_, name, data, 77), FSSTATUS_SUCCESS);
            for (size_t room = length > 3 ? length - 3 : 0; room < length + 3; ++room) {
                support::Bytes buffer(length + 8, '#'), expected = buffer;
                std::copy_n(data.begin(), std::min(room, length), expected.begin());
                uint64_t size = 0;
                uint32_t type = 0;
                const FBR_STATUS status =
                    store_->Query(key_, name, buffer.data(), room, &size, &type);
                EXPECT_EQ(size, length);
                EXPECT_EQ(type, 77u);
                EXPECT_EQ(buffer, expected) << length << "/" << room;
                const bool overflow = status == FSSTATUS_BUFFER_OVERFLOW;
                EXPECT_TRUE(overflow || status == FSSTATUS_SUCCESS);
                EXPECT_FALSE(overflow && room >= length);
                EXPECT_TRUE(overflow || room >= length || name.size() < 2);
            }
        }
}

// Sizes are counted in 32 bits: one that becomes no buffer at all is refused.
TEST_F(Native, SizesThatAreNoneAreRefused) {
    EXPECT_EQ(Query(0xFFFFFFE8u), FSSTATUS_FAILED);
    EXPECT_EQ(FBR_SetValue(key_, L"huge", REG_BINARY, buffer_, uint64_t{1} << 32, store_->handle),
              FSSTATUS_INVALID_PARAMETER);
}

// A provider of the native functions that lies about lengths is refused, and never read past.
TEST_F(Native, LyingAnswersAreRefused) {
    using Answer = NTSTATUS(NTAPI*)(HANDLE, ULONG, ULONG, PVOID, ULONG, PULONG);
    const std::pair<Answer, FBR_STATUS> lies[] = {
        // Never room enough.
        {[](HANDLE, ULONG, ULONG, PVOID, ULONG bytes, PULONG needed) -> NTSTATUS {
             return *needed = bytes, static_cast<NTSTATUS>(0x80000005);
         },
         FSSTATUS_BUFFER_OVERFLOW},
        // A name that is longer than the answer.
        {[](HANDLE, ULONG, ULONG, PVOID answer, ULONG, PULONG) -> NTSTATUS {
             const ULONG length = 0x7fffffff;
             return std::memcpy(static_cast<char*>(answer) + 12, &length, sizeof length), 0;
         },
         FSSTATUS_FAILED}};
    support::Names names;
    FBR_WCHAR* name = nullptr;
    for (const auto& [lie, answer] : lies) {
        support::ReplacedEntry liar(&NtDllFunctions::ZwEnumerateKey, lie);
        EXPECT_EQ(FBR_EnumerateAllKeys(key_, names, store_->handle), answer);
        EXPECT_EQ(FBR_EnumIntDirEx(key_, 0, &name, store_->handle), answer);
    }
    EXPECT_EQ(name, nullptr);
    EXPECT_TRUE(names.empty());
    support::ReplacedEntry farAway(
        &NtDllFunctions::ZwQueryValueKey,
        +[](HANDLE, PUNICODE_STRING, ULONG, PVOID answer, ULONG, PULONG needed) -> NTSTATUS {
            const ULONG fields[] = {0, 3, 0xfffffff0, 8};
            std::memcpy(answer, fields, sizeof fields);
            *needed = 28;
            return 0;
        });
    EXPECT_EQ(Query(8), FSSTATUS_FAILED);
}

}  // namespace
