// Stands in while the engine has no check and repair.
#include "FS_Library_DLL/FsCheck.h"

FBR_STATUS FsRunCheck(const platform::WChar*, uint32_t, platform::WChar*, FBR_CheckCallback) {
    return FSSTATUS_NOT_IMPLEMENTED;
}
