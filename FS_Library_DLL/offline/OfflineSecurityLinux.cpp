// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/OfflineSecurity.h"
#include "Shared/security/SecurityText.h"

namespace offline {

uint32_t DescriptorToText(const std::vector<uint8_t>& descriptor, uint32_t information,
                          platform::WString* text) {
    return security::FormatSecurityText(descriptor, information, text);
}

uint32_t TextToDescriptor(const platform::WChar* text, std::vector<uint8_t>* descriptor) {
    return security::ParseSecurityText(text, descriptor);
}

FBR_STATUS CopyUserHiveSecurity(const OfflineRegistryDll& /*dll*/, ORHKEY /*hive*/) {
    return FSSTATUS_SUCCESS;
}

}  // namespace offline
