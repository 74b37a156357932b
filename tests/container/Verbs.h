// SPDX-License-Identifier: MIT
// Calls on the engine, one a line, for scripts: a verb, a path, and what else it takes.
//
//     make delete empty attributes text times        of the path
//     delete-with-files                              in one step, or not at all
//     put DATA    put-whole NAME DATA                the second in one step, in a directory
//     create      create read    create open         which must not be there; or is emptied, opened
//     write OFFSET DATA...    cut SIZE...            through a handle
//     move PATH    find MASK [full] [dots] [times]
//     case [on]    compact    match NAME    join PATH PATH
#pragma once

#include "tests/container/EngineStore.h"
#include "tests/contract/ScriptText.h"

namespace support::container {

// The status of a call. `told` is what else it gives, "0" when that is nothing: a file's text, the
// names found with blanks between.
storage::Status Do(EngineStore& store, const contract::Words& line, std::string* told);

}  // namespace support::container
