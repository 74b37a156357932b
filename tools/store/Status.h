// Statuses of the library in words.
#pragma once

#include <string>

#include "include/ZrFsTypes.h"

namespace fbr {

// "FSSTATUS_NOT_FOUND (3)".
std::string StatusText(FBR_STATUS status);

}  // namespace fbr
