// SPDX-License-Identifier: MIT
// Second pass: the pages of a stream, by their chain and by their index. Both must say the same;
// where they do not, the one that tells of more pages is believed.
#include "storage/check/CheckRun.h"

namespace storage {

namespace {

struct StreamWalk {
    CheckRun* run;
    const CheckStream& stream;
    uint32_t fileId;
    NumberList chain;   // pages as the chain has them
    NumberList listed;  // pages as the index has them, 0 for a hole
    NumberList indexPages;

    PageDigest& Digest(uint32_t page) { return run->digests[page]; }
    bool Set(uint32_t page, uint32_t* field, uint32_t value) {
        if (*field == value) return false;
        *field = value;
        NoteChange(run, page);
        return true;
    }
    void Change(uint32_t page, uint32_t* field, uint32_t value) {
        if (Set(page, field, value)) TellBadLink(run, page);
    }

    bool NextLevelIsGood(uint32_t level, uint32_t before) const;
    Status ReadChain();
    Status ReadIndex(bool* good);
    bool ListedIsGood(uint32_t ordinal, uint32_t page, uint32_t indexPage);
    bool Agree() const;
    void Relink();
    void ClaimPages(bool indexed);
    uint32_t CountListed() const;
    uint32_t RightInfo(uint32_t place) const;
    void ThrowOutIndex();
};

// Told of where the index is, and where it is referred to; nothing is left that it says of itself.
void StreamWalk::ThrowOutIndex() {
    TellBadLink(run, stream.index);
    TellBadLink(run, stream.indexOwner);
    PageDigest& digest = Digest(stream.index);
    digest.prevPage = digest.nextPage = digest.listPage = 0;
}

bool StreamWalk::NextLevelIsGood(uint32_t level, uint32_t before) const {
    if (level == before + 1) return true;
    return stream.pagesPerBlock > 1 && level > before &&
           level == (before / stream.pagesPerBlock + 1) * stream.pagesPerBlock;
}

// The first page is claimed; the others only have to be possible, and rise in level so that the
// chain ends. In a plain stream a page's level follows from its place.
Status StreamWalk::ReadChain() {
    Change(stream.first, &Digest(stream.first).level, 0);
    for (uint32_t page = stream.first;;) {
        if (!chain.Add(page)) return kNoMemory;
        const PageDigest& digest = Digest(page);
        const uint32_t next = digest.nextPage;
        if (next == 0 || !CanClaim(run, next, page, stream.kind, fileId)) return kOk;
        if (!NextLevelIsGood(Digest(next).level, digest.level)) {
            if (stream.pagesPerBlock > 1 || chain.Count() >= run->pages) return kOk;
            Change(next, &Digest(next).level, digest.level + 1);
        }
        page = next;
    }
}

bool StreamWalk::ListedIsGood(uint32_t ordinal, uint32_t page, uint32_t indexPage) {
    if (page <= kSuperblockNumber || page >= run->pages || run->context->IsMapPage(page))
        return false;
    const PageDigest& digest = Digest(page);
    return digest.pageNumber == page && digest.kind == stream.kind && digest.fileId == fileId &&
           digest.level == ordinal && digest.listPage == indexPage &&
           (page == stream.first || (run->marks[page] & kMarkInUse) == 0);
}

// *good tells whether the index is whole and each of its slots right.
Status StreamWalk::ReadIndex(bool* good) {
    *good = false;
    const uint32_t slots = run->context->payloadSize / 4;
    uint32_t from = stream.indexOwner;
    for (uint32_t page = stream.index; page != 0; page = Digest(page).nextPage) {
        if (!CanClaim(run, page, from, kPageListPage, fileId) ||
            Digest(page).level != indexPages.Count())
            return kOk;
        const Status status = LoadChecked(run, page, run->header);
        if (status != kOk) return status;
        if (!indexPages.Add(page)) return kNoMemory;
        for (uint32_t i = 0; i < slots; ++i) {
            const uint32_t number = LoadU32(run->header, kPageHeaderSize + 4 * i);
            if (number != 0 && !ListedIsGood(listed.Count(), number, page)) return kOk;
            if (!listed.Add(number)) return kNoMemory;
        }
        from = page;
    }
    while (!listed.Empty() && listed.Last() == 0) listed.Truncate(listed.Count() - 1);
    *good = !listed.Empty() && listed[0] == stream.first;
    for (uint32_t i = 0, before = 0; *good && i < listed.Count(); ++i) {
        if (i == 0 || listed[i] == 0) continue;
        *good = NextLevelIsGood(i, before);
        before = i;
    }
    return kOk;
}

uint32_t StreamWalk::CountListed() const {
    uint32_t count = 0;
    for (uint32_t i = 0; i < listed.Count(); ++i) count += listed[i] != 0;
    return count;
}

bool StreamWalk::Agree() const {
    uint32_t place = 0;
    for (uint32_t i = 0; i < listed.Count(); ++i) {
        if (listed[i] == 0) continue;
        if (place >= chain.Count() || chain[place++] != listed[i]) return false;
    }
    return place == chain.Count();
}

// The chain as the index has it.
void StreamWalk::Relink() {
    uint32_t before = 0;
    for (uint32_t i = 0; i < listed.Count(); ++i) {
        const uint32_t page = listed[i];
        if (page == 0) continue;
        if (before != 0) {
            // A link that is wrong at one end is told of at both.
            const bool held = Digest(before).nextPage == page && Digest(page).prevPage == before;
            if (!held) {
                TellBadLink(run, before);
                TellBadLink(run, page);
            }
            Set(before, &Digest(before).nextPage, page);
            Set(page, &Digest(page).prevPage, before);
        }
        before = page;
    }
    Change(before, &Digest(before).nextPage, 0);
}

// What the chain's page there can have for recordInfo: nothing in a plain stream; in a coded one no
// more than fits into a page, and only in the last page of a block less. The page beside it in the
// block tells whether that is coded.
uint32_t StreamWalk::RightInfo(uint32_t place) const {
    if (stream.method == 0) return 0;
    const auto info = [this](uint32_t at) { return run->RecordInfo(chain[at]); };
    const auto block = [this](uint32_t at) {
        return run->digests[chain[at]].level / stream.pagesPerBlock;
    };
    const uint32_t own = info(place), full = run->context->payloadSize;
    if (own == 0 || own == full) return own;
    if (place + 1 < chain.Count() && block(place) == block(place + 1))
        return info(place + 1) != 0 ? full : 0;
    if (own < full) return own;
    return place > 0 && block(place - 1) == block(place) && info(place - 1) != 0 ? full : 0;
}

void StreamWalk::ClaimPages(bool indexed) {
    const uint32_t slots = run->context->payloadSize / 4;
    for (uint32_t i = 0; i < chain.Count(); ++i) {
        const uint32_t page = chain[i];
        PageDigest& digest = Digest(page);
        Change(page, &digest.parentId, (digest.parentId & 0xFFFF) | RightInfo(i) << 16);
        // With an index that is thrown out the references to it go without a word.
        if (!indexed && stream.index != 0 && digest.listPage != 0) {
            digest.listPage = 0;
            NoteChange(run, page);
        }
        const uint32_t listPage = indexed ? indexPages[digest.level / slots] : 0;
        if (page == stream.first)
            Change(page, &digest.listPage, listPage);
        else
            Claim(run, page, listPage);
    }
    const uint32_t last = chain.Last();
    Change(last, &Digest(last).nextPage, 0);
    for (uint32_t i = 0; indexed && i < indexPages.Count(); ++i) Claim(run, indexPages[i], 0);
}

}  // namespace

Status CheckStreamPages(CheckRun* run, CheckStream* stream, bool* indexIsGood) {
    *indexIsGood = stream->index == 0;
    if (stream->first == 0) {
        if (stream->index != 0) StreamWalk{run, *stream, 0, {}, {}, {}}.ThrowOutIndex();
        const uint64_t block = uint64_t{stream->pagesPerBlock} * run->context->payloadSize;
        const bool coded = stream->inlineInfo != 0 && stream->method != 0;
        stream->stored = coded ? block : stream->inlineSize;
        return kOk;
    }
    StreamWalk walk{run, *stream, run->digests[stream->first].fileId, {}, {}, {}};
    Status status = walk.ReadChain();
    bool indexed = false;
    if (status == kOk && stream->index != 0) status = walk.ReadIndex(&indexed);
    if (status != kOk) return status;
    if (indexed && !walk.Agree()) {
        indexed = walk.CountListed() >= walk.chain.Count();
        if (indexed) {
            walk.Relink();
            walk.chain.Clear();
            for (const uint32_t page : walk.listed)
                if (page != 0 && !walk.chain.Add(page)) return kNoMemory;
        }
    }
    if (stream->index != 0 && !indexed) walk.ThrowOutIndex();
    *indexIsGood = stream->index == 0 || indexed;
    walk.ClaimPages(indexed);
    const uint64_t blocks = run->digests[walk.chain.Last()].level / stream->pagesPerBlock + 1;
    stream->stored = blocks * stream->pagesPerBlock * run->context->payloadSize;
    return kOk;
}

}  // namespace storage
