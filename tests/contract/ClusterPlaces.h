// SPDX-License-Identifier: MIT
// Stores on a cluster, which all tests of a program share.
#pragma once

#include "tests/contract/Backend.h"

namespace contract {

// None in a build without such stores.
std::vector<Backend> ClusterBackends();

}  // namespace contract
