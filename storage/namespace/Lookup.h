// SPDX-License-Identifier: MIT
// The short way to a value for one who reads in the same directory again and again: no walk of the
// path, no object, no handle. It answers what is plain, and leaves all else to the long way.
//
// The caller is in a frame of reading, and no transaction is running.
#pragma once

#include <cstring>

#include "storage/namespace/FileObject.h"

namespace storage {

// Where a path led. It holds until something moved that a path may lead through.
struct DirectoryHint {
    uint32_t fileId = 0;
    uint32_t epoch = 0;
    FileObject* directory = nullptr;  // while no directory that a hint named has gone since
    uint64_t gone = 0;
    const void* list = nullptr;  // where its list stood last, to fetch it along with the directory
    uint32_t listBytes = 0;
};

// The directory that the hint names, or else the one at `path`, which the hint then names. Null
// where the long way has to tell why. It may be used until the next operation.
FileObject* FindDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint)
    ZRFS_REQUIRES(context->containerLock);
// The same with its entries loaded.
FileObject* FindLoadedDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint)
    ZRFS_REQUIRES(context->containerLock);

// The entries of a directory in the order of a search.
struct DirectoryListing {
    const FileObject* directory = nullptr;
    uint32_t position = 0;

    // The next name with one of the attributes; false behind the last. The name may be used until
    // the next operation.
    bool Next(uint32_t attributeMask, platform::WStringView* name)
        ZRFS_REQUIRES(directory->context->containerLock);
};
// As FindLoadedDirectory. False where the long way has to tell why.
bool ListDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint,
                   DirectoryListing* listing) ZRFS_REQUIRES(context->containerLock);

// Fills the list of a directory that FindDirectory found. False where the long way has to tell why.
bool EnsureLoaded(FileObject* directory) ZRFS_REQUIRES(directory->context->containerLock);

enum class Look { Found, Missing, Unusual };

// A stream as it lies in the file. It may be used until the next page is asked for.
struct PlainStream {
    StorageContext* context;
    uint32_t size;
    uint32_t fileId;
    const uint8_t* bytes;  // all of it; null when it lies in pages of its own
    uint32_t firstPage;
};

// Looks for a file of a directory that FindDirectory found. Found: its stream may be read as it
// lies there.
Look FindPlainStream(FileObject* directory, platform::WStringView name, PlainStream* stream)
    ZRFS_REQUIRES(directory->context->containerLock);
// The same of a stream in pages of its own.
bool ReadLongStream(const PlainStream& stream, void* head, uint32_t headBytes, void* data,
                    uint32_t bytes) ZRFS_REQUIRES(stream.context->containerLock);
// The first `headBytes`, and then up to `bytes` more. False where it is not plain after all;
// `head` and `data` may be written to then.
inline bool ReadPlainStream(const PlainStream& stream, void* head, uint32_t headBytes, void* data,
                            uint32_t bytes) ZRFS_REQUIRES(stream.context->containerLock) {
    if (stream.size < headBytes) return false;
    if (stream.bytes == nullptr) return ReadLongStream(stream, head, headBytes, data, bytes);
    std::memcpy(head, stream.bytes, headBytes);
    const uint32_t rest = stream.size - headBytes;
    if (bytes > rest) bytes = rest;
    if (bytes != 0) std::memcpy(data, stream.bytes + headBytes, bytes);
    return true;
}

}  // namespace storage
