// SPDX-License-Identifier: MIT
#include "storage/namespace/Links.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Path.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

using platform::WStringView;

// Reads the whole stream through a handle that nobody else sees.
Status ReadWholeStream(FileObject* object, void* buffer, uint32_t size) {
    FileHandle handle{};
    handle.object = object;
    handle.context = object->context;
    handle.canRead = true;
    uint32_t done = 0;
    Status status = ReadStream(&handle, buffer, size, &done);
    const Status released = ReleaseBlock(&handle.block, object->transaction);
    if (status == kOk) status = released;
    return status == kOk && done != size ? kInternal : status;
}

Status ReadTargetText(FileObject* link, WChar** text) {
    StorageContext* context = link->context;
    RecordPlace place;
    Status status = FindRecord(link, link->streamType, &place, false, link->transaction);
    if (status != kOk) return status;
    const bool hasStream = place.page != nullptr;
    ReleasePage(context, place.page);
    uint64_t size = 0;
    if (hasStream) status = LoadBlockSettings(link, link->transaction);
    if (status == kOk && hasStream) status = ReadSize(link, &size, link->transaction);
    if (status != kOk) return status;
    // No path is longer than the container that holds it.
    if (size > uint64_t{context->totalPages} * context->pageSize || size > INT32_MAX)
        return Corrupt(context);
    *text = static_cast<WChar*>(
        platform::HeapAllocateZeroed(static_cast<size_t>(size) + 2 * sizeof(WChar)));
    if (*text == nullptr) return kNoMemory;
    return size == 0 ? kOk : ReadWholeStream(link, *text, static_cast<uint32_t>(size));
}

// A path under construction, in a buffer that has room for all of it.
struct PathBuilder {
    WChar* text;
    size_t units;
    WChar separator;

    void Append(WStringView part) {
        if (!part.empty()) std::memcpy(text + units, part.data(), part.size() * sizeof(WChar));
        units += part.size();
    }
    void AppendSeparator() { text[units++] = separator; }
    // False when there is no component to be removed.
    bool RemoveLast() {
        size_t end = units;
        while (end > 0 && IsSeparator(text[end - 1], separator)) --end;
        if (end == 0) return false;
        while (end > 0 && !IsSeparator(text[end - 1], separator)) --end;
        units = end;
        return true;
    }
};

Status AppendTarget(PathBuilder* path, WStringView target) {
    for (size_t at = 0; at < target.size();) {
        size_t end = at;
        while (end < target.size() && !IsSeparator(target[end], path->separator)) ++end;
        const WStringView part = target.substr(at, end - at);
        const bool dotted = !part.empty() && part[0] == '.';
        if (part.empty()) return kBadPath;
        if (part.size() == 2 && dotted) {
            // Whatever the second unit is: links in containers are followed like that.
            if (!path->RemoveLast()) return kBadPath;
        } else if (part.size() != 1 || !dotted) {
            path->Append(part);
            if (end < target.size()) path->AppendSeparator();
        }
        at = end + 1;
    }
    return kOk;
}

}  // namespace

Status ReadLinkTarget(FileObject* link, WStringView* target) {
    if (link->linkTarget == nullptr) {
        if ((link->entry->attributes & kAttrLink) == 0) return kNoLink;
        if (link->transaction != nullptr) return kSharing;
        Status status = EnsureOwnTransaction(link);
        if (status != kOk) return status;
        // Within a read there is none, and within a batch it is not ours to end.
        StorageTransaction* own = link->transaction;
        if (own != nullptr && own->mode != TransactionMode::HeldByFile) own = nullptr;
        WChar* text = nullptr;
        status = ReadTargetText(link, &text);
        if (status == kOk && own != nullptr)
            status = CommitTransaction(link->context, own);
        else if (own != nullptr)
            RollbackTransaction(link->context, own);
        if (status != kOk) {
            platform::HeapRelease(text);
            return status;
        }
        link->linkTarget = text;
    }
    *target = {link->linkTarget, platform::Length(link->linkTarget)};
    return kOk;
}

Status NormalizePath(WChar** out, WChar separator, WStringView prefix, WStringView target,
                     WStringView rest) {
    *out = nullptr;
    const size_t room = prefix.size() + target.size() + rest.size() + 3;
    WChar* text = static_cast<WChar*>(platform::HeapAllocate(room * sizeof(WChar)));
    if (text == nullptr) return kNoMemory;
    PathBuilder path{text, 0, separator};
    if (!target.empty() && IsSeparator(target[0], separator)) {
        path.AppendSeparator();
        while (!target.empty() && IsSeparator(target[0], separator)) target.remove_prefix(1);
    } else {
        path.Append(prefix);
    }
    const Status status = AppendTarget(&path, target);
    if (status != kOk) {
        platform::HeapRelease(text);
        return status;
    }
    path.Append(rest);
    text[path.units] = 0;
    *out = text;
    return kOk;
}

}  // namespace storage
