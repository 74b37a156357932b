// The way to the engine's check and repair.
#pragma once

#include "include/ZrFsTypes.h"
#include "platform/Text.h"

// Runs over a container that nobody has open. `name` has room for 64 units and becomes the user
// data of the callback.
FBR_STATUS FsRunCheck(const platform::WChar* path, uint32_t flags, platform::WChar* name,
                      FBR_CheckCallback callback);
