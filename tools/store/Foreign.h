// What a file is that does not open as a store.
#pragma once

#include <string>

#include "tools/store/Store.h"

namespace fbr {

// Words to put behind a bare failure, "; it is a folder"; none where the file tells nothing.
std::string WhatStandsThere(const StoreName& name);

}  // namespace fbr
