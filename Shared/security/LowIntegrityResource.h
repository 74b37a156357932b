// SPDX-License-Identifier: MIT
// The one way in which objects shared between processes are made, so that processes of any
// integrity level can open them.
#pragma once

#include <cstdint>

#include "platform/Resources.h"

enum class ResourceType : uint32_t { Mutex = 0, FileMapping = 1, FileCreate = 2, FileReadOnly = 3 };

// Creates or opens the object `name` with a low mandatory label where the system has labels; an
// object whose label cannot be built is made without one. `disposition` is a Win32 creation
// disposition and counts for files only. Returns the creator's handle, not valid on failure
// (platform::LastError tells why), and null for an unknown type. Any thread.
platform::Handle CreateLowIntegrityResource(uint32_t type, const platform::WChar* name,
                                            uint32_t disposition);
