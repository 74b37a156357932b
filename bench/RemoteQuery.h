// SPDX-License-Identifier: MIT
// One small query on a local store and the same behind a server of this process.
#pragma once

#include <filesystem>

#include "bench/Content.h"
#include "bench/Report.h"

namespace bench {

struct RemoteQuery {
    Timer local, remote;
};

// `store` is a container that nobody has locked, `key` a key of it, whose smallest value is asked
// for.
RemoteQuery MeasureRemoteQuery(const std::filesystem::path& store, const KeyData& key);

}  // namespace bench
