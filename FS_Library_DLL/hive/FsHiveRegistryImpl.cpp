// SPDX-License-Identifier: MIT
// Making, mounting and unloading the hive.
#include "FS_Library_DLL/hive/FsHiveRegistryImpl.h"

#include "FS_Library_DLL/hive/HivePrivileges.h"
#include "FS_Library_DLL/hive/LoggedOnUserClient.h"
#include "FS_Library_DLL/hive/TemporaryHiveKey.h"
#include "Shared/FileFolderHelpers.h"
#include "Shared/logging/Logger.h"
#include "Shared/services/ServicesCollection.h"
#include "W32Utils/RegistryUtil.h"
#include "W32Utils/UnImpersonator.h"
#include "W32Utils/W32Exceptions.h"
#include "include/FsError.h"
#include "platform/PageFile.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsHiveRegistryImpl"

using namespace Varnhold::Hob::Detail;
using platform::ToUtf8;

namespace {

constexpr const char* kInitialise = "FsHiveRegistryImpl::FBR_InitialiseEx";
constexpr wchar_t kHiveList[] = L"System\\CurrentControlSet\\Control\\HiveList";

FBR_STATUS FromWin32(DWORD error) {
    return FsError::ToFsStatus(static_cast<FBR_WIN32ERROR>(error));
}

std::shared_ptr<FileSystemInterface> Files() {
    return Services::ServicesCollection::Instance()->FileSystem();
}

bool MountExists(const WString& mount) {
    const auto registry = Services::ServicesCollection::Instance()->Registry();
    HKEY key = nullptr;
    if (registry->RegOpenKeyExW(HKEY_USERS, mount.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, &key) !=
        ERROR_SUCCESS) {
        return false;
    }
    registry->RegCloseKey(key);
    return true;
}

// The folder that a file stands in.
WString FolderOf(const WString& path) {
    const size_t slash = path.rfind(L'\\');
    return slash == WString::npos ? WString(L".") : path.substr(0, slash);
}

[[noreturn]] void ThrowFileError(const char* what) {
    const DWORD error = ::GetLastError();
    throw w32utils::w32file_exception(error, what);
}

// The length of a file that nobody else may have open; throws w32file_exception.
uint64_t FileSize(const WString& path) {
    HANDLE file =
        Files()->CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) ThrowFileError("The hive file cannot be opened");
    LARGE_INTEGER size{};
    const BOOL known = Files()->GetFileSizeEx(file, &size);
    const DWORD error = ::GetLastError();
    Files()->CloseHandle(file);
    ::SetLastError(error);
    if (!known) ThrowFileError("The hive file's size cannot be read");
    return static_cast<uint64_t>(size.QuadPart);
}

// A copy of a token with the same access, null when there is none or it cannot be copied.
HANDLE CopyToken(HANDLE token) {
    HANDLE copy = nullptr;
    HANDLE process = ::GetCurrentProcess();
    if (token == nullptr ||
        !::DuplicateHandle(process, token, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        return nullptr;
    }
    return copy;
}

}  // namespace

FsHiveRegistryImpl::FsHiveRegistryImpl(const WString& mountName)
    : FsNativeRegistryImpl(false), mountName_(mountName) {}

WString FsHiveRegistryImpl::MountPath() const {
    return L"\\registry\\user\\" + mountName_;
}

FBR_STATUS FsHiveRegistryImpl::FBR_InitialiseEx(const WChar* path) {
    const UnImpersonator asProcess;
    if (path == nullptr) {
        ZRFS_LOG(kInformation, kInitialise, "No hive file path given");
        return FSSTATUS_INVALID_PARAMETER;
    }
    if (asProcess.Error() != 0) return FSSTATUS_ACCESS_DENIED;
    hiveFile_ = path;
    if (MountExists(mountName_)) return UseExistingMount();
    try {
        return OpenHiveFile(asProcess);
    } catch (const w32utils::w32file_exception& failure) {
        ZRFS_LOG(kError, kInitialise, "Exception [{}]", failure.Code());
        return FromWin32(failure.Code());
    }
}

FBR_STATUS FsHiveRegistryImpl::OpenHiveFile(const UnImpersonator& caller) {
    FBR_STATUS status = ProvideHiveFile(caller);
    if (status != FSSTATUS_SUCCESS) return status;
    status = LoadHive(HKEY_USERS, mountName_, hiveFile_);
    if (status != FSSTATUS_SUCCESS) {
        ZRFS_LOG(kError, kInitialise, "Load hive failure [{}]", static_cast<int>(status));
        return status;
    }
    status = ServeMount();
    ZRFS_LOG(kInformation, kInitialise, "[{}] has been mounted tp [{}]", ToUtf8(hiveFile_),
             ToUtf8(mountName_));
    return status;
}

