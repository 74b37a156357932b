// SPDX-License-Identifier: MIT
// What only Windows has: the security of the user's own hive, tokens, and handles to lose.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "Shared/UserIdentity.h"
#include "offreg/Names.h"
#include "tests/support/TempDir.h"
#include "tests/support/windows/ProcessState.h"

namespace {

using support::TempDir;

std::wstring CurrentSid() {
    return CUserIdentity(static_cast<DWORD>(-1), nullptr).GetUserSid();
}

// The descriptor of a hive's root as the registry tells it.
std::wstring SecurityOfUserHive() {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_USERS, CurrentSid().c_str(), 0, KEY_READ, &key), ERROR_SUCCESS);
    DWORD size = 0;
    RegGetKeySecurity(key, 7, nullptr, &size);
    std::vector<BYTE> descriptor(size);
    EXPECT_EQ(RegGetKeySecurity(key, 7, descriptor.data(), &size), ERROR_SUCCESS);
    RegCloseKey(key);
    wchar_t* text = nullptr;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), 1, 7, &text,
                                                                     nullptr));
    const std::wstring copy = text != nullptr ? text : L"";
    LocalFree(text);
    return copy;
}

// Handles, privileges and the thread's token are counted.
class OfflineStoreOnWindows : public support::LeavesNothingBehind {
  protected:
    // What the system opens once for good, a store opens before the count.
    void SetUp() override {
        const TempDir dir;
        FsOfflineRegistryImpl store;
        EXPECT_EQ(store.FBR_InitialiseEx(dir.File("x").c_str()), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
        LeavesNothingBehind::SetUp();
    }
};

TEST_F(OfflineStoreOnWindows, ANewHiveHasTheSecurityOfTheUsersOwn) {
    TempDir dir;
    FsOfflineRegistryImpl store;
    ASSERT_EQ(store.FBR_InitialiseEx(dir.File("user.dat").c_str()), FSSTATUS_SUCCESS);
    int64_t root = 0;
    ASSERT_EQ(store.FBR_OpenDirEx(0, L"", &root), FSSTATUS_SUCCESS);
    wchar_t text[1024];
    uint32_t units = 1024;
    EXPECT_EQ(store.FBR_GetKeySecurityString(root, text, &units), FSSTATUS_SUCCESS);
    EXPECT_STREQ(text, SecurityOfUserHive().c_str());
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
}

TEST_F(OfflineStoreOnWindows, KeepsTheImpersonationOnEveryPath) {
    TempDir dir;
    std::filesystem::create_directories(dir / "folder");
    support::WriteBytes(dir / "junk", support::Bytes(5000, 'x'));
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    for (const auto& [file, opened] : {std::pair{"new.dat", FSSTATUS_SUCCESS},
                                       {"new.dat", FSSTATUS_SUCCESS},
                                       {"junk", FSSTATUS_FAILED},
                                       {"no\\folder", FSSTATUS_PATH_NOT_FOUND}}) {
        FsOfflineRegistryImpl store;
        EXPECT_EQ(store.FBR_InitialiseEx(dir.File(file).c_str()), opened) << file;
        EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
        EXPECT_TRUE(support::ProcessState::Now().threadHasToken) << file;
    }
    RevertToSelf();
}

TEST(OfflineNames, UpperCaseIsTheSystems) {
    using Function = WCHAR(NTAPI*)(WCHAR);
    const auto upcase = reinterpret_cast<Function>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlUpcaseUnicodeChar")));
    ASSERT_NE(upcase, nullptr);
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        const auto wide = static_cast<wchar_t>(unit);
        ASSERT_EQ(offreg::Upcase(wide), upcase(wide)) << std::hex << unit;
    }
}

}  // namespace
