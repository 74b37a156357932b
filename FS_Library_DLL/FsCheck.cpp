#include "FS_Library_DLL/FsCheck.h"

#include "FS_Library_DLL/FsEngineStatus.h"
#include "storage/StorageApi.h"

// By name and not through the table: check and repair is not in it.
FBR_STATUS FsRunCheck(const platform::WChar* path, uint32_t flags, platform::WChar* name,
                      FBR_CheckCallback callback) {
    return FsStatusFromEngine(
        storage::StorageCheckAndRepair(path, nullptr, flags, nullptr, nullptr, name, callback));
}
