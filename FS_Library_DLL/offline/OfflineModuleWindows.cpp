// SPDX-License-Identifier: MIT
#include <windows.h>

#include <exception>
#include <string>

#include "FS_Library_DLL/offline/OfflineModule.h"
#include "W32Utils/ImpersonationStateSaver.h"

namespace offline {
namespace {

constexpr wchar_t kModule[] = L"\\offreg.dll";
constexpr DWORD kLongestPath = 32768;

// Empty on failure.
std::wstring FolderOfProgram() {
    std::wstring path(kLongestPath, 0);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), kLongestPath);
    if (length == 0 || length >= kLongestPath) return {};
    return path.substr(0, path.substr(0, length).rfind(L'\\'));
}

std::wstring FolderOfSystem() {
    std::wstring path(kLongestPath, 0);
    const UINT length = GetSystemDirectoryW(path.data(), kLongestPath);
    path.resize(length < kLongestPath ? length : 0);
    return path;
}

// What the module itself needs comes from its own folder or the system's, too.
HMODULE LoadFrom(const std::wstring& folder) {
    constexpr DWORD kFlags = LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32;
    if (folder.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return LoadLibraryExW((folder + kModule).c_str(), nullptr, kFlags);
}

}  // namespace

// By whole paths: the plain name would also be looked for in the current folder and along PATH,
// where others may lay a library of that name. As the process itself, since an impersonated user
// may have a drive C: of their own; without a line in the log, unlike UnImpersonator.
void* LoadModule() noexcept {
    HMODULE module = nullptr;
    DWORD error = ERROR_MOD_NOT_FOUND;
    try {
        const w32utils::ImpersonationStateSaver caller;
        if (caller.SavedToken() == nullptr || RevertToSelf()) {
            module = LoadFrom(FolderOfProgram());
            error = GetLastError();
            if (module == nullptr && error == ERROR_MOD_NOT_FOUND) {
                module = LoadFrom(FolderOfSystem());
                error = GetLastError();
            }
        }
    } catch (const std::exception&) {
    }
    SetLastError(error);  // the end of the scope may have set another one
    return module;
}

void* FindEntry(void* module, const char* name) noexcept {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void UnloadModule(void* module) noexcept {
    FreeLibrary(static_cast<HMODULE>(module));
}

}  // namespace offline
