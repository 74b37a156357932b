// SPDX-License-Identifier: MIT
// A container file as bytes, as the command line names it.
#pragma once

#include "tools/commands/Cli.h"
#include "tools/inspect/Image.h"

namespace fbr {

inline constexpr const char* kPageSizeHelp =
    "bytes in a page, for a file so damaged that it does not tell; a container of a store has 512";

// `pageSize` is what was given for --page-size, 0 for nothing.
Image ImageOf(const Cli& cli, const std::string& store, uint64_t pageSize);

// The picture of an open container's pages, for a page. Other stores have none.
std::string MapOf(const StoreName& store);

}  // namespace fbr
