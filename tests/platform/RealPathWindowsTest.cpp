// What else one file can be called on Windows, and what is called like a file and is none.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>

#include "platform/PageFile.h"
#include "platform/RealPath.h"
#include "platform/Resources.h"
#include "tests/support/TempDir.h"

namespace {

using platform::Error;
using platform::WString;

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
    WString whole = L"Z:" + platform::FromUtf8(unixName);
    ::HeapFree(::GetProcessHeap(), 0, unixName);
    constexpr platform::WStringView kDrive = L"dosdevices/c:";
    const size_t drive = whole.find(kDrive);
    if (drive != WString::npos) whole.replace(drive, kDrive.size(), L"drive_c");
    std::replace(whole.begin(), whole.end(), L'/', L'\\');
    return whole;
}

TEST(RealPath, KnowsNoCaseSignDriveOrTailOfAName) {
    const support::TempDir folder;
    const WString real = RealPathOf(folder.File("x"));
    const WString base = real.substr(0, real.size() - 1);
    const WString file = base + L"Gr\u00D6\u0448e.fbr", other = base + L"gr\u00F6\u0428E.FBR";
    support::WriteBytes(std::filesystem::path(file), {});
    WString slashes = file;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    for (const WString& spelling :
         {file, other, slashes, file + L".", file + L" ", file + L" . .", L"\\\\?\\" + file,
          L"\\\\?\\" + other, ByAnotherDrive(file), L"\\\\?\\" + ByAnotherDrive(other)}) {
        EXPECT_EQ(RealPathOf(spelling), file) << platform::ToUtf8(spelling);
    }
    for (const WString& spelling :
         {base + L"new.fbr", L"\\\\?\\" + base + L"new.fbr", base + L"new.fbr. ",
          ByAnotherDrive(base.substr(0, base.size() - 1)) + L"\\new.fbr"}) {
        EXPECT_EQ(RealPathOf(spelling), base + L"new.fbr") << platform::ToUtf8(spelling);
    }
}

TEST(RealPath, ADeviceOrAStreamIsNoFileAndNoneIsMade) {
    const support::TempDir folder;
    const WString file = folder.File("x.fbr");
    support::WriteBytes(folder / "x.fbr", {'x'});
    for (const WString& name :
         {WString(L"NUL"), WString(L"\\\\.\\NUL"), WString(L"\\\\?\\NUL"), folder.File("nul.fbr"),
          WString(L"CON"), WString(L"CONIN$"), WString(L"COM1"), WString(L"\\\\.\\pipe\\x"),
          WString(L"\\\\?\\pipe\\x"), file + L":stream", file + L"::$DATA",
          L"\\\\?\\" + file + L":s", WString(L"\\\\?\\"), WString(L"\\\\")}) {
        EXPECT_EQ(RealPathOf(name), L"error 123") << platform::ToUtf8(name);
    }
    // Nor does opening one as a file of pages get a handle.
    for (const WString& name : {WString(L"\\\\.\\NUL"), WString(L"NUL"), WString(L"CON"),
                                folder.File("nul.fbr"), folder.File("COM1")}) {
        for (const auto how :
             {platform::Disposition::OpenExisting, platform::Disposition::CreateNew,
              platform::Disposition::CreateAlways}) {
            EXPECT_FALSE(platform::IsValid(
                platform::OpenFileHandle(name.c_str(), false, static_cast<uint32_t>(how), nullptr)))
                << platform::ToUtf8(name);
        }
    }
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        files += !entry.path().empty();
    EXPECT_EQ(files, 1u);
}

}  // namespace
