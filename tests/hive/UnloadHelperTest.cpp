// SPDX-License-Identifier: MIT
// The road from a refused unload to the helper process and its exit code.
#include <filesystem>
#include <thread>

#include "FS_Library_DLL/hive/CommandLineBuilder.h"
#include "FS_Library_DLL/hive/LoggedOnUserClient.h"
#include "tests/hive/HiveFixture.h"
#include "tests/support/RunProcess.h"

namespace hive {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kClientKey[] = L"Software\\Varnhold\\Ombrelle";

void SetClientPath(const std::wstring& path, const wchar_t* name = L"ClientPath") {
    ASSERT_EQ(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kClientKey, name, REG_SZ, path.c_str(),
                                static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t))),
              0);
}
void RemoveClientPath() {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Varnhold");
}

// The folder of a helper program: "helper" has the real one, "stand-in" one that does as the mount
// name says.
std::wstring HelperFolder(const std::wstring& name) {
    return (support::ThisProgram().parent_path() / name).wstring();
}

class UnloadHelper : public HiveStore {
  protected:
    void SetUp() override {
        RemoveClientPath();
        HiveStore::SetUp();
    }
    void TearDown() override {
        HiveStore::TearDown();
        RemoveClientPath();
    }
    // Opens the store with a key that stays open: its root, for Wine unloads a hive in which only
    // other keys are open.
    int64_t OpenWithKey() {
        OpenListed();
        Touch(*folder_ / "user.dat.LOG1");
        int64_t key = 0;
        EXPECT_EQ(store_->FBR_OpenDirEx(0, L"", &key), FSSTATUS_SUCCESS);
        return key;
    }
    bool LogFileExists() const { return fs::exists(*folder_ / "user.dat.LOG1"); }
};

TEST(CommandLine, QuotesOnceAndKnowsItsPrefixesAndSeparators) {
    EXPECT_EQ(LoggedOnUserClient::ParseCommandLineHiveUnload(L"c:\\client\\ZrLoggedOnUser", L"abc"),
              L"\"c:\\client\\ZrLoggedOnUser\" -unload \"abc\"");
    EXPECT_EQ(LoggedOnUserClient::ParseCommandLineHiveUnload(L"\"x\"", L"\"a b\""),
              L"\"x\" -unload \"a b\"");
    EXPECT_EQ(CommandLineBuilder::Quoted(L"\""), L"\"\"\"");
    CommandLineBuilder builder(L" \tprogram");
    builder.AddOption(L"a", {L"1", L"2"}, L"--", L"=");
    builder.AddOption(L"b", {L"3"}, L"+", L":");
    builder.AddOption(L"c", {L"  "}, L"/", L" ");
    EXPECT_EQ(builder.Text(), L"program --a=1=2 -b 3 /c");
}

TEST_F(UnloadHelper, TheClientsPathComesLowerCasedWithOneBackslash) {
    std::wstring path = L"kept";
    EXPECT_EQ(GetClientPath(path, false), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(LoggedOnUserClient::GetAgentPath(path), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(path, L"ZrLoggedOnUser");
    log_->Expect({"Failed to read agent directory from Registry!"});
    for (const wchar_t* folder : {L"C:\\Some Client", L"C:\\Some Client\\"}) {
        SetClientPath(folder);
        EXPECT_EQ(LoggedOnUserClient::GetAgentPath(path), 0u);
        EXPECT_EQ(path, L"c:\\some client\\ZrLoggedOnUser");
    }
    SetClientPath(L"D:\\X", L"ClientPath32");
    EXPECT_EQ(GetClientPath(path, true), 0u);
    EXPECT_EQ(path, L"d:\\x");
    SetClientPath(std::wstring(259, L'P'));
    EXPECT_EQ(GetClientPath(path, false), 0u);
    EXPECT_EQ(path, std::wstring(259, L'p'));
    SetClientPath(std::wstring(260, L'P'));
    EXPECT_EQ(GetClientPath(path, false), DWORD{ERROR_MORE_DATA});
}

// A hive in use stays mounted; whether its files are cleaned up all the same, and what is answered,
// is the helper's to say.
TEST_F(UnloadHelper, WhatIsInUseStaysWhateverTheHelperSays) {
    const struct {
        std::wstring client;
        FBR_STATUS answer;
        bool logFile;
        const char* logged;
    } rows[] = {
        {L"", FSSTATUS_NOT_FOUND, true, "cannot launch helper process!"},
        // The stand-in takes this mount's name for a refusal.
        {HelperFolder(L"stand-in"), FSSTATUS_ACCESS_DENIED, true, "Trying unload via"},
        // One that cannot be started counts as success.
        {L"C:\\no such folder", FSSTATUS_SUCCESS, false,
         "CreateProcessAsUser failed - last error ["},
    };
    for (const auto& row : rows) {
        store_ = std::make_unique<FsHiveRegistryImpl>(kMount);
        if (!row.client.empty()) SetClientPath(row.client);
        const int64_t key = OpenWithKey();
        EXPECT_EQ(store_->FBR_DeInitialiseEx(), row.answer) << row.logged << log_->All();
        log_->Expect({row.logged});
        EXPECT_TRUE(IsMounted(kMount));
        EXPECT_EQ(LogFileExists(), row.logFile) << row.logged;
        EXPECT_EQ(store_->FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
        Unmount(kMount);
    }
}

TEST_F(UnloadHelper, TheHelperUnloadsWhatIsFreeAMomentLater) {
    SetClientPath(HelperFolder(L"helper"));
    const int64_t key = OpenWithKey();
    std::thread user([&] {
        ::Sleep(500);
        store_->FBR_CloseDirEx(key);
    });
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_SUCCESS) << log_->All();
    user.join();
    log_->Expect({"Creating process with command line [\""});
    EXPECT_FALSE(IsMounted(kMount));
    EXPECT_FALSE(LogFileExists());
}

TEST_F(UnloadHelper, TheHelpersExitCodeCountsUnlessItTakesTooLong) {
    SetClientPath(HelperFolder(L"stand-in"));
    for (const auto& [does, answer] : {std::pair{L"exit 0", DWORD{0}},
                                       {L"exit 70000", DWORD{70000}},
                                       {L"sleep 11000", DWORD{ERROR_TIMEOUT}}})
        EXPECT_EQ(LoggedOnUserClient::UnloadHive(does), answer);
    log_->Expect({"WaitForSingleObject=[258]"});
}

TEST_F(UnloadHelper, ATokenThatCannotBeDuplicatedIsTheAnswer) {
    struct NoTokens : ProcessInterface {
        BOOL DuplicateTokenEx(HANDLE, DWORD, LPSECURITY_ATTRIBUTES, SECURITY_IMPERSONATION_LEVEL,
                              TOKEN_TYPE, PHANDLE) override {
            ::SetLastError(ERROR_BAD_IMPERSONATION_LEVEL);
            return FALSE;
        }
    };
    SetClientPath(HelperFolder(L"stand-in"));
    const support::ReplacedInterface<ProcessInterface> none(std::make_shared<NoTokens>());
    EXPECT_EQ(LoggedOnUserClient::UnloadHive(L"exit 0"), DWORD{ERROR_BAD_IMPERSONATION_LEVEL});
    log_->Expect({"Failed to get thread token, Windows error code[1346]"});
    // A thread with no token has none to start a process with.
    EXPECT_EQ(LoggedOnUserClient::LaunchProcessAsUser(L"x"), DWORD{ERROR_NO_TOKEN});
}

}  // namespace
}  // namespace hive
