// SPDX-License-Identifier: MIT
#include <string_view>

#include "FS_Library_DLL/offline/OfflineModule.h"
#include "offreg/OfflineRegistry.h"
#include "platform/Errors.h"

namespace offline {
namespace {

constexpr platform::Error kErrorProcNotFound = 127;

struct Entry {
    std::string_view name;
    void* function;
};

const Entry kEntries[] = {
    {"OROpenHive", reinterpret_cast<void*>(&OROpenHive)},
    {"ORCreateHive", reinterpret_cast<void*>(&ORCreateHive)},
    {"ORCloseHive", reinterpret_cast<void*>(&ORCloseHive)},
    {"ORSaveHive", reinterpret_cast<void*>(&ORSaveHive)},
    {"OROpenKey", reinterpret_cast<void*>(&OROpenKey)},
    {"ORCloseKey", reinterpret_cast<void*>(&ORCloseKey)},
    {"ORCreateKey", reinterpret_cast<void*>(&ORCreateKey)},
    {"ORDeleteKey", reinterpret_cast<void*>(&ORDeleteKey)},
    {"OREnumKey", reinterpret_cast<void*>(&OREnumKey)},
    {"ORDeleteValue", reinterpret_cast<void*>(&ORDeleteValue)},
    {"ORGetValue", reinterpret_cast<void*>(&ORGetValue)},
    {"ORSetValue", reinterpret_cast<void*>(&ORSetValue)},
    {"OREnumValue", reinterpret_cast<void*>(&OREnumValue)},
    {"ORQueryInfoKey", reinterpret_cast<void*>(&ORQueryInfoKey)},
    {"ORSetKeySecurity", reinterpret_cast<void*>(&ORSetKeySecurity)},
    {"ORGetKeySecurity", reinterpret_cast<void*>(&ORGetKeySecurity)},
};

}  // namespace

// The provider is part of the program: nothing is loaded, and nothing can be missing.
void* LoadModule() noexcept {
    return const_cast<Entry*>(kEntries);
}

void* FindEntry(void* /*module*/, const char* name) noexcept {
    for (const Entry& entry : kEntries) {
        if (entry.name == name) return entry.function;
    }
    platform::SetLastError(kErrorProcNotFound);
    return nullptr;
}

void UnloadModule(void* /*module*/) noexcept {}

}  // namespace offline
