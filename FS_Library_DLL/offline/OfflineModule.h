// SPDX-License-Identifier: MIT
// Where the functions of the offline registry library come from: an "offreg.dll" beside the program
// or the system's, and no other; or the provider in offreg/, which is linked in on systems that
// have no such library.
#pragma once

#include <cstdint>

namespace offline {

// Null when there is no such module; platform::LastError tells why. Each module that was loaded is
// to be freed.
void* LoadModule() noexcept;
// The entry point of that name, null when there is none (platform::LastError tells why).
void* FindEntry(void* module, const char* name) noexcept;
void UnloadModule(void* module) noexcept;

}  // namespace offline
