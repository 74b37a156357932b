// SPDX-License-Identifier: MIT
// Identities, impersonation scopes, sessions and privileges; the collection of the platform's
// functions; reading and writing single registry values.
#include <atomic>
#include <memory>
#include <thread>

#include "FS_Library_DLL/hive/HivePrivileges.h"
#include "Shared/Impersonator.h"
#include "Shared/UserIdentity.h"
#include "Shared/w32helpers.h"
#include "W32Utils/RegistryUtil.h"
#include "W32Utils/UnImpersonator.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/windows/LogCapture.h"
#include "tests/support/windows/ProcessState.h"
#include "tests/support/windows/Replace.h"

namespace {

using support::LogCapture;
using w32utils::CAccessToken;
using w32utils::ProcessPrivilege;

CAccessToken ProcessToken(DWORD access) {
    CAccessToken token;
    EXPECT_TRUE(token.OpenProcessToken(access));
    return token;
}

bool ThreadHasToken() {
    return support::ProcessState::Now().threadHasToken;
}

class Identity : public support::LeavesNothingBehind {
  protected:
    LogCapture log_;
};

TEST_F(Identity, OfTheProcessAndOfATokenGiven) {
    const CUserIdentity own(CUserIdentity::kCurrentSession, nullptr);
    EXPECT_EQ(own.GetUserSid().rfind(L"S-1-5-", 0), 0u);
    EXPECT_FALSE(own.IsSystem());
    EXPECT_FALSE(own.PrimaryGroup().IsEmpty());
    DWORD session = 0;
    ::ProcessIdToSessionId(::GetCurrentProcessId(), &session);
    EXPECT_EQ(own.GetSessionId(), session);

    // The token given is owned from then on: the fixture counts it.
    CUserIdentity given(7, ProcessToken(TOKEN_QUERY).Detach());
    EXPECT_EQ(given.GetUserSid(), own.GetUserSid());
    EXPECT_EQ(given.GetSessionId(), 7u);
    given.Attach(CUserIdentity::kCurrentSessionToo, INVALID_HANDLE_VALUE);
    EXPECT_EQ(given.GetSessionId(), session);
    EXPECT_EQ(given.GetUserSid(), own.GetUserSid());
    EXPECT_FALSE(log_.Holds("1 Shared")) << log_.All();
}

TEST_F(Identity, WhatCannotBeReadStaysEmptyAndIsLogged) {
    const CUserIdentity blind(1, ProcessToken(TOKEN_DUPLICATE).Detach());
    EXPECT_EQ(blind.GetUserSid(), L"");
    EXPECT_TRUE(blind.PrimaryGroup().IsEmpty());
    log_.Expect({"1 Shared/UserIdentity CUserIdentity::Attach: CAccessToken::GetUser failed [5]"});

    struct NoTokens : ProcessInterface {
        BOOL OpenProcessToken(HANDLE, DWORD, PHANDLE) override {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
    };
    const support::ReplacedInterface<ProcessInterface> none(std::make_shared<NoTokens>());
    const CUserIdentity nobody(1, nullptr);
    EXPECT_EQ(nobody.Token(), nullptr);
    EXPECT_EQ(nobody.GetUserSid(), L"");
    log_.Expect({"Getlast Error=[5]"});
    EXPECT_NE(ProcessPrivilege::GetProcessPrivileges([](const auto&) { return true; }), 0u);
    log_.Expect({"OpenProcessToken [5]"});
}

// Scopes inside one another, each of which leaves the thread as it found it.
TEST_F(Identity, ScopesPutTheThreadBackInBothDirections) {
    const CAccessToken process = ProcessToken(TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE);
    {
        const w32utils::ImpersonationStateSaver saver;
        EXPECT_EQ(saver.SavedToken(), nullptr);
        ASSERT_TRUE(::ImpersonateLoggedOnUser(process.Get()));
    }
    EXPECT_FALSE(ThreadHasToken());  // what was added in between is gone
    {
        const Impersonator first(process.Get());
        EXPECT_TRUE(first.Impersonates());
        // The thread's token comes before the process's.
        const CUserIdentity identity(CUserIdentity::kCurrentSession, nullptr);
        w32utils::TokenInformation kind;
        ASSERT_TRUE(kind.Query(identity.Token(), TokenType) ||
                    ::GetLastError() == ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(kind.As<TOKEN_TYPE>(), TokenImpersonation);
        {
            const Impersonator second(process.Get());
            EXPECT_FALSE(second.Impersonates());
            EXPECT_EQ(second.Error(), 0u);
        }
        EXPECT_TRUE(ThreadHasToken());  // the inner scope has not ended the outer one's work
        {
            const UnImpersonator asProcess;
            EXPECT_NE(asProcess.SavedToken(), nullptr);
            EXPECT_FALSE(ThreadHasToken());
            EXPECT_EQ(UnImpersonator().SavedToken(), nullptr);
        }
        EXPECT_TRUE(ThreadHasToken());
    }
    EXPECT_FALSE(ThreadHasToken());
    log_.Expect({"3 W32Utils/ImpersonationStateSaver"});
    const CAccessToken useless = ProcessToken(TOKEN_QUERY);
    const Impersonator failed(useless.Get());
    EXPECT_FALSE(failed.Impersonates());
    EXPECT_EQ(failed.Error(), DWORD{ERROR_ACCESS_DENIED});
}

// A thread whose token cannot be opened may be anybody: nothing is done as the process there.
TEST_F(Identity, AThreadThatMayStillBeAUserDoesNothingAsTheProcess) {
    ACL nothing{};
    SECURITY_DESCRIPTOR closed{};
    ASSERT_TRUE(::InitializeAcl(&nothing, sizeof nothing, ACL_REVISION));
    ::InitializeSecurityDescriptor(&closed, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&closed, TRUE, &nothing, FALSE);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &closed, FALSE};
    const CAccessToken process = ProcessToken(TOKEN_QUERY | TOKEN_DUPLICATE);
    HANDLE copy = nullptr;
    ASSERT_TRUE(::DuplicateTokenEx(process.Get(), TOKEN_IMPERSONATE | TOKEN_QUERY, &attributes,
                                   SecurityImpersonation, TokenImpersonation, &copy));
    CAccessToken user;
    user.Attach(copy);
    ASSERT_TRUE(::SetThreadToken(nullptr, user.Get()));
    EXPECT_EQ(UnImpersonator().Error(), DWORD{ERROR_ACCESS_DENIED});
    bool ran = false;
    EXPECT_EQ(RunWithHivePrivileges([&] { return ran = true, FSSTATUS_SUCCESS; }),
              FSSTATUS_ACCESS_DENIED);
    EXPECT_FALSE(ran);
    ::RevertToSelf();
    EXPECT_EQ(UnImpersonator().Error(), 0u);
    log_.Expect({"Failed to get thread token. Error [5]."});
}

TEST_F(Identity, PrivilegesGoOnAndBack) {
    const auto isOn = [] { return ProcessPrivilege::IsProcessPrivilegeEnabled(SE_BACKUP_NAME); };
    ASSERT_FALSE(isOn());
    {
        const ProcessPrivilege outer(SE_BACKUP_NAME);
        EXPECT_EQ(outer.Error(), 0u);
        EXPECT_TRUE(isOn());
        { const ProcessPrivilege inner(SE_BACKUP_NAME); }  // found on, so left on
        EXPECT_TRUE(isOn());
        {
            const ProcessPrivilege off(SE_BACKUP_NAME, false);
            EXPECT_FALSE(isOn());
        }
        EXPECT_TRUE(isOn());
    }
    EXPECT_FALSE(isOn());
    EXPECT_EQ(ProcessPrivilege(SE_CREATE_TOKEN_NAME).Error(), DWORD{ERROR_NOT_ALL_ASSIGNED});
    EXPECT_EQ(ProcessPrivilege(L"SeNoSuchPrivilege").Error(), DWORD{ERROR_NO_SUCH_PRIVILEGE});
    int seen = 0;
    EXPECT_EQ(ProcessPrivilege::GetProcessPrivileges([&](const auto&) { return ++seen < 3; }), 0u);
    EXPECT_EQ(seen, 3);
}

// Two threads inside at once: the privilege is still there for the one that stays longer.
TEST_F(Identity, HivePrivilegesStayOnUntilTheLastThreadIsDone) {
    ThreadsMayMeetAt(4);
    const auto isOn = [] { return ProcessPrivilege::IsProcessPrivilegeEnabled(SE_RESTORE_NAME); };
    for (int round = 0; round < 8; ++round) {
        std::atomic<bool> inside{false}, ended{false};
        std::thread other([&] {
            RunWithHivePrivileges([&] {
                inside = true;
                support::Eventually([&] { return ended.load(); });
                EXPECT_TRUE(isOn());
                return FSSTATUS_SUCCESS;
            });
        });
        RunWithHivePrivileges([&] {
            support::Eventually([&] { return inside.load(); });
            return FSSTATUS_SUCCESS;
        });
        ended = true;
        other.join();
        EXPECT_FALSE(isOn());
    }
}

TEST_F(Identity, SessionsByProcessAndByToken) {
    const DWORD process = ::GetCurrentProcessId();
    const DWORD session = w32utils::SessionId(process, nullptr);
    const CAccessToken token = ProcessToken(TOKEN_QUERY), blind = ProcessToken(TOKEN_DUPLICATE);
    EXPECT_NE(session, w32utils::kNoSession);
    // The second way is for a process that may not be asked.
    EXPECT_EQ(w32utils::SessionIdByToken(process, token.Get()), session);
    EXPECT_EQ(w32utils::SessionIdByToken(process, nullptr), session);
    for (const DWORD none :
         {w32utils::SessionId(0xfffffff0, nullptr), w32utils::SessionIdByToken(0xfffffff0, nullptr),
          w32utils::SessionIdFromToken(blind.Get())})
        EXPECT_EQ(none, w32utils::kNoSession);
    log_.Expect({"ProcessIdToSessionId failed [87]", "Error, Unable to OpenProcess(), error=[87]",
                 "Unable to OpenThreadToken(), error=[1008]", "GetTokenInformation() failed [5]"});
}

TEST(Handles, TheCountThatTheFixturesTrustSeesASingleHandle) {
    const size_t before = support::ProcessState::Handles();
    HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(support::ProcessState::Handles(), before + 1);
    ::CloseHandle(event);
}

class RegistryValues : public support::LeavesNothingBehind {
  protected:
    static constexpr const wchar_t* kKey = L"Software\\ZrFsValuesTest";

    void SetUp() override {
        LeavesNothingBehind::SetUp();
        ::RegCreateKeyW(HKEY_LOCAL_MACHINE, kKey, &key_);
    }
    void TearDown() override {
        ::RegCloseKey(key_);
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        LeavesNothingBehind::TearDown();
    }
    HKEY key_ = nullptr;
};

TEST_F(RegistryValues, TextIsReadOfTheTypesThatCanHoldIt) {
    const struct {
        DWORD type;
        std::wstring data;
        DWORD bytes, error;
        std::wstring text;
    } rows[] = {
        {REG_SZ, std::wstring(L"text\0\0", 6), 12, 0, L"text"},
        {REG_EXPAND_SZ, L"%x%", 6, 0, L"%x%"},
        {REG_BINARY, L"b", 2, 0, L"b"},
        {REG_MULTI_SZ, std::wstring(L"a\0b\0\0", 5), 10, 0, std::wstring(L"a\0b", 3)},
        {REG_NONE, L"n", 2, 0, L"n"},
        {REG_SZ, L"", 0, 0, L""},
        {REG_DWORD, L"ab", 4, ERROR_BAD_FORMAT, L""},
        {REG_BINARY, L"ab", 3, ERROR_MORE_DATA, L""},
    };
    DWORD error = 12345;
    for (const auto& row : rows) {
        ASSERT_EQ(::RegSetValueExW(key_, L"v", 0, row.type,
                                   reinterpret_cast<const BYTE*>(row.data.c_str()), row.bytes),
                  0);
        EXPECT_EQ(registry_util::read_wstring(kKey, L"v", &error), row.text);
        EXPECT_EQ(error, row.error);
    }
    EXPECT_EQ(registry_util::read_wstring(kKey, L"missing", &error), L"");
    EXPECT_EQ(error, DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(registry_util::read_wstring(L"Software\\ZrNoSuchKey", L"x", nullptr), L"");
}

TEST_F(RegistryValues, ADwordIsWrittenAlsoWhereThePathIsTooLongForOneCall) {
    struct ShortPaths : RegistryInterface {
        LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR kind,
                                DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES security,
                                PHKEY result, LPDWORD disposition) override {
            if (::wcschr(subkey, L'\\') != nullptr) return ERROR_FILENAME_EXCED_RANGE;
            return RegistryInterface::RegCreateKeyExW(key, subkey, reserved, kind, options, access,
                                                      security, result, disposition);
        }
    };
    const std::wstring path = std::wstring(kKey) + L"\\deep\\deeper";
    {
        const support::ReplacedInterface<RegistryInterface> registry(
            std::make_shared<ShortPaths>());
        EXPECT_EQ(registry_util::write_dword(HKEY_LOCAL_MACHINE, path, L"v", 2), 0u);
    }
    EXPECT_EQ(registry_util::write_dword(HKEY_LOCAL_MACHINE, path + L"\\x", L"v", 3), 0u);
    DWORD value = 0;
    DWORD bytes = sizeof value;
    EXPECT_EQ(::RegGetValueW(HKEY_LOCAL_MACHINE, path.c_str(), L"v", RRF_RT_REG_DWORD, nullptr,
                             &value, &bytes),
              0);
    EXPECT_EQ(value, 2u);
}

}  // namespace
