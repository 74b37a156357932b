// SPDX-License-Identifier: MIT
// What the seam promises on Windows alone: objects with names, what else one file can be called,
// and what is called like a file and is none.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <thread>

#include "platform/Clock.h"
#include "platform/PageFile.h"
#include "platform/RealPath.h"
#include "platform/Resources.h"
#include "platform/Text.h"
#include "tests/support/TempDir.h"

namespace {

using namespace platform;

WString UniqueName() {
    return L"zrfs-test-" + std::to_wstring(ProcessId()) + L"-" +
           std::to_wstring(PerformanceCounter());
}

TEST(NamedMutex, IsOneThreadsAndPassesOnFromAThreadThatEnded) {
    const WString name = UniqueName();
    const Handle mutex = CreateNamedMutex(name.c_str(), nullptr),
                 same = CreateNamedMutex(name.c_str(), nullptr);
    EXPECT_FALSE(ReleaseNamedMutex(mutex));
    EXPECT_EQ(LastError(), kErrorNotOwner);
    EXPECT_EQ(WaitForMutex(mutex, 0), WaitResult::Granted);
    std::thread([&] { EXPECT_EQ(WaitForMutex(same, 0), WaitResult::TimedOut); }).join();
    EXPECT_TRUE(ReleaseNamedMutex(same)) << "the thread owns it by either handle";
    std::thread([&] { EXPECT_EQ(WaitForMutex(same, 0), WaitResult::Granted); }).join();
    EXPECT_EQ(WaitForMutex(mutex, 20000), WaitResult::Abandoned);
    EXPECT_TRUE(ReleaseNamedMutex(mutex));
    EXPECT_EQ(WaitForMutex(nullptr, 0), WaitResult::Failed);
    for (const Handle handle : {mutex, same, Handle{}}) CloseNamedMutex(handle);
}

TEST(SharedWord, IsMadeZeroAndSharedUntilItsLastUserGoes) {
    const WString name = UniqueName();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(OpenSharedWord(name.c_str()), nullptr);
        EXPECT_EQ(LastError(), kErrorFileNotFound);
        const Handle handles[] = {CreateSharedWord(name.c_str(), nullptr),
                                  OpenSharedWord(name.c_str()),
                                  CreateSharedWord(name.c_str(), nullptr)};
        for (uint32_t user = 0; user < 3; ++user) {
            uint32_t* word = MapSharedWord(handles[user]);
            ASSERT_NE(word, nullptr);
            EXPECT_EQ((*word)++, user);
            UnmapSharedWord(word);
        }
        for (const Handle handle : handles) CloseSharedWord(handle);
    }
    EXPECT_EQ(MapSharedWord(nullptr), nullptr);
    UnmapSharedWord(nullptr);
    CloseSharedWord(nullptr);
}

TEST(Printable, EqualsTheUniversalRunTimeForEveryUnit) {
    HMODULE runTime = LoadLibraryW(L"ucrtbase.dll");
    ASSERT_NE(runTime, nullptr);
    using IsPrint = int(__cdecl*)(wint_t);
    const auto isPrint =
        reinterpret_cast<IsPrint>(reinterpret_cast<void*>(GetProcAddress(runTime, "iswprint")));
    ASSERT_NE(isPrint, nullptr);
    for (uint32_t unit = 0; unit < 0x10000; ++unit)
        EXPECT_EQ(IsPrintable(static_cast<wchar_t>(unit)), isPrint(static_cast<wint_t>(unit)) != 0)
            << std::hex << unit;
    FreeLibrary(runTime);
}

WString RealPathOf(const WString& path) {
    WString real;
    const Error error = platform::RealPath(path, &real);
    return error == 0 ? real : L"error " + std::to_wstring(error);
}

// The same path by way of the drive that Wine has for the whole machine; else the path itself.
WString ByAnotherDrive(const WString& path) {
    using Convert = char*(CDECL*)(const wchar_t*);
    const auto convert = reinterpret_cast<Convert>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    char* unixName = convert != nullptr ? convert(path.c_str()) : nullptr;
    if (unixName == nullptr) return path;
    WString whole = L"Z:" + FromUtf8(unixName);
    ::HeapFree(::GetProcessHeap(), 0, unixName);
    constexpr WStringView kDrive = L"dosdevices/c:";
    const size_t drive = whole.find(kDrive);
    if (drive != WString::npos) whole.replace(drive, kDrive.size(), L"drive_c");
    std::replace(whole.begin(), whole.end(), L'/', L'\\');
    return whole;
}

TEST(RealPathOnWindows, KnowsNoCaseSignDriveOrTailOfAName) {
    const support::TempDir folder;
    const WString real = RealPathOf(folder.File("x"));
    const WString base = real.substr(0, real.size() - 1);
    const WString file = base + L"Gr\u00D6\u0448e.fbr", other = base + L"gr\u00F6\u0428E.FBR";
    support::WriteBytes(std::filesystem::path(file), {});
    WString slashes = file;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    for (const WString& spelling :
         {file, other, slashes, file + L".", file + L" ", file + L" . .", L"\\\\?\\" + file,
          L"\\\\?\\" + other, ByAnotherDrive(file), L"\\\\?\\" + ByAnotherDrive(other)})
        EXPECT_EQ(RealPathOf(spelling), file) << ToUtf8(spelling);
    for (const WString& spelling :
         {base + L"new.fbr", L"\\\\?\\" + base + L"new.fbr", base + L"new.fbr. ",
          ByAnotherDrive(base.substr(0, base.size() - 1)) + L"\\new.fbr"}) {
        EXPECT_EQ(RealPathOf(spelling), base + L"new.fbr") << ToUtf8(spelling);
    }
}

TEST(RealPathOnWindows, ADeviceOrAStreamIsNoFileAndNoneIsMade) {
    const support::TempDir folder;
    const WString file = folder.File("x.fbr");
    support::WriteBytes(folder / "x.fbr", {'x'});
    for (const WString& name :
         {WString(L"NUL"), WString(L"\\\\.\\NUL"), WString(L"\\\\?\\NUL"), folder.File("nul.fbr"),
          WString(L"CON"), WString(L"CONIN$"), WString(L"COM1"), WString(L"\\\\.\\pipe\\x"),
          WString(L"\\\\?\\pipe\\x"), file + L":stream", file + L"::$DATA",
          L"\\\\?\\" + file + L":s", WString(L"\\\\?\\"), WString(L"\\\\")}) {
        EXPECT_EQ(RealPathOf(name), L"error 123") << ToUtf8(name);
    }
    // Nor does opening one as a file of pages get a handle.
    for (const WString& name : {WString(L"\\\\.\\NUL"), WString(L"NUL"), WString(L"CON"),
                                folder.File("nul.fbr"), folder.File("COM1")}) {
        for (const auto how :
             {Disposition::OpenExisting, Disposition::CreateNew, Disposition::CreateAlways}) {
            EXPECT_FALSE(
                IsValid(OpenFileHandle(name.c_str(), false, static_cast<uint32_t>(how), nullptr)))
                << ToUtf8(name);
        }
    }
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        files += !entry.path().empty();
    EXPECT_EQ(files, 1u);
}

}  // namespace
