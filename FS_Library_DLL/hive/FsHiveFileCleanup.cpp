// SPDX-License-Identifier: MIT
// Removing what the system keeps beside a mounted hive: transaction logs and the like, whose names
// all begin with the hive's.
#include <locale.h>
#include <wchar.h>

#include <functional>

#include "FS_Library_DLL/hive/FsHiveRegistryImpl.h"
#include "FS_Library_DLL/native/NativeBuffer.h"
#include "FS_Library_DLL/native/NtStatus.h"
#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsHiveRegistryImpl"

using namespace Varnhold::Hob::Detail;

namespace {

constexpr const char* kCleanup = "FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles";

// The case rule of file names: that of the user's own locale.
const _locale_t g_userLocale = _create_locale(LC_ALL, "");

constexpr ULONG kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ULONG kFileDispositionInformation = 13;
constexpr ULONG kFileNamesInformation = 12;

// A file or folder opened by its kernel path, closed with the object.
class NativeFile {
  public:
    NativeFile(const NtDllFunctions& ntDll, const WString& path, ACCESS_MASK access,
               ULONG attributes, ULONG options)
        : ntDll_(ntDll) {
        nt::ObjectName name(ntDll, path.c_str(), nullptr);
        IO_STATUS_BLOCK outcome{};
        status_ = nt::Call(ntDll.ZwCreateFile, &handle_, access, name.Get(), &outcome,
                           static_cast<PLARGE_INTEGER>(nullptr), attributes, kShareAll,
                           ULONG{FILE_OPEN}, options, static_cast<PVOID>(nullptr), ULONG{0});
    }
    ~NativeFile() {
        if (NT_SUCCESS(status_) && ntDll_.ZwClose != nullptr) ntDll_.ZwClose(handle_);
    }
    NativeFile(const NativeFile&) = delete;
    NativeFile& operator=(const NativeFile&) = delete;
    NTSTATUS Status() const { return status_; }
    HANDLE Get() const { return handle_; }

  private:
    const NtDllFunctions& ntDll_;
    HANDLE handle_ = nullptr;
    NTSTATUS status_;
};

// Hands each name in a folder that fits `mask` to `rule`, until that asks to stop. 0 at the end
// of the folder, else the status that ended the walk.
NTSTATUS EnumerateDirectory(const NtDllFunctions& ntDll, HANDLE folder, const WString& mask,
                            const std::function<bool(const WString&)>& rule) {
    constexpr uint32_t kStepBytes = 1024, kMostBytes = 1024 * 1024;
    constexpr uint32_t kLengthAt = 8, kNameAt = 12;
    nt::Name maskName(ntDll, mask.c_str());
    nt::Buffer buffer;
    if (!buffer.Reset(kStepBytes)) return nt::kNoMemory;
    for (;;) {
        IO_STATUS_BLOCK outcome{};
        const NTSTATUS status =
            nt::Call(ntDll.ZwQueryDirectoryFile, folder, static_cast<HANDLE>(nullptr),
                     static_cast<PIO_APC_ROUTINE>(nullptr), static_cast<PVOID>(nullptr), &outcome,
                     buffer.Data(), ULONG{buffer.Size()}, kFileNamesInformation, BOOLEAN{TRUE},
                     mask.empty() ? nullptr : maskName.Get(), BOOLEAN{FALSE});
        if (status == nt::kNoMoreFiles) return nt::kSuccess;
        if (status == nt::kBufferOverflow || (NT_SUCCESS(status) && outcome.Information == 0)) {
            if (buffer.Size() >= kMostBytes) return nt::kUnsuccessful;
            if (!buffer.Reset(buffer.Size() + kStepBytes)) return nt::kNoMemory;
            continue;
        }
        if (!NT_SUCCESS(status)) return status;
        const uint32_t bytes = buffer.Number<uint32_t>(kLengthAt);
        const uint8_t* text = buffer.At(kNameAt, bytes);
        if (text == nullptr) return nt::kUnsuccessful;
        if (!rule({reinterpret_cast<const WChar*>(text), bytes / sizeof(WChar)})) {
            return nt::kSuccess;
        }
    }
}

void DeleteNativeFile(const NtDllFunctions& ntDll, const WString& path) {
    const NativeFile file(ntDll, path, GENERIC_READ | DELETE | SYNCHRONIZE, FILE_ATTRIBUTE_NORMAL,
                          FILE_SYNCHRONOUS_IO_NONALERT);
    if (!NT_SUCCESS(file.Status())) {
        ZRFS_LOG(kError, kCleanup, "Failed to open file for deleteing [{:X}]",
                 static_cast<ULONG>(file.Status()));
        return;
    }
    IO_STATUS_BLOCK outcome{};
    BOOLEAN gone = TRUE;
    const NTSTATUS status =
        nt::Call(ntDll.ZwSetInformationFile, file.Get(), &outcome, static_cast<PVOID>(&gone),
                 ULONG{sizeof gone}, kFileDispositionInformation);
    if (!NT_SUCCESS(status)) {
        ZRFS_LOG(kError, kCleanup, "Delete failed [{:X}]", static_cast<ULONG>(status));
    }
}

bool IsBesideHive(const WString& name, const WString& hive) {
    return name.size() > hive.size() &&
           _wcsnicmp_l(name.c_str(), hive.c_str(), hive.size(), g_userLocale) == 0;
}

}  // namespace

void FsHiveRegistryImpl::CleanupOSGeneratedHiveFiles(const WString& path) {
    LogScope scope(ZRFS_LOG_FILE, kCleanup, __LINE__);
    ZRFS_LOG(kInformation, kCleanup, "Attemping clean up of [{}]", platform::ToUtf8(path));
    const NtDllFunctions& ntDll = *GetNtDllFunctions();
    WString trimmed = path;
    if (!trimmed.empty() && trimmed.back() == L'\\') trimmed.pop_back();
    const size_t slash = trimmed.rfind(L'\\');
    // Without a name every file of the folder would be taken for one of the hive's.
    if (slash == WString::npos || slash + 1 == trimmed.size()) return;
    const WString folderPath = trimmed.substr(0, slash);
    const WString hive = trimmed.substr(slash + 1);
    const NativeFile folder(ntDll, folderPath, GENERIC_READ | SYNCHRONIZE, FILE_ATTRIBUTE_DIRECTORY,
                            FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT);
    if (!NT_SUCCESS(folder.Status())) return;
    EnumerateDirectory(ntDll, folder.Get(), hive + L"*", [&](const WString& name) {
        if (IsBesideHive(name, hive)) {
            ZRFS_LOG(kInformation, kCleanup, "Deleting file [{}]", platform::ToUtf8(name));
            DeleteNativeFile(ntDll, folderPath + L"\\" + name);
        }
        return true;
    });
}
