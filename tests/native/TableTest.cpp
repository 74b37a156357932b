// SPDX-License-Identifier: MIT
// The table of native functions and what happens where it has gaps; and what other programs
// see.
#include <cstring>
#include <functional>
#include <set>

#include "tests/native/LiveKey.h"

namespace native {
namespace {

TEST(NtDllTable, IsOneAndFullAndInOrder) {
    EXPECT_EQ(GetNtDllFunctions(), GetNtDllFunctions());
    FARPROC entries[62];
    std::memcpy(entries, GetNtDllFunctions(), sizeof entries);
    std::set<FARPROC> different(std::begin(entries), std::end(entries));
    EXPECT_EQ(different.count(nullptr), 0u);
    HMODULE module = ::GetModuleHandleW(L"ntdll.dll");
    EXPECT_EQ(entries[0], ::GetProcAddress(module, "ZwQueryAttributesFile"));
    EXPECT_EQ(entries[9], ::GetProcAddress(module, "ZwClose"));
    EXPECT_EQ(entries[19], ::GetProcAddress(module, "ZwDuplicateObject"));
    EXPECT_EQ(entries[35], ::GetProcAddress(module, "RtlSetDaclSecurityDescriptor"));
    EXPECT_EQ(entries[61], ::GetProcAddress(module, "RtlFreeUnicodeString"));
}

class NativeTable : public LiveStore {};

TEST_F(NativeTable, AMissingEntryFailsItsOperationAndNoOther) {
    const int64_t key = Key(L"k");
    ASSERT_EQ(store_->FBR_SetValue(key, L"v", REG_SZ, L"x", 4), FSSTATUS_SUCCESS);
    int64_t other = 0;
    WChar* name = nullptr;
    std::vector<WString> names;
    char buffer[4];
    const auto fails = [&](auto entry, const std::function<FBR_STATUS()>& operation) {
        using Function = std::remove_reference_t<decltype(GetNtDllFunctions()->*entry)>;
        support::ReplacedEntry<Function> none(entry, nullptr);
        EXPECT_EQ(operation(), FSSTATUS_FAILED);
    };
    using Table = NtDllFunctions;
    fails(&Table::ZwCreateKey, [&] { return Create(L"n"); });
    fails(&Table::ZwOpenKey, [&] { return Probe(L"k"); });
    fails(&Table::ZwDuplicateObject, [&] { return Probe(L""); });
    fails(&Table::ZwDuplicateObject, [&] { return store_->FBR_DuplicateDirHandleEx(key, &other); });
    fails(&Table::ZwDeleteKey, [&] { return store_->FBR_DeleteDirEx(key); });
    fails(&Table::ZwRenameKey, [&] { return store_->FBR_RenameDirEx(key, L"n"); });
    fails(&Table::ZwDeleteValueKey, [&] { return store_->FBR_DeleteValue(key, L"v"); });
    fails(&Table::ZwSetValueKey, [&] { return store_->FBR_SetValue(key, L"w", REG_SZ, L"x", 4); });
    fails(&Table::ZwQueryValueKey, [&] {
        return store_->FBR_QueryValue(key, L"v", buffer, sizeof buffer, nullptr, nullptr);
    });
    fails(&Table::ZwEnumerateValueKey, [&] { return store_->FBR_EnumIntFileEx(key, 0, &name); });
    fails(&Table::ZwEnumerateValueKey, [&] { return store_->FBR_EnumerateAllValues(key, names); });
    fails(&Table::ZwEnumerateKey, [&] { return store_->FBR_EnumIntDirEx(key, 0, &name); });
    fails(&Table::ZwEnumerateKey, [&] { return store_->FBR_EnumerateAllKeys(key, names); });
    fails(&Table::ZwQueryKey, [&] { return store_->FBR_GetName_DirEx(key, &name); });
    fails(&Table::ZwQueryKey, [&] { return store_->FBR_GetFullName_DirEx(key, &name); });
    fails(&Table::ZwQueryKey, [&] { return store_->FBR_GetDirTimesEx(key, nullptr); });
    EXPECT_EQ(name, nullptr);
    {
        // These two are passed over. Without the first no name reaches the platform.
        support::ReplacedEntry noClose(&Table::ZwClose, decltype(Table::ZwClose){});
        EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    }
    {
        support::ReplacedEntry noInit(&Table::RtlInitUnicodeString,
                                      decltype(Table::RtlInitUnicodeString){});
        EXPECT_EQ(store_->FBR_DeleteValue(key, L"v"), FSSTATUS_NOT_FOUND);
    }
    EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
}

// Runs a program of the system and gives its exit code.
DWORD RunProgram(std::wstring commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                          nullptr, nullptr, &startup, &started)) {
        return ~DWORD{0};
    }
    ::WaitForSingleObject(started.hProcess, 60000);
    DWORD code = ~DWORD{0};
    ::GetExitCodeProcess(started.hProcess, &code);
    ::CloseHandle(started.hProcess);
    ::CloseHandle(started.hThread);
    return code;
}

TEST_F(NativeTable, OtherProgramsSeeOurKeysAndWeSeeTheirs) {
    const int64_t key = Key(L"ours");
    ASSERT_EQ(store_->FBR_SetValue(key, L"number", REG_DWORD, "\x2a\0\0\0", 4), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
    const std::wstring path = L"HKCU\\" + kTestKey;
    EXPECT_EQ(RunProgram(L"reg.exe query " + path + L"\\ours /v number"), 0u);
    EXPECT_NE(RunProgram(L"reg.exe query " + path + L"\\ours /v missing"), 0u);

    ASSERT_EQ(RunProgram(L"reg.exe add " + path + L"\\theirs /v text /t REG_SZ /d hello /f"), 0u);
    const int64_t theirs = Key(L"theirs");
    wchar_t text[6];
    uint64_t size = 0;
    uint32_t type = 0;
    EXPECT_EQ(store_->FBR_QueryValue(theirs, L"text", text, sizeof text, &size, &type),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(std::wstring(text), L"hello");
    EXPECT_EQ(type, static_cast<uint32_t>(REG_SZ));
    EXPECT_EQ(store_->FBR_CloseDirEx(theirs), FSSTATUS_SUCCESS);
}

}  // namespace
}  // namespace native
