// SPDX-License-Identifier: MIT
// How the bytes of one block are stored: plain, or in one of two codes.
#pragma once

#include "storage/namespace/FileObject.h"

namespace storage {

// Room behind the capacity of a block's stored buffer, for coders that write a little too much.
inline constexpr uint32_t kStoredSlack = 84;

enum BlockMethod : uint32_t { kPlainMethod = 0, kFunctionMethod = 3, kRunsMethod = 4 };

// Fills the stored buffer and its length from the data. True when it is coded; data that no code
// makes shorter is stored plain. Takes kBlockPlainOnce off the block.
bool EncodeBlock(FileBlock* block);
// Fills the data and its length from the stored bytes. kBadBlock.
Status DecodeBlock(FileBlock* block, uint32_t method);
// Length of the data that `length` stored bytes of a coded block decode to. kBadBlock.
Status DecodedLength(const StorageContext* context, uint32_t method, const uint8_t* stored,
                     uint32_t length, uint32_t* decoded);

}  // namespace storage
