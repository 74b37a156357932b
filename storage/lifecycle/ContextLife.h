// SPDX-License-Identifier: MIT
// A context comes to life, is emptied for another opening, and goes.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// A context with its defaults, no container on it yet. Null when there is no memory.
StorageContext* MakeContext();
// Frees the context and all it holds, writing nothing. A lock still held is given up, and what
// was written under it is made known first.
void DestroyContext(StorageContext* context) ZRFS_REQUIRES(context->containerLock);

enum class Closing {
    Write,  // handles are closed, and what they hold is written
    Fail,   // an opening failed: nothing in memory reached the file or is to reach it
};
// Ends the container on the context, and closes its file. File handles stay allocated, without an
// object, until they are closed or the context goes. The first failure met.
Status CloseContainer(StorageContext* context, Closing closing)
    ZRFS_REQUIRES(context->containerLock);
// Throws away what memory holds of the open file and reads it again; open handles and searches lose
// their objects. `locked`: the caller has the file's lock, so that a pending log is replayed and
// damage marked. After a failure the container is not active, and the file is still open.
Status ReloadContainer(StorageContext* context, bool locked) ZRFS_REQUIRES(context->containerLock);

// A heap copy; null when there is no memory.
WChar* CopyString(const WChar* text);
// A heap copy of the path that `path` really leads to, or of the text itself when it leads nowhere.
WChar* CopyRealPath(const WChar* path);
// The path of the companion log: the text before the last dot (not at the very start), then
// ".log". A path without such a dot gives ".log" alone, and a dot in a folder's name counts: that
// is where the logs of existing containers lie. Null when there is no memory.
WChar* MakeLogPath(const WChar* path);

// The container at `path` on an empty context, the log beside it at `logPath` (may be null). Both
// texts are copied. On failure the context is empty again.
Status OpenContainer(StorageContext* context, const WChar* path, const WChar* logPath)
    ZRFS_REQUIRES(context->containerLock);
// The container in the context's open file; see ReloadContainer.
Status LoadContainer(StorageContext* context, bool locked) ZRFS_REQUIRES(context->containerLock);
Status FormatContainer(StorageContext* context, const WChar* path, const WChar* logPath,
                       bool overwrite, uint32_t pageSize, const WChar* banner)
    ZRFS_REQUIRES(context->containerLock);

}  // namespace storage
