// What a test must leave as it found it: handles, privileges, the thread's token.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FS_Library_DLL/NtDllFunctions.h"
#include "Shared/logging/Logger.h"

namespace support {

struct ProcessState {
    size_t handles = 0;
    bool threadHasToken = false;
    std::string privileges;

    static ProcessState Now() {
        ProcessState now;
        HANDLE token = nullptr;
        now.threadHasToken =
            ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token) != FALSE;
        if (now.threadHasToken) ::CloseHandle(token);
        now.privileges = Privileges();
        now.handles = Handles();
        return now;
    }

    // The number of this process's handles. It is counted in the list of all of the system's,
    // since GetProcessHandleCount answers 0 under Wine.
    static size_t Handles() {
        struct Entry {
            PVOID object;
            ULONG_PTR process;
            ULONG_PTR handle;
            ULONG rest[4];
        };
        constexpr ULONG kExtendedHandleInformation = 64;
        std::vector<ULONG_PTR> list(1 << 17);
        ULONG needed = 0;
        EXPECT_EQ(GetNtDllFunctions()->ZwQuerySystemInformation(
                      kExtendedHandleInformation, list.data(),
                      static_cast<ULONG>(list.size() * sizeof list[0]), &needed),
                  0);
        const auto* entries = reinterpret_cast<const Entry*>(&list[2]);
        const size_t count =
            static_cast<size_t>(std::count_if(entries, entries + list[0], [](const Entry& entry) {
                return entry.process == ::GetCurrentProcessId();
            }));
        EXPECT_GT(count, 0u) << "the system counts no handles";
        return count;
    }

    // The privileges that are on, one behind the other.
    static std::string Privileges() {
        HANDLE token = nullptr;
        EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token));
        std::vector<BYTE> bytes(16 * 1024);
        DWORD needed = 0;
        EXPECT_TRUE(::GetTokenInformation(token, TokenPrivileges, bytes.data(),
                                          static_cast<DWORD>(bytes.size()), &needed));
        ::CloseHandle(token);
        const auto* held = reinterpret_cast<const TOKEN_PRIVILEGES*>(bytes.data());
        std::string text;
        for (DWORD i = 0; i < held->PrivilegeCount; ++i) {
            if ((held->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED) == 0) continue;
            text += std::to_string(held->Privileges[i].Luid.LowPart) + " ";
        }
        return text;
    }
};

// A fixture whose tests leave the process as they found it. What the
// platform opens once for good (its registry roots) is opened before the state is taken.
class LeavesNothingBehind : public testing::Test {
  protected:
    // The logger takes handles of the run-time for good with its first lock and its first scope.
    LeavesNothingBehind() {
        Varnhold::Hob::Detail::Logger::Instance().RemoveSinks();
        Varnhold::Hob::Detail::LogScope warm("", "", 0);
    }

    void SetUp() override {
        for (HKEY root : {HKEY_USERS, HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            HKEY key = nullptr;
            if (::RegOpenKeyExW(root, L"", 0, KEY_READ, &key) == 0) ::RegCloseKey(key);
        }
        before_ = ProcessState::Now();
    }
    void TearDown() override {
        const ProcessState after = ProcessState::Now();
        EXPECT_EQ(after.handles, before_.handles) << "handles left open";
        EXPECT_EQ(after.threadHasToken, before_.threadHasToken) << "impersonation left behind";
        EXPECT_EQ(after.privileges, before_.privileges) << "privileges left behind";
    }

  private:
    ProcessState before_;
};

}  // namespace support
