// SPDX-License-Identifier: MIT
#include "tests/container/Verbs.h"

#include <algorithm>
#include <map>

#include "storage/namespace/Directory.h"
#include "storage/namespace/Path.h"
#include "storage/namespace/Stream.h"

namespace support::container {

using namespace storage;
using platform::WChar;
using platform::WString;
using support::Words;

namespace {

struct Call {
    Session& session;
    const Words& words;
    std::string* told;

    const WString& Word(size_t i) const {
        static const WString none;
        return i < words.size() ? words[i] : none;
    }
    std::string Plain(size_t i) const { return platform::ToUtf8(Word(i)); }
    const WChar* Wide() const { return Word(1).c_str(); }
    std::u16string Path(size_t i = 1) const { return ToUnits(Word(i).c_str()); }
    Bytes Data(size_t i) const { return DataIn(Plain(i), Payload()); }
    uint64_t Size(size_t i) const { return SizeIn(Plain(i), Payload()); }
    bool Has(const WChar* word) const {
        return std::count(words.begin(), words.end(), WString(word)) != 0;
    }
    size_t Payload() const { return session.pageSize - 32; }
    EngineStore& Store() const { return session.store; }
    EngineFile& File() const { return *session.file; }
    Status Tell(Status status, const std::string& value) const {
        *told = value;
        return status;
    }
};

Status Create(Call& c) {
    FileHandle* file = reinterpret_cast<FileHandle*>(1);
    const bool read = c.Plain(2) == "read", open = !c.Plain(2).empty();
    const Status status =
        StorageCreateFile(c.Store(), c.Wide(), 1, !read, 0, 0, 0, nullptr, 0, &file, open, read);
    EXPECT_EQ(file == nullptr, status != kOk);
    if (status == kOk) StorageCloseFile(file);
    return status;
}

Status Find(Call& c) {
    const uint32_t flags = (c.Has(WTEXT("full")) ? kFindFullName : 0u) |
                           (c.Has(WTEXT("dots")) ? kFindWithDots : 0u) |
                           (c.Has(WTEXT("times")) ? kFindTimes : 0u);
    StorageSearchStruct record{};
    c.told->clear();
    Status status = StorageFindFirst(c.Store(), &record, c.Wide(), static_cast<uint32_t>(c.Size(2)),
                                     static_cast<int32_t>(flags));
    for (; status == kOk; status = StorageFindNext(c.Store(), &record))
        *c.told += (c.told->empty() ? "" : " ") +
                   platform::ToUtf8((flags & kFindFullName) != 0 ? record.fullName : record.name);
    if (status == kNoMore) {
        EXPECT_EQ(StorageFindNext(c.Store(), &record), kNoMore) << "once and for all";
    }
    EXPECT_EQ(StorageFindClose(c.Store(), &record), kOk);
    return status == kNoMore ? Status{kOk} : status;
}

Status Join(Call& c) {
    WChar* path = nullptr;
    const Status status =
        NormalizePath(&path, '\\', c.Wide(), c.Word(2).c_str(), c.Word(3).c_str());
    EXPECT_EQ(path == nullptr, status != kOk);
    *c.told = path == nullptr ? "" : platform::ToUtf8(path);
    platform::HeapRelease(path);
    return status;
}

// Piece for piece behind an offset, or to one size and the next.
Status ByHandle(Call& c) {
    const bool writes = c.Plain(0) == "write";
    EngineFile file(c.Store(), c.Path());
    Status status = file.Opened();
    if (status != kOk) return status;
    if (writes) file.SeekFar(c.Size(2));
    for (size_t i = writes ? 3 : 2; i < c.words.size() && status == kOk; ++i)
        status = writes ? file.Write(c.Data(i)) : file.SetSize(c.Size(i));
    const Status closed = file.Close();
    return status != kOk ? status : closed;
}

Status PutWhole(Call& c) {
    const Bytes body = c.Data(3);
    const Status status = PutAt(c.Store(), c.Wide(), c.Word(2),
                                {"head", 4, body.data(), static_cast<uint32_t>(body.size())});
    // Who cannot do it in one step goes the long way, and is told the reason there.
    return status == kNotPlain ? Status{kNoMemory} : status;
}

Status Read(Call& c) {
    Bytes body;
    const Status status = c.Store().Get(c.Path(), &body);
    return c.Tell(status, DataTold(body));
}

Status Open(Call& c) {
    const bool read = c.Has(WTEXT("read")), write = c.Has(WTEXT("write"));
    c.session.file = std::make_unique<EngineFile>(c.Store(), c.Path(), write || !read, false,
                                                  c.Has(WTEXT("deny-write")), read || !write);
    return c.File().Opened();
}

Status Get(Call& c) {
    Bytes bytes;
    const Status status = c.File().Read(static_cast<uint32_t>(c.Size(1)), &bytes);
    EXPECT_TRUE(status == kOk || bytes.empty());
    return c.Tell(status, DataTold(bytes));
}

Status Stream(Call& c) {
    FileObject* object = c.File().Object();
    size_t pages = 0;
    for (const uint32_t page : object->pageList) pages += page != 0;
    return c.Tell(kOk, std::to_string(pages) + " " + std::to_string(object->pageListPages.Count()) +
                           " " + SizeTold(object->streamEnd, c.Payload()) + " " +
                           SizeTold(object->size, c.Payload()));
}

Status End(Call& c) {
    FileObject* object = c.File().Object();
    return SetStreamEnd(object, c.Size(1), &c.File().Handle()->block, object->transaction);
}

Status Sound(Call& c) {
    const Reading reading = c.Store().ReadSound();
    const Bytes& body = reading.At(c.Path())->body;
    EXPECT_EQ(c.Store().Body(c.Path()), body);
    return c.Tell(kOk, DataTold(body));
}

Status RecordOf(Call& c) {
    const Reading reading = c.Store().ReadSound();
    Bytes file = c.Store().FileBytes();
    uint8_t* page = file.data() + size_t{reading.At(c.Path())->headerPage} * reading.pageSize;
    if (reading.foreign) Convert(page, reading.pageSize, true);
    const uint8_t* record = RecordIn(page, DataRec);
    return c.Tell(kOk,
                  std::to_string(Get16(record, 2)) + (Get32(record, 8) != 0 ? " in pages" : ""));
}

Status Attributes(Call& c) {
    uint32_t attributes = 0;
    const Status status = c.Store().Attributes(c.Path(), &attributes);
    return c.Tell(status, "+" + std::to_string(attributes));
}

Status Empty(Call& c) {
    uint8_t empty = 7;
    const Status status = StorageIsDirectoryEmpty(c.Store(), c.Wide(), &empty);
    return c.Tell(status, empty != 0 ? "yes" : "no");
}

Status Times(Call& c) {
    double created = 0;
    const Status status = StorageGetFileTimes(c.Store(), c.Wide(), &created, nullptr, nullptr);
    return c.Tell(status, std::to_string(created));
}

Status Id(Call& c) {
    const EngineFile file(c.Store(), c.Path());
    uint32_t id = 0;
    const Status status = StorageGetFileId(file.Handle(), &id);
    return c.Tell(status, std::to_string(id));
}

Status DeleteWithFiles(Call& c) {
    c.Store().Container()->containerLock.AssertAlone();
    return DeleteWithFilesAt(c.Store(), c.Wide());
}

const std::map<std::string, Status (*)(Call&)> kVerbs = {
    {"attributes", Attributes},
    {"case", [](Call& c) { return StorageSetCaseSensitive(c.Store(), !c.Path().empty()); }},
    {"close", [](Call& c) { return c.File().Close(); }},
    {"compact", [](Call& c) { return StorageCompact(c.Store(), nullptr); }},
    {"create", Create},
    {"cut", ByHandle},
    {"delete", [](Call& c) { return c.Store().Delete(c.Path()); }},
    {"delete-with-files", DeleteWithFiles},
    {"empty", Empty},
    {"end", End},
    {"far", [](Call& c) { return c.File().SeekFar(c.Size(1)), Status{kOk}; }},
    {"find", Find},
    {"get", Get},
    {"id", Id},
    {"join", Join},
    {"make", [](Call& c) { return c.Store().MakeDirectory(c.Path()); }},
    {"match",
     [](Call& c) { return c.Tell(kOk, MatchPattern(c.Word(2), c.Word(1), false) ? "yes" : "no"); }},
    {"move", [](Call& c) { return c.Store().Move(c.Path(), c.Path(2)); }},
    {"open", Open},
    {"pages", [](Call& c) { return c.Tell(kOk, std::to_string(c.Store().ReadSound().pageCount)); }},
    {"put", [](Call& c) { return c.Store().Put(c.Path(), c.Data(2)); }},
    {"put-whole", PutWhole},
    {"read", Read},
    {"record", RecordOf},
    {"reopen", [](Call& c) { return c.Store().Reopen(); }},
    {"seek", [](Call& c) { return c.File().Seek(0, static_cast<uint16_t>(c.Size(2))); }},
    {"set", [](Call& c) { return c.File().Write(c.Data(1)); }},
    {"size", [](Call& c) { return c.File().SetSize(c.Size(1)); }},
    {"sound", Sound},
    {"stream", Stream},
    {"times", Times},
    {"used", [](Call& c) { return c.Tell(kOk, std::to_string(c.Store().ReadSound().usedPages)); }},
    {"write", ByHandle}};

}  // namespace

Status Session::Do(const Words& line, std::string* told) {
    *told = "0";
    Call call{*this, line, told};
    return kVerbs.at(platform::ToUtf8(line.at(0)))(call);
}

}  // namespace support::container
