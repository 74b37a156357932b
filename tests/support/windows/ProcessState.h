// SPDX-License-Identifier: MIT
// What a test must leave as it found it: handles, privileges, the thread's token.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

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

    // The number of this process's handles. Each value that one can have is asked for, as far as
    // the last in use: GetProcessHandleCount answers 0 under Wine, and the list of all of the
    // system's handles overruns a buffer of Wine's server now and then, which ends every program.
    static size_t Handles() {
        constexpr ULONG_PTR kStep = 4, kUnusedAtTheEnd = 96;
        size_t count = 0;
        for (ULONG_PTR value = kStep, unused = 0; unused < kUnusedAtTheEnd; value += kStep) {
            DWORD flags = 0;
            const bool used = ::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags);
            count += used;
            unused = used ? 0 : unused + 1;
        }
        EXPECT_GT(count, 0u) << "no handle is in use";
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
        EXPECT_LE(after.handles, before_.handles + locksThatMayMeet_) << "handles left open";
        EXPECT_GE(after.handles, before_.handles) << "handles closed that others opened";
        EXPECT_EQ(after.threadHasToken, before_.threadHasToken) << "impersonation left behind";
        EXPECT_EQ(after.privileges, before_.privileges) << "privileges left behind";
    }

    // A lock of the run-time takes an event for good when threads first meet at it. A test with
    // threads says how many locks these may be, and does its work more often than that.
    void ThreadsMayMeetAt(size_t locks) { locksThatMayMeet_ = locks; }

  private:
    ProcessState before_;
    size_t locksThatMayMeet_ = 0;
};

}  // namespace support
