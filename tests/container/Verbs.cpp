// SPDX-License-Identifier: MIT
#include "tests/container/Verbs.h"

#include <algorithm>

#include "storage/namespace/Directory.h"
#include "storage/namespace/Path.h"

namespace support::container {

using namespace storage;
using contract::Words;
using platform::WChar;
using platform::WString;

namespace {

bool Has(const Words& words, const WChar* word) {
    return std::count(words.begin(), words.end(), WString(word)) != 0;
}

Status Create(EngineStore& store, const Words& words) {
    FileHandle* file = reinterpret_cast<FileHandle*>(1);
    const bool read = words[2] == WTEXT("read");
    const Status status = StorageCreateFile(store, words[1].c_str(), 1, !read, 0, 0, 0, nullptr, 0,
                                            &file, !words[2].empty(), read);
    EXPECT_EQ(file == nullptr, status != kOk);
    if (status == kOk) StorageCloseFile(file);
    return status;
}

Status Find(EngineStore& store, const Words& words, std::string* names) {
    const uint32_t flags = (Has(words, WTEXT("full")) ? kFindFullName : 0u) |
                           (Has(words, WTEXT("dots")) ? kFindWithDots : 0u) |
                           (Has(words, WTEXT("times")) ? kFindTimes : 0u);
    const auto mask = static_cast<uint32_t>(std::stoul(platform::ToUtf8(words[2])));
    StorageSearchStruct record{};
    names->clear();
    Status status =
        StorageFindFirst(store, &record, words[1].c_str(), mask, static_cast<int32_t>(flags));
    for (; status == kOk; status = StorageFindNext(store, &record))
        *names += (names->empty() ? "" : " ") +
                  platform::ToUtf8((flags & kFindFullName) != 0 ? record.fullName : record.name);
    if (status == kNoMore) {
        EXPECT_EQ(StorageFindNext(store, &record), kNoMore) << "once and for all";
    }
    EXPECT_EQ(StorageFindClose(store, &record), kOk);
    return status == kNoMore ? Status{kOk} : status;
}

Status Join(const Words& parts, std::string* joined) {
    WChar* path = nullptr;
    const Status status =
        NormalizePath(&path, '\\', parts[1].c_str(), parts[2].c_str(), parts[3].c_str());
    EXPECT_EQ(path == nullptr, status != kOk);
    *joined = path == nullptr ? "" : platform::ToUtf8(path);
    platform::HeapRelease(path);
    return status;
}

// Writes data behind an offset, piece for piece, or cuts to one size and the next.
Status ByHandle(EngineStore& store, const Words& words, bool writes) {
    EngineFile file(store, ToUnits(words[1].c_str()));
    Status status = file.Opened();
    if (status != kOk) return status;
    const auto text = [&](size_t i) { return platform::ToUtf8(words[i]); };
    if (writes) file.SeekFar(std::stoul(text(2)));
    for (size_t i = writes ? 3 : 2; i < words.size() && status == kOk; ++i)
        status = writes ? file.Write(contract::DataOf(text(i))) : file.SetSize(std::stoul(text(i)));
    const Status closed = file.Close();
    return status != kOk ? status : closed;
}

Status PutWhole(EngineStore& store, const Words& words) {
    const Bytes body = contract::DataOf(platform::ToUtf8(words[3]));
    const Status status = PutAt(store, words[1].c_str(), words[2],
                                {"head", 4, body.data(), static_cast<uint32_t>(body.size())});
    // Who cannot do it in one step goes the long way, and is told the reason there.
    return status == kNotPlain ? Status{kNoMemory} : status;
}

}  // namespace

Status Do(EngineStore& store, const Words& line, std::string* told) {
    const std::string verb = platform::ToUtf8(line.at(0));
    *told = "0";
    if (verb == "write" || verb == "cut") return ByHandle(store, line, verb == "write");
    Words words = line;
    words.resize(std::max<size_t>(words.size(), 4));
    const WChar* path = words[1].c_str();
    const std::u16string at = ToUnits(path);
    if (verb == "make") return store.MakeDirectory(at);
    if (verb == "put") return store.Put(at, contract::DataOf(platform::ToUtf8(words[2])));
    if (verb == "put-whole") return PutWhole(store, words);
    if (verb == "create") return Create(store, words);
    if (verb == "delete") return store.Delete(at);
    if (verb == "move") return store.Move(at, ToUnits(words[2].c_str()));
    if (verb == "case") return StorageSetCaseSensitive(store, !at.empty());
    if (verb == "compact") return StorageCompact(store, nullptr);
    if (verb == "find") return Find(store, words, told);
    if (verb == "join") return Join(words, told);
    if (verb == "delete-with-files") {
        store.Container()->containerLock.AssertAlone();
        return DeleteWithFilesAt(store, path);
    }
    Status status = kOk;
    if (verb == "text") {
        Bytes body;
        status = store.Get(at, &body);
        *told = std::string(body.begin(), body.end());
    } else if (verb == "attributes") {
        uint32_t attributes = 0;
        status = store.Attributes(at, &attributes);
        *told = "+" + std::to_string(attributes);
    } else if (verb == "empty") {
        uint8_t empty = 7;
        status = StorageIsDirectoryEmpty(store, path, &empty);
        *told = empty != 0 ? "yes" : "no";
    } else if (verb == "times") {
        double created = 0;
        status = StorageGetFileTimes(store, path, &created, nullptr, nullptr);
        *told = std::to_string(created);
    } else {
        EXPECT_EQ(verb, "match");
        *told = MatchPattern(words[2], words[1], false) ? "yes" : "no";
    }
    return status;
}

}  // namespace support::container
