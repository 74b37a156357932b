// SPDX-License-Identifier: MIT
// What the offline store needs of the system's security: text for descriptors, and the descriptor
// that a new hive begins with.
#pragma once

#include <cstdint>
#include <vector>

#include "FS_Library_DLL/offline/OfflineRegistryDll.h"
#include "include/ZrFsTypes.h"
#include "platform/Text.h"

namespace offline {

// Owner, group, discretionary list and labels; the discretionary list may inherit.
inline constexpr uint32_t kUserHiveInformation = 0x20000017;
// The same and the system list.
inline constexpr uint32_t kAllInformation = 0x2000001F;

// Conversions between a self-relative descriptor and its text, revision 1. 0 or a Win32 error.
uint32_t DescriptorToText(const std::vector<uint8_t>& descriptor, uint32_t information,
                          platform::WString* text);
uint32_t TextToDescriptor(const platform::WChar* text, std::vector<uint8_t>* descriptor);

// Gives the root of a new hive the security of the root of the current user's own hive. Where users
// have no hives of their own, the hive keeps what it was made with.
FBR_STATUS CopyUserHiveSecurity(const OfflineRegistryDll& dll, ORHKEY hive);

}  // namespace offline
