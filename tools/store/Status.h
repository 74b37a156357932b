// SPDX-License-Identifier: MIT
// Statuses of the library in words.
#pragma once

#include <string>

#include "include/ZrFsTypes.h"

namespace fbr {

// "there is no such key, value or file (FSSTATUS_NOT_FOUND)".
std::string StatusText(FBR_STATUS status);
// The same with words behind it, "; ask its owner for the right". What begins with a reason
// instead, "the disk is full; make room", stands in the place of the status's own words.
std::string StatusText(FBR_STATUS status, const std::string& why);

// What a bare status would leave a person to guess, with "; " in front; empty where there is
// nothing to say. `method` is the store's.
std::string Advice(FBR_STATUS status, FBR_METHOD method);

// Throws a StoreError: what failed, the status and the advice.
[[noreturn]] void ThrowStatus(const std::string& what, FBR_STATUS status, FBR_METHOD method);

}  // namespace fbr
