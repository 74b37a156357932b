// SPDX-License-Identifier: MIT
#include "tests/container/EngineStore.h"

#include <algorithm>
#include <cstdlib>

#include "storage/namespace/Lookup.h"
#include "tests/container/Promise.h"

namespace support::container {

using storage::Status;

namespace {

constexpr uint16_t kSeparator = '\\';
constexpr uint32_t kChunk = 4096;

void Gather(const Item& directory, const std::u16string& path, bool links, Content* content) {
    for (const Item& item : directory.children) {
        if (item.kind == ItemKind::Link && !links) continue;
        const std::u16string below = path + u"\\" + item.name;
        std::optional<Bytes>& body = (*content)[below] = std::nullopt;
        if (item.kind == ItemKind::Directory)
            Gather(item, below, links, content);
        else
            body.emplace(item.body).resize(item.size.value_or(item.body.size()));
    }
}

}  // namespace

Content ContentOf(const Item& root, bool links) {
    Content content;
    Gather(root, u"", links, &content);
    return content;
}

EngineStore::EngineStore(uint32_t pageSize) {
    dir_.emplace();
    EXPECT_EQ(Create(*dir_ / "c.dat", pageSize), storage::kOk);
}

EngineStore::EngineStore(const Bytes& file) {
    dir_.emplace();
    WriteBytes(*dir_ / "c.dat", file);
    EXPECT_EQ(Open(*dir_ / "c.dat"), storage::kOk);
}

Status EngineStore::Open(const std::filesystem::path& path) {
    const Status closed = Close();
    path_ = path;
    const Status status =
        storage::StorageOpen(Wide(path).c_str(), &container_, kSeparator, nullptr, 0);
    return closed != storage::kOk ? closed : status;
}

Status EngineStore::Create(const std::filesystem::path& path, uint32_t pageSize, bool overwrite,
                           const std::u16string& banner) {
    Close();
    path_ = path;
    return storage::StorageCreate(Wide(path).c_str(), overwrite, pageSize, ToWide(banner).c_str(),
                                  &container_, kSeparator, nullptr, 0);
}

Reading EngineStore::ReadSound() {
    EXPECT_EQ(Close(), storage::kOk);
    Reading reading = container::ReadSound(path_, FileBytes());
    EXPECT_EQ(Reopen(), storage::kOk);
    return reading;
}

Status EngineStore::Put(const std::u16string& path, const Bytes& body) {
    storage::FileHandle* file = nullptr;
    Status status = storage::StorageCreateFile(container_, ToWide(path).c_str(), 1, 1, 0, 0, 0,
                                               WTEXT(""), 0, &file, 1, 1);
    if (status != storage::kOk) return status;
    uint32_t done = 0;
    if (!body.empty())
        status =
            storage::StorageWriteFile(file, body.data(), static_cast<uint32_t>(body.size()), &done);
    const Status closed = storage::StorageCloseFile(file);
    return status != storage::kOk ? status : closed;
}

Status EngineStore::Get(const std::u16string& path, Bytes* body, size_t limit) {
    body->clear();
    EngineFile file(*this, path, false);
    if (file.Opened() != storage::kOk) return file.Opened();
    Status status = storage::kOk;
    while (status == storage::kOk && body->size() < limit) {
        uint8_t chunk[kChunk];
        uint32_t done = 0;
        status = storage::StorageReadFile(file.Handle(), chunk, kChunk, &done);
        body->insert(body->end(), chunk, chunk + std::min(done, kChunk));
        if (status == storage::kOk && done == 0) break;
    }
    const Status closed = file.Close();
    if (status == storage::kEndOfData) status = storage::kOk;
    return status != storage::kOk ? status : closed;
}

Bytes EngineStore::Body(const std::u16string& path) {
    Bytes body;
    EXPECT_EQ(Get(path, &body), storage::kOk) << Narrow(path);
    return body;
}

Status EngineStore::List(const std::u16string& directory,
                         std::vector<std::pair<std::u16string, uint32_t>>* entries, size_t limit) {
    entries->clear();
    storage::StorageSearchStruct record{};
    Status status = storage::StorageFindFirst(container_, &record,
                                              ToWide(directory + u"\\*").c_str(), 0xFFFFFFFF, 0);
    while (status == storage::kOk && entries->size() < limit) {
        entries->emplace_back(ToUnits(record.name), record.attributes);
        status = storage::StorageFindNext(container_, &record);
    }
    storage::StorageFindClose(container_, &record);
    return status == storage::kNoMore ? storage::kOk : status;
}

Content EngineStore::ReadAll(Failures* failures, size_t limit, int depth) {
    Failures ignored;
    Content content;
    ReadBelow(u"", failures == nullptr ? &ignored : failures, limit, depth, &content);
    return content;
}

void EngineStore::ReadBelow(const std::u16string& path, Failures* failures, size_t limit, int depth,
                            Content* content) {
    const auto expect = [&](const std::u16string& what, Status status) {
        if (status != storage::kOk) failures->emplace_back(Narrow(what), status);
    };
    std::vector<std::pair<std::u16string, uint32_t>> entries;
    expect(path, List(path, &entries));
    for (const auto& [name, attributes] : entries) {
        if ((attributes & storage::kAttrLink) != 0) continue;
        const std::u16string child = std::u16string(path).append(u"\\").append(name);
        std::optional<Bytes>& body = (*content)[child] = std::nullopt;
        // No path leads to a name without units, or one of a path's own.
        if (name.empty() || name[0] == '.' || name.find(u'\\') != name.npos) continue;
        if ((attributes & storage::kAttrDirectory) == 0)
            expect(child, Get(child, &body.emplace(), limit));
        else if (depth > 0)
            ReadBelow(child, failures, limit, depth - 1, content);
    }
}

Status EngineFile::Read(uint32_t count, Bytes* bytes) {
    bytes->assign(count, 0xCD);
    uint32_t done = 0;
    const Status status = storage::StorageReadFile(file_, bytes->data(), count, &done);
    EXPECT_LE(done, count);
    bytes->resize(done);
    return status;
}

storage::Status PutAt(EngineStore& store, const platform::WChar* directory,
                      platform::WStringView name, const storage::FileContent& content) {
    store.Container()->containerLock.AssertAlone();
    const bool alone = store.Container()->batch == nullptr;
    Status status = alone ? storage::BeginBatch(store) : storage::kOk;
    if (status != storage::kOk) return status;
    storage::DirectoryHint hint;
    storage::FileObject* object = storage::FindLoadedDirectory(store.Container(), directory, &hint);
    bool aside = false;
    status = object == nullptr ? storage::kNotPlain
                               : storage::PutFile(object, name, content, {}, &aside);
    if (!alone) return status;
    const Status ended = storage::EndBatch(store, status == storage::kOk);
    return status != storage::kOk ? status : ended;
}

uint32_t LongTests() {
    const char* times = std::getenv("ZRFS_LONG_TESTS");
    const int value = times == nullptr ? 1 : std::atoi(times);
    return static_cast<uint32_t>(std::max(value, 1));
}

uint32_t Rounds(uint32_t rounds) {
#ifdef __SANITIZE_ADDRESS__
    constexpr uint32_t kSlower = 6;
#else
    constexpr uint32_t kSlower = 1;
#endif
    return LongTests() > 1 ? rounds * LongTests() : (rounds + kSlower - 1) / kSlower;
}

}  // namespace support::container
