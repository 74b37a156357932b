// SPDX-License-Identifier: MIT
#include "Shared/security/LowIntegrityResource.h"

#include <utility>

#include "Shared/logging/Logger.h"
#include "Shared/security/LowIntegrityLabel.h"
#include "platform/Text.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Security"

namespace {

using platform::Handle;
using Varnhold::Hob::Detail::kInformation;
using Varnhold::Hob::Detail::kScope;

struct Resource {
    const platform::WChar* name;
    uint32_t disposition;
    const void* attributes;
};

using Creator = Handle (*)(const Resource& resource);

unsigned long long Number(Handle handle) {
    return reinterpret_cast<uintptr_t>(handle);
}

// Ends a creator: logs what it got without disturbing the last error.
#define ZRFS_LOG_CREATED(function, handle)                                                      \
    do {                                                                                        \
        const platform::Error error = platform::LastError();                                    \
        ZRFS_LOG(kScope, function, "[EXIT] " function " H[{:X}] S[{}]", Number(handle), error); \
        platform::SetLastError(error);                                                          \
    } while (false)

Handle CreateResourceMutex(const Resource& resource) {
    const Handle handle = platform::CreateNamedMutex(resource.name, resource.attributes);
    ZRFS_LOG_CREATED("CreateResourceMutex", handle);
    return handle;
}

Handle CreateResourceFileMapping(const Resource& resource) {
    const Handle handle = platform::CreateSharedWord(resource.name, resource.attributes);
    ZRFS_LOG_CREATED("CreateResourceFileMapping", handle);
    return handle;
}

Handle CreateResourceFileRW(const Resource& resource) {
    const Handle handle =
        platform::OpenFileHandle(resource.name, false, resource.disposition, resource.attributes);
    ZRFS_LOG_CREATED("CreateResourceFileRW", handle);
    return handle;
}

Handle CreateResourceFileReadOnly(const Resource& resource) {
    const Handle handle =
        platform::OpenFileHandle(resource.name, true, resource.disposition, resource.attributes);
    ZRFS_LOG_CREATED("CreateResourceFileReadOnly", handle);
    return handle;
}

#undef ZRFS_LOG_CREATED

// The creator for a type, null for an unknown one.
Creator GetResource(uint32_t type) {
    constexpr std::pair<const char*, Creator> kCreators[] = {
        {"Mutex", CreateResourceMutex},
        {"FileMapping", CreateResourceFileMapping},
        {"FileCreate", CreateResourceFileRW},
        {"FileReadOnly", CreateResourceFileReadOnly},
    };
    if (type >= std::size(kCreators)) {
        ZRFS_LOG(kInformation, "GetResource", "Resource type not found, setting to : default");
        return nullptr;
    }
    ZRFS_LOG(kInformation, "GetResource", "Found Resource type: {}", kCreators[type].first);
    return kCreators[type].second;
}

}  // namespace

Handle CreateLowIntegrityResource(uint32_t type, const platform::WChar* name,
                                  uint32_t disposition) {
    constexpr const char* kName = "CreateLowIntegrityResource";
    const Creator creator = GetResource(type);
    if (creator == nullptr) return nullptr;
    Handle handle = nullptr;
    platform::Error error = platform::kErrorSuccess;
    {
        const security::LowIntegrityLabel label;
        handle = creator({name, disposition, label.Attributes()});
        error = platform::LastError();
        ZRFS_LOG(kScope, kName, "[ENTER] CreateResource- Name: [{}], Handle: [{:X}]",
                 platform::ToUtf8(name), Number(handle));
    }
    ZRFS_LOG(kScope, kName, "[EXIT] CreateLowIntegrityResource");
    // Freeing and logging may have left another number.
    platform::SetLastError(error);
    return handle;
}
