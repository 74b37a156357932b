// SPDX-License-Identifier: MIT
#include "storage/namespace/Path.h"

#include <utility>

#include "storage/namespace/Directory.h"
#include "storage/namespace/Links.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/TextBuffer.h"

namespace storage {

namespace {

using platform::WStringView;

// A path that leads through more links than this leads nowhere.
constexpr uint32_t kMaxLinks = 32;

// Longer directory paths are not remembered.
constexpr size_t kMaxRememberedUnits = 8192;

// The text of a path, cut into components.
struct PathText {
    WStringView text;
    WChar separator;

    bool SeparatorAt(size_t place) const { return IsSeparator(text[place], separator); }
    size_t SkipSeparators(size_t place) const {
        while (place < text.size() && SeparatorAt(place)) ++place;
        return place;
    }
    size_t ComponentEnd(size_t place) const {
        while (place < text.size() && !SeparatorAt(place)) ++place;
        return place;
    }
    // Where the last component begins; the end of the text when there is none.
    size_t LastComponent() const {
        size_t end = text.size();
        while (end > 0 && SeparatorAt(end - 1)) --end;
        if (end == 0) return text.size();
        while (end > 0 && !SeparatorAt(end - 1)) --end;
        return end;
    }
};

void AddReferenceChain(FileObject* object) {
    for (; object != nullptr; object = object->parent) {
        AddReference(object);
        LeaveIdle(object);
    }
}

// The places of a text. Texts are short and end in what tells them apart.
PathCache::Place* PairOf(StorageContext* context, WStringView path) {
    uint64_t hash = path.size();
    const auto mix = [&hash](uint64_t bits) { hash = (hash ^ bits) * 0x9E3779B97F4A7C15u; };
    size_t at = 0;
    for (; at + 4 <= path.size(); at += 4) {
        uint64_t bits;
        std::memcpy(&bits, path.data() + at, sizeof bits);
        mix(bits ^ hash >> 32);
    }
    for (; at < path.size(); ++at) mix(path[at] ^ hash >> 32);
    return &context->objects->paths.places[(hash >> 40) % (PathCache::kPlaces / 2) * 2];
}

FileObject* FindRemembered(StorageContext* context, WStringView path) {
    const PathCache::Place* const pair = PairOf(context, path);
    for (const PathCache::Place* place : {pair, pair + 1})
        if (place->epoch == context->objects->paths.epoch && place->path.units == path.size() &&
            place->caseSensitive == context->caseSensitive &&
            std::memcmp(place->path.text, path.data(), path.size() * sizeof(WChar)) == 0)
            return place->directory;
    return nullptr;
}

void Remember(StorageContext* context, WStringView path, FileObject* directory) {
    if (path.size() > kMaxRememberedUnits) return;
    PathCache::Place* const place = PairOf(context, path);
    std::swap(place[0], place[1]);
    place->epoch = 0;
    if (!AssignText(&place->path, path)) return;  // then the next walk takes every step again
    place->directory = directory;
    place->caseSensitive = context->caseSensitive;
    place->epoch = context->objects->paths.epoch;
    context->objects->paths.anyFilled = true;
    for (FileObject* on = directory; on != nullptr; on = on->parent) on->flags |= kObjectRemembered;
}

// One walk from the root, until its end or a link that must be followed.
struct Walk {
    StorageContext* context;
    StorageTransaction* transaction;
    PathText path;
    bool parentMode;
    bool followLastLink;
    bool mayRemember;          // no link was followed so far, and the cache did not know it
    FileObject* at = nullptr;  // with a reference on it and each ancestor
    size_t component = 0;      // the component that `at` was reached by, or that is wanted in it
    size_t componentEnd = 0;
    bool atLink = false;

    void Start() {
        const size_t last = path.LastComponent();
        const WStringView directory = path.text.substr(0, last);
        at = mayRemember ? FindRemembered(context, directory) : nullptr;
        component = last;
        if (at == nullptr) {
            at = context->objects->root;
            component = path.SkipSeparators(0);
        } else {
            mayRemember = false;
        }
        componentEnd = path.ComponentEnd(component);
        AddReferenceChain(at);
    }
    bool IsLast() const { return path.SkipSeparators(componentEnd) == path.text.size(); }
    WStringView Name() const { return path.text.substr(component, componentEnd - component); }

    void Abandon() {
        ReleaseObjectChain(at);
        at = nullptr;
    }
    Status Step(bool last) {
        FileObject* child = nullptr;
        const Status status = OpenChild(at, Name(), &child, kNotFound, transaction);
        if (status != kOk) return status;
        at = child;
        atLink = (child->entry->attributes & kAttrLink) != 0 && (!last || followLastLink);
        return kOk;
    }
    // kOk at the end of the path or (atLink) at a link.
    Status Run() {
        Start();
        for (;;) {
            const bool last = IsLast();
            if (last && mayRemember && at->parent != nullptr)
                Remember(context, path.text.substr(0, component), at);
            if (last && parentMode) return kOk;
            const Status status = Step(last);
            if (status != kOk) {
                Abandon();
                return status;
            }
            if (last || atLink) return kOk;
            component = path.SkipSeparators(componentEnd);
            componentEnd = path.ComponentEnd(component);
        }
    }
};

// Puts the link's target in the place of the path's text up to it. The walk's references are
// given back.
Status ReplaceLink(Walk* walk, ResolvedPath* resolved) {
    const WStringView text = walk->path.text;
    WStringView target;
    WChar* path = nullptr;
    Status status = ReadLinkTarget(walk->at, &target);
    if (status == kOk)
        status = NormalizePath(&path, walk->path.separator, text.substr(0, walk->component), target,
                               text.substr(walk->componentEnd));
    walk->Abandon();
    if (status != kOk) return status;
    platform::HeapRelease(resolved->storage);  // the text until now
    resolved->storage = path;
    return kOk;
}

Status FinalStatus(Status status, bool parentMode, uint32_t links) {
    if (status != kNotFound) return status;
    if (links > 0) return kBadPath;
    return parentMode ? kParentMissing : kNotFound;
}

}  // namespace

ResolvedPath::~ResolvedPath() {
    platform::HeapRelease(storage);
}

Status ResolvePath(StorageContext* context, const WChar* path, bool parentMode, bool wantsPrefix,
                   bool followLastLink, ResolvedPath* resolved, StorageTransaction* transaction) {
    WStringView text{path, platform::Length(path)};
    for (uint32_t links = 0;;) {
        Walk walk{context,    transaction,    {text, context->separator},
                  parentMode, followLastLink, links == 0};
        if (walk.path.SkipSeparators(0) == text.size()) {  // the root
            if (parentMode || wantsPrefix) return links > 0 ? kBadPath : kNotFound;
            resolved->object = context->objects->root;
            AddReference(resolved->object);
            return kOk;
        }
        Status status = walk.Run();
        if (status != kOk) return FinalStatus(status, parentMode, links);
        if (!walk.atLink) {
            resolved->object = walk.at;
            resolved->lastName = walk.Name();
            resolved->prefix = text.substr(0, walk.component);
            return kOk;
        }
        status = ReplaceLink(&walk, resolved);
        if (status != kOk) return status;
        if (++links == kMaxLinks) return kBadPath;
        text = {resolved->storage, platform::Length(resolved->storage)};
    }
}

}  // namespace storage
