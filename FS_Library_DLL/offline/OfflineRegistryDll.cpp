// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/OfflineRegistryDll.h"

#include "W32Utils/W32Exceptions.h"
#include "platform/Errors.h"

namespace {

void* LoadOrThrow() {
    void* module = offline::LoadModule();
    if (module == nullptr) {
        throw w32utils::basic_w32_runtime_error(platform::LastError(),
                                                "OfflineRegistryDll::OfflineRegistryDll(),ln=39 : "
                                                "Can't find offline registry library");
    }
    return module;
}

}  // namespace

namespace offline {

void ThrowMissingEntry(const std::string& signature, const char* name) {
    const platform::Error error = platform::LastError();
    throw w32utils::basic_w32_runtime_error(
        error, "DynamicFunction<" + signature + ">::DoLoadDynamicFunc(),ln=45 : " +
                   "Failed to obtain address of '" + name + "'. Error " + std::to_string(error));
}

}  // namespace offline

#define ZRFS_ENTRY(name) name(module_.get(), #name)

OfflineRegistryDll::OfflineRegistryDll()
    : module_(LoadOrThrow()),
      ZRFS_ENTRY(OROpenHive),
      ZRFS_ENTRY(ORCreateHive),
      ZRFS_ENTRY(ORCloseHive),
      ZRFS_ENTRY(ORSaveHive),
      ZRFS_ENTRY(OROpenKey),
      ZRFS_ENTRY(ORCloseKey),
      ZRFS_ENTRY(ORCreateKey),
      ZRFS_ENTRY(ORDeleteKey),
      ZRFS_ENTRY(OREnumKey),
      ZRFS_ENTRY(ORDeleteValue),
      ZRFS_ENTRY(ORGetValue),
      ZRFS_ENTRY(ORSetValue),
      ZRFS_ENTRY(OREnumValue),
      ZRFS_ENTRY(ORQueryInfoKey),
      ZRFS_ENTRY(ORSetKeySecurity),
      ZRFS_ENTRY(ORGetKeySecurity) {}
