// SPDX-License-Identifier: MIT
// Calls on the engine, one a line, for scripts: a verb, a path, and what else it takes. DATA is as
// that of a tree (Shapes.h), and so are sizes.
//
//     make P, delete P, move P P, empty P, attributes P, read P, times P, id P
//     delete-with-files P       in one step, or not at all
//     put P DATA                a file made or emptied, and written
//     put-whole P NAME DATA     the same in one step, in a directory
//     create P [read|open]      a file that must not be there; or is emptied, opened
//     write P SIZE DATA...      through a handle of its own, behind so many bytes
//     cut P SIZE...             likewise, to one size and the next
//     find P MASK [full] [dots] [times]
//     open P [read] [write] [deny-write]   a handle, to both if nothing is said, and at it
//     far SIZE, seek 0 ORIGIN, get SIZE, set DATA, size SIZE, end SIZE, close, and
//     stream                    its pages, those of the index, its end, its size
//     sound P, record P         as other eyes see it in the file: its data, and how its record
//                               keeps them
//     used, pages               how many the file has, likewise
//     case [on], compact, reopen, match PATTERN NAME, join P P P
#pragma once

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/ScriptText.h"

namespace support::container {

// A store in the hands of a script, and the handle that it has open.
struct Session {
    // The status of a call. `told` is what else it gives, "0" when that is nothing.
    storage::Status Do(const support::Words& line, std::string* told);

    EngineStore& store;
    uint32_t pageSize = 512;
    std::unique_ptr<EngineFile> file = nullptr;
};

}  // namespace support::container
