// What only Windows has: the security of the user's own hive, tokens, and handles to lose.
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "FS_Library_DLL/FsOfflineRegistryImpl.h"
#include "Shared/UserIdentity.h"
#include "offreg/Names.h"
#include "tests/support/TempDir.h"

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

DWORD HandleCount() {
    DWORD count = 0;
    EXPECT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &count));
    return count;
}

bool IsImpersonating() {
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return false;
    CloseHandle(token);
    return true;
}

TEST(OfflineStoreOnWindows, ANewHiveHasTheSecurityOfTheUsersOwn) {
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

TEST(OfflineStoreOnWindows, LeavesNoHandleAndKeepsTheImpersonation) {
    TempDir dir;
    const auto use = [&dir] {
        FsOfflineRegistryImpl store;
        EXPECT_EQ(store.FBR_InitialiseEx(dir.File("user.dat").c_str()), FSSTATUS_SUCCESS);
        int64_t key = 0;
        EXPECT_EQ(store.FBR_CreateDirEx(0, L"a", FSCREATEOPTIONS_NONE, &key), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.FBR_CloseDirEx(key), FSSTATUS_SUCCESS);
        EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
        std::filesystem::remove(dir / "user.dat");
    };
    use();
    const DWORD before = HandleCount();
    for (int i = 0; i < 5; ++i) use();
    EXPECT_EQ(HandleCount(), before);
    EXPECT_FALSE(IsImpersonating());
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    use();
    EXPECT_TRUE(IsImpersonating());
    RevertToSelf();
}

TEST(OfflineNames, UpperCaseIsTheSystems) {
    using Function = WCHAR(NTAPI*)(WCHAR);
    const auto upcase = reinterpret_cast<Function>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlUpcaseUnicodeChar"));
    ASSERT_NE(upcase, nullptr);
    for (uint32_t unit = 0; unit < 0x10000; ++unit) {
        const auto wide = static_cast<wchar_t>(unit);
        ASSERT_EQ(offreg::Upcase(wide), upcase(wide)) << std::hex << unit;
    }
}

}  // namespace
