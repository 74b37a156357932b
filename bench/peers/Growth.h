// SPDX-License-Identifier: MIT
// What an operation costs as a store grows: over keys, values in a key, subkeys of a key, depth and
// open handles.
#pragma once

#include <nlohmann/json.hpp>

#include "bench/peers/Store.h"

namespace bench {

// Measures those of the stores for which an axis means something, and prints the figures.
nlohmann::json MeasureGrowth(const std::vector<Maker>& makers, uint32_t rounds,
                             const std::filesystem::path& folder);

}  // namespace bench
