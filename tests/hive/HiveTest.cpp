// SPDX-License-Identifier: MIT
// A hive store from its making to its end, and every way in which that fails.
#include <filesystem>

#include "Shared/Impersonator.h"
#include "Shared/security/AccessToken.h"
#include "tests/hive/HiveFixture.h"
#include "tests/support/ChildProcess.h"

namespace hive {
namespace {

namespace fs = std::filesystem;

using Hive = HiveStore;

// That its keys and values are there again is in tests/contract/.
TEST_F(Hive, IsMadeWithItsFolderMountedAndUnloaded) {
    file_ = (folder_->Path() / "new" / "deeper" / "user.dat").wstring();
    OpenListed();
    EXPECT_TRUE(fs::exists(file_));
    EXPECT_TRUE(IsMounted(kMount));
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_SUCCESS) << log_->All();
    EXPECT_FALSE(IsMounted(kMount));
    log_->Expect({"has been mounted tp [ZrFsHiveTest]"});
}

TEST_F(Hive, WhatCannotBeRemovedIsLoggedAndDoesNotStopTheRest) {
    for (const char* name : {"user.dat", "user.dat1", "user.dat2", "user.dat3"}) {
        Touch(*folder_ / name);
    }
    ::SetFileAttributesW((file_ + L"1").c_str(), FILE_ATTRIBUTE_READONLY);
    HANDLE held = ::CreateFileW((file_ + L"2").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles(L"\\??\\" + file_);
    ::CloseHandle(held);
    ::SetFileAttributesW((file_ + L"1").c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(fs::exists(file_ + L"1"));
    EXPECT_TRUE(fs::exists(file_ + L"2"));
    EXPECT_FALSE(fs::exists(file_ + L"3"));
    log_->Expect({"Attemping clean up of [\\??\\", "Deleting file [user.dat3]",
                  "Delete failed [C0000121]", "Failed to open file for deleteing [C0000043]"});

    // A path that names a folder only must not empty it; a missing folder is no matter.
    FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles(L"\\??\\" + folder_->Path().wstring() +
                                                    L"\\\\");
    FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles(L"\\??\\C:\\no such folder\\user.dat");
    FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles(L"");
    EXPECT_TRUE(fs::exists(file_));
    EXPECT_TRUE(fs::exists(file_ + L"1"));
}

TEST_F(Hive, AMountThatIsThereIsUsedWhateverFileIsNamed) {
    OpenListed();
    FsHiveRegistryImpl second(kMount);
    const std::wstring other = (*folder_ / "other.dat").wstring();
    EXPECT_EQ(second.FBR_InitialiseEx(other.c_str()), FSSTATUS_SUCCESS);
    EXPECT_FALSE(fs::exists(other));
    log_->Expect(
        {"2 FS_Library_DLL/FsHiveRegistryImpl FsHiveRegistryImpl::"
         "FBR_InitialiseEx: Assuming that ["});
    int64_t root = 0;
    EXPECT_EQ(second.FBR_OpenDirEx(0, L"", &root), FSSTATUS_SUCCESS);
    EXPECT_EQ(second.FBR_CloseDirEx(root), FSSTATUS_SUCCESS);
    // Whoever closes first unloads for both; nobody owns the mount. The root that the second still
    // holds would keep it loaded.
    EXPECT_EQ(second.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    EXPECT_FALSE(IsMounted(kMount));
}

TEST_F(Hive, APlainKeyOfTheMountsNameIsRefused) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyW(HKEY_USERS, kMount, &key), 0);
    ::RegCloseKey(key);
    EXPECT_EQ(Initialise(file_), FSSTATUS_ALREADY_EXISTS);
    EXPECT_FALSE(fs::exists(file_));
    FsHiveRegistryImpl nameless(L"");
    EXPECT_EQ(nameless.FBR_InitialiseEx(file_.c_str()), FSSTATUS_ALREADY_EXISTS);
}

// Every way in which an opening ends without a mount: the answer, and what the log says of it.
TEST_F(Hive, AnOpeningThatFailsTellsWhy) {
    struct Blind : FileSystemInterface {
        DWORD GetFileAttributesW(LPCWSTR) override { return INVALID_FILE_ATTRIBUTES; }
    };
    struct NoSizes : FileSystemInterface {
        BOOL GetFileSizeEx(HANDLE, PLARGE_INTEGER) override {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
    };
    struct NoNewKeys : RegistryInterface {
        LSTATUS RegCreateKeyExW(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES,
                                PHKEY, LPDWORD) override {
            return ERROR_ACCESS_DENIED;
        }
    };
    const auto files = std::make_shared<FileSystemInterface>();
    const auto registry = std::make_shared<RegistryInterface>();
    const std::wstring folder = folder_->Path().wstring();
    Touch(*folder_ / "file");
    Touch(*folder_ / "held");
    support::WriteBytes(*folder_ / "junk", support::Bytes(5000, 'j'));
    HANDLE held = ::CreateFileW((*folder_ / "held").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    const struct {
        std::wstring path;
        FBR_STATUS answer;
        const char* logged;
        std::shared_ptr<FileSystemInterface> files;
        std::shared_ptr<RegistryInterface> registry;
    } cases[] = {
        {folder, FSSTATUS_INVALID_NAME, "] is a directory", files, registry},
        {folder + L"\\file\\x\\user.dat", FSSTATUS_PATH_NOT_FOUND,
         "1 FS_Library_DLL/FsHiveRegistryImpl FsHiveRegistryImpl::FBR_InitialiseEx: failed to "
         "create [",
         files, registry},
        {folder + L"\\held", FSSTATUS_SHARING_VIOLATION, "Exception [32]", files, registry},
        {folder + L"\\file", FSSTATUS_ACCESS_DENIED, "Exception [5]", std::make_shared<NoSizes>(),
         registry},
        {folder + L"\\junk", FSSTATUS_FAILED, "Load hive failure [1]", files, registry},
        // The folder itself, seen as missing: saving over it is refused.
        {folder, FSSTATUS_ALREADY_EXISTS, "Create hive failure [8]", std::make_shared<Blind>(),
         registry},
        {file_, FSSTATUS_ACCESS_DENIED, "Temp hive failure [5]", files,
         std::make_shared<NoNewKeys>()},
    };
    for (const auto& row : cases) {
        const support::ReplacedInterface<FileSystemInterface> f(row.files);
        const support::ReplacedInterface<RegistryInterface> r(row.registry);
        log_->lines.clear();
        EXPECT_EQ(Initialise(row.path), row.answer) << row.logged;
        log_->Expect({row.logged});
        // A file that is no hive leaves an empty key behind under Wine.
        Unmount(kMount);
    }
    ::CloseHandle(held);
    EXPECT_FALSE(fs::exists(file_));
    EXPECT_EQ(store_->FBR_InitialiseEx(nullptr), FSSTATUS_INVALID_PARAMETER);
    log_->Expect({"No hive file path given"});
}

TEST_F(Hive, AMountThatIsNotListedIsLeftAlone) {
    ASSERT_EQ(Initialise(file_), FSSTATUS_SUCCESS);
    Touch(*folder_ / "user.dat.LOG1");
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(IsMounted(kMount));
    EXPECT_TRUE(fs::exists(*folder_ / "user.dat.LOG1"));
    log_->Expect(
        {"Failed to obtain hive file name for [\\registry\\user\\ZrFsHiveTest] "
         "[2]"});
}

TEST_F(Hive, AnImpersonatingThreadIsOneAgainAfterEveryCall) {
    w32utils::CAccessToken process;
    ASSERT_TRUE(process.OpenProcessToken(TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE));
    const Impersonator asUser(process.Get());
    const auto impersonates = [] { return support::ProcessState::Now().threadHasToken; };
    ASSERT_TRUE(impersonates());
    OpenListed();
    EXPECT_TRUE(impersonates());
    EXPECT_EQ(store_->FBR_DeInitialiseEx(), FSSTATUS_SUCCESS) << log_->All();
    EXPECT_TRUE(impersonates());
    EXPECT_EQ(Initialise(folder_->Path().wstring()), FSSTATUS_INVALID_NAME);
    EXPECT_TRUE(impersonates());
}

// Takes a privilege from this process for good.
void GiveUp(const wchar_t* name) {
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES, &token);
    TOKEN_PRIVILEGES change{};
    change.PrivilegeCount = 1;
    change.Privileges[0].Attributes = SE_PRIVILEGE_REMOVED;
    ::LookupPrivilegeValueW(nullptr, name, &change.Privileges[0].Luid);
    ::AdjustTokenPrivileges(token, FALSE, &change, 0, nullptr, nullptr);
    ::CloseHandle(token);
}

// PRIVILEGE FILE: opens and closes a store without the privilege, which cannot be had back. The
// status of both, if they are the same and nothing else was changed.
const support::ChildRole kOpenWithout("open-without", [](const std::vector<std::string>& words) {
    GiveUp(platform::FromUtf8(words[0]).c_str());
    const std::string before = support::ProcessState::Privileges();
    FsHiveRegistryImpl store(kMount);
    const FBR_STATUS opened = store.FBR_InitialiseEx(platform::FromUtf8(words[1]).c_str());
    const FBR_STATUS closed = store.FBR_DeInitialiseEx();
    const bool clean = support::ProcessState::Privileges() == before;
    return opened == closed && clean ? static_cast<int>(opened) : 99;
});

TEST_F(Hive, WithoutEitherPrivilegeEveryStepIsDenied) {
    for (const char* privilege : {"SeBackupPrivilege", "SeRestorePrivilege"}) {
        support::ChildProcess child("open-without", {privilege, platform::ToUtf8(file_)});
        EXPECT_EQ(child.Wait(), FSSTATUS_ACCESS_DENIED) << privilege;
    }
    EXPECT_FALSE(IsMounted(kMount));
}

}  // namespace
}  // namespace hive
