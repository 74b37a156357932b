// SPDX-License-Identifier: MIT
// The page map of a container file as a picture: cells of one or more pages, in rows.
#pragma once

#include <ostream>
#include <vector>

#include "tools/inspect/PageMap.h"

namespace fbr {

struct Picture {
    std::string name;
    uint32_t pageSize = 0;
    uint32_t pageCount = 0;
    uint32_t pagesPerCell = 1;  // a power of 2
    uint32_t columns = 0;
    // What shows in each cell: of the kinds that fill a quarter of it the one that is rarest in the
    // container, but an unknown kind before all others.
    std::vector<Use> cells;
    UseCounts counts = {};
};

// As many pages in a cell as keep it to `rows` rows.
Picture MakePicture(const Image& image, uint32_t columns, uint32_t rows);

// Letters, on coloured ground if `colour`, each row behind the number of its first page, and a
// legend.
void DrawText(const Picture& picture, bool colour, std::ostream& out);
// A square of them, for a browser.
void DrawSvg(const Image& image, std::ostream& out);

}  // namespace fbr
