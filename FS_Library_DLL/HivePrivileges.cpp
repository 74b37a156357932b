#include "FS_Library_DLL/HivePrivileges.h"

#include "Shared/UnImpersonator.h"
#include "Shared/w32helpers.h"

FBR_STATUS RunWithHivePrivileges(const std::function<FBR_STATUS()>& function) {
    const UnImpersonator asProcess;
    if (asProcess.Error() != 0) return FSSTATUS_ACCESS_DENIED;
    const w32utils::ProcessPrivilege backup(SE_BACKUP_NAME);
    const w32utils::ProcessPrivilege restore(SE_RESTORE_NAME);
    if (backup.Error() != 0 || restore.Error() != 0) return FSSTATUS_ACCESS_DENIED;
    return function();
}
