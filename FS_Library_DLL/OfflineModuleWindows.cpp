#include <windows.h>

#include "FS_Library_DLL/OfflineModule.h"

namespace offline {

void* LoadModule() noexcept {
    return LoadLibraryW(L"offreg.dll");
}

void* FindEntry(void* module, const char* name) noexcept {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void UnloadModule(void* module) noexcept {
    FreeLibrary(static_cast<HMODULE>(module));
}

}  // namespace offline
