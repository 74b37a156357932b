// SPDX-License-Identifier: MIT
// The blocks of streams in memory: found, loaded, stored, given back.
#pragma once

#include "storage/namespace/StreamPages.h"

namespace storage {

// A larger block is not held in memory: kNoMemory.
inline constexpr uint64_t kLargestBlock = uint64_t{64} << 20;

// The block that starts at `start`, which the stream reaches, with a reference; loaded unless it
// is in use already.
Status OpenBlock(FileObject* object, uint64_t start, FileBlock** block,
                 StorageTransaction* transaction);
// Gives the data another length; what is new is zeros, and stays plain when it is stored.
void SetDataLength(FileBlock* block, uint32_t length);
// Takes a block out of its object's list, whoever refers to it, without storing it.
void DiscardBlock(FileBlock* block);

}  // namespace storage
