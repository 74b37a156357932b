// SPDX-License-Identifier: MIT
// Calls on the engine, one a line, for scripts: a verb, a path, and what else it takes. DATA is as
// that of a tree (Shapes.h), and so are sizes.
//
//     make delete empty attributes read times id     of the path
//     delete-with-files                              in one step, or not at all
//     put DATA    put-whole NAME DATA                the second in one step, in a directory
//     create      create read    create open         which must not be there; or is emptied, opened
//     write SIZE DATA...    cut SIZE...              through a handle of their own
//     move PATH    find MASK [full] [dots] [times]
//     open [read] [write] [deny-write]               a handle, to both if nothing is said; then,
//     without
//                                                    a path, far SIZE, seek SIZE ORIGIN, get SIZE,
//                                                    set DATA, size SIZE, end SIZE, close, and
//                                                    stream: the pages, those of the index, the
//                                                    end, the size
//     sound record                                   of the path, as other eyes see it once the
//     store is
//                                                    closed: the data, and how its record keeps it;
//                                                    used, pages: how many there are
//     case [on]    compact    reopen    match NAME    join PATH PATH
#pragma once

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/contract/ScriptText.h"

namespace support::container {

// A store in the hands of a script, and the handle that it has open.
struct Session {
    // The status of a call. `told` is what else it gives, "0" when that is nothing.
    storage::Status Do(const contract::Words& line, std::string* told);

    EngineStore& store;
    uint32_t pageSize = 512;
    std::unique_ptr<EngineFile> file = nullptr;
};

}  // namespace support::container
