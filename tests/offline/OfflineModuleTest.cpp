// SPDX-License-Identifier: MIT
// The offline registry library that is not there, or is not whole. The program lies in a folder
// without it.
#include <windows.h>

#include "FS_Library_DLL/offline/FsOfflineRegistryImpl.h"
#include "W32Utils/W32Exceptions.h"
#include "platform/Text.h"
#include "tests/support/RunProcess.h"
#include "tests/support/TempDir.h"

namespace {

struct Failure {
    uint32_t code = 0;
    std::string text;
};

Failure LoadLibraryOfStore() {
    try {
        const OfflineRegistryDll dll;
    } catch (const w32utils::exception_t& thrown) {
        return {thrown.Code(), thrown.what()};
    }
    return {};
}

const std::filesystem::path kFolder = support::ThisProgram().parent_path();

TEST(OfflineModule, AMissingLibraryIsToldApart) {
    const Failure failure = LoadLibraryOfStore();
    EXPECT_EQ(failure.code, static_cast<uint32_t>(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(failure.text,
              "OfflineRegistryDll::OfflineRegistryDll(),ln=39 : Can't find offline registry "
              "library");
    support::TempDir dir;
    FsOfflineRegistryImpl store;
    EXPECT_EQ(store.FBR_InitialiseEx(dir.File("x").c_str()), FSSTATUS_MODULE_NOT_FOUND);
    EXPECT_EQ(store.FBR_DeInitialiseEx(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

TEST(OfflineModule, AMissingEntryPointIsNamedAndTheLibraryFreed) {
    const auto beside = kFolder / L"offreg.dll";
    std::filesystem::copy_file(kFolder / L"partial" / L"offreg.dll", beside);
    const Failure failure = LoadLibraryOfStore();
    EXPECT_EQ(failure.code, static_cast<uint32_t>(ERROR_PROC_NOT_FOUND));
    EXPECT_EQ(failure.text,
              "DynamicFunction<unsigned long __cdecl(void *,const wchar_t *,void **)>"
              "::DoLoadDynamicFunc(),ln=45 : Failed to obtain address of 'OROpenKey'. Error 127");
    EXPECT_EQ(GetModuleHandleW(L"offreg.dll"), nullptr);
    std::filesystem::remove(beside);
}

// Where others may lay a library of that name, none is taken, not even one that is loaded.
TEST(OfflineModule, ALibraryInTheCurrentFolderOrOnThePathIsNotTaken) {
    const auto partial = kFolder / L"partial";
    ASSERT_TRUE(SetDllDirectoryW(partial.c_str()));
    ASSERT_TRUE(SetEnvironmentVariableW(L"PATH", partial.c_str()));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(partial);
    EXPECT_EQ(LoadLibraryOfStore().code, static_cast<uint32_t>(ERROR_MOD_NOT_FOUND));
    const HMODULE loaded = LoadLibraryW(L"offreg.dll");
    EXPECT_NE(loaded, nullptr);
    EXPECT_EQ(LoadLibraryOfStore().code, static_cast<uint32_t>(ERROR_MOD_NOT_FOUND));
    FreeLibrary(loaded);
    std::filesystem::current_path(before);
    SetDllDirectoryW(nullptr);
}

}  // namespace
