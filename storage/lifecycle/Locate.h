// SPDX-License-Identifier: MIT
// Where in a file the container begins: at its start, or behind a boot sector.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// What the first bytes of a container tell.
inline constexpr uint32_t kLocateBlock = 512;

struct ContainerPlace {
    uint64_t base = 0;  // in blocks of kLocateBlock bytes
    bool byteSwapped = false;
    uint16_t pageShift = 0;          // as it stands there, not checked
    uint8_t head[8 * kLocateBlock];  // what it begins with; zeros behind the end of the file
};

// Follows partition tables and volume boot sectors from the start of the file until a container
// begins. kNotContainer when none does, or a Win32 error.
Status LocateContainer(platform::PageFile* file, uint64_t fileSize, ContainerPlace* place);

// The page size, as a power of two, of a container at `base` whose page 0 is destroyed: known by
// page 1, of either byte order. kNotContainer when there is none, or a Win32 error.
Status ProbePageShift(platform::PageFile* file, uint64_t base, uint32_t* shift);

}  // namespace storage