// Leaves a hive file at the store's path: the one that is there, or a new one.
FBR_STATUS FsHiveRegistryImpl::ProvideHiveFile(const UnImpersonator& caller) {
    const DWORD attributes = Files()->GetFileAttributesW(hiveFile_.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        if (const DWORD error = ZrSharedHelpers::EnsurePathExists(FolderOf(hiveFile_))) {
            ZRFS_LOG(kError, kInitialise, "failed to create [{}] containing directory [{}]",
                     ToUtf8(hiveFile_), error);
            return FromWin32(error);
        }
    } else if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        ZRFS_LOG(kError, kInitialise, "[{}] is a directory", ToUtf8(hiveFile_));
        return FSSTATUS_INVALID_NAME;
    } else if (FileSize(hiveFile_) != 0) {
        return FSSTATUS_SUCCESS;
    }
    return MakeHiveFile(caller.SavedToken(), attributes == INVALID_FILE_ATTRIBUTES);
}

FBR_STATUS FsHiveRegistryImpl::MakeHiveFile(HANDLE callersToken, bool isMissing) {
    const CUserIdentity identity(CUserIdentity::kCurrentSession, CopyToken(callersToken));
    const TemporaryHiveKey temporary(identity.GetUserSid(), identity);
    if (temporary.Status() != ERROR_SUCCESS) {
        ZRFS_LOG(kError, kInitialise, "Temp hive failure [{}]", temporary.Status());
        return FromWin32(temporary.Status());
    }
    const FBR_STATUS status = CreateHive(hiveFile_, temporary.Key());
    if (status != FSSTATUS_SUCCESS) {
        ZRFS_LOG(kError, kInitialise, "Create hive failure [{}]", static_cast<int>(status));
        // The system leaves the file that it began, and would not save over it the next time. Whose
        // file it refuses to save over is another one's.
        const bool isOurs =
            isMissing && status != FSSTATUS_ALREADY_EXISTS && status != FSSTATUS_SHARING_VIOLATION;
        if (isOurs) platform::DeleteFileByPath(hiveFile_.c_str());
    }
    return status;
}

FBR_STATUS FsHiveRegistryImpl::UseExistingMount() {
    const WString mounted = HiveFileNameForKey(MountPath());
    ZRFS_LOG(kInformation, kInitialise, "[{}] already exists and has [{}] mounted",
             ToUtf8(mountName_), ToUtf8(mounted));
    if (mounted.empty()) return FSSTATUS_ALREADY_EXISTS;
    ZRFS_LOG(kWarning, kInitialise, "Assuming that [{}] and [{}] are equal", ToUtf8(mounted),
             ToUtf8(hiveFile_));
    return ServeMount();
}

FBR_STATUS FsHiveRegistryImpl::ServeMount() {
    const FBR_STATUS status = FsNativeRegistryImpl::FBR_InitialiseEx(MountPath().c_str());
    if (status != FSSTATUS_SUCCESS) {
        ZRFS_LOG(kError, kInitialise, "FsNativeRegistryImpl failure [{}]",
                 static_cast<int>(status));
        FBR_DeInitialiseEx();
    }
    return status;
}

FBR_STATUS FsHiveRegistryImpl::FBR_DeInitialiseEx() {
    CloseRootKey();
    return UnLoadHive(mountName_);
}

FBR_STATUS FsHiveRegistryImpl::CreateHive(const WString& path, HKEY key) {
    return RunWithHivePrivileges(
        [&] { return FromWin32(::RegSaveKeyW(key, path.c_str(), nullptr)); });
}

FBR_STATUS FsHiveRegistryImpl::LoadHive(HKEY root, const WString& mount, const WString& path) {
    return RunWithHivePrivileges(
        [&] { return FromWin32(::RegLoadKeyW(root, mount.c_str(), path.c_str())); });
}

FBR_STATUS FsHiveRegistryImpl::UnLoadHive(const WString& mount) {
    LogScope scope(ZRFS_LOG_FILE, "FsHiveRegistryImpl::UnLoadHive", __LINE__);
    return RunWithHivePrivileges(
        [&] { return FromWin32(UnmountHiveAndCleanGeneratedFiles(mount)); });
}

DWORD FsHiveRegistryImpl::UnmountHiveAndCleanGeneratedFiles(const WString& mount) {
    constexpr const char* kFunction = "FsHiveRegistryImpl::UnmountHiveAndCleanGeneratedFiles";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    // Asked before the unload, while the system still lists the hive.
    const WString file = HiveFileNameForKey(L"\\registry\\user\\" + mount);
    if (file.empty()) return ERROR_FILE_NOT_FOUND;
    ZRFS_LOG(kInformation, kFunction, "Attempting to unload [{}] mounted at [{}]", ToUtf8(mount),
             ToUtf8(file));
    DWORD error = ::RegUnLoadKeyW(HKEY_USERS, mount.c_str());
    if (error == ERROR_ACCESS_DENIED) {
        ZRFS_LOG(kInformation, kFunction, "Trying unload via ZrLoggedOnUser");
        error = LoggedOnUserClient::UnloadHive(mount);
    }
    if (error == ERROR_SUCCESS) CleanupOSGeneratedHiveFiles(file);
    return error;
}

WString FsHiveRegistryImpl::HiveFileNameForKey(const WString& key) {
    constexpr const char* kFunction = "FsHiveRegistryImpl::HiveFileNameForKey";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    DWORD error = 0;
    WString file = registry_util::read_wstring(kHiveList, key, &error);
    if (error != ERROR_SUCCESS) {
        ZRFS_LOG(kError, kFunction, "Failed to obtain hive file name for [{}] [{}]", ToUtf8(key),
                 error);
    }
    return file;
}
