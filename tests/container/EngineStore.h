// SPDX-License-Identifier: MIT
// A container in the engine's hands, in few words for tests.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "storage/StorageApi.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/Search.h"
#include "storage/namespace/Stream.h"
#include "tests/support/ContainerBuilder.h"
#include "tests/support/ContainerReader.h"

namespace support::container {

inline std::u16string ToUnits(const platform::WChar* text) {
    return std::u16string(text, text + platform::Length(text));
}
inline std::u16string ToUnits(const std::string& ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}
inline std::string Narrow(const std::u16string& text) {
    return platform::ToUtf8(ToWide(text));
}

// Path to content; directories have none. The root is not in it.
using Content = std::map<std::u16string, std::optional<Bytes>>;
// Paths that could not be read, and what was said.
using Failures = std::vector<std::pair<std::string, storage::Status>>;

// What a tree holds; links are left out unless `links`.
Content ContentOf(const Item& root, bool links = true);

class EngineStore {
  public:
    EngineStore() = default;
    // A fresh container, or one laid out by hand, in a folder of its own.
    explicit EngineStore(uint32_t pageSize);
    explicit EngineStore(const Bytes& file);
    ~EngineStore() { Close(); }
    EngineStore(const EngineStore&) = delete;
    EngineStore& operator=(const EngineStore&) = delete;

    storage::Status Open(const std::filesystem::path& path);
    storage::Status Create(const std::filesystem::path& path, uint32_t pageSize = 512,
                           bool overwrite = false, const std::u16string& banner = {});
    storage::Status Close() {
        return container_ == nullptr ? storage::kOk
                                     : storage::StorageClose(std::exchange(container_, nullptr));
    }
    storage::Status Reopen() { return Open(path_); }
    storage::StorageContext* Container() const { return container_; }
    operator storage::StorageContext*() const { return container_; }

    const std::filesystem::path& Path() const { return path_; }
    Bytes FileBytes() const { return ReadBytes(path_); }
    // Closes the container, reads it with other eyes, finds it sound, and opens it again.
    Reading ReadSound();

    // A file made or emptied, and written; read as a whole, up to `limit` bytes.
    storage::Status Put(const std::u16string& path, const Bytes& body);
    storage::Status Get(const std::u16string& path, Bytes* body, size_t limit = 1 << 24);
    // The content of a file, empty when it cannot be read, which fails the test.
    Bytes Body(const std::u16string& path);
    storage::Status MakeDirectory(const std::u16string& path) {
        return storage::StorageCreateDirectory(container_, ToWide(path).c_str());
    }
    storage::Status Delete(const std::u16string& path) {
        return storage::StorageDeleteFile(container_, ToWide(path).c_str());
    }
    storage::Status Move(const std::u16string& from, const std::u16string& to) {
        return storage::StorageMoveFile(container_, ToWide(from).c_str(), ToWide(to).c_str());
    }
    storage::Status Attributes(const std::u16string& path, uint32_t* attributes = nullptr) {
        uint32_t ignored = 0;
        return storage::StorageGetFileAttributes(container_, ToWide(path).c_str(),
                                                 attributes != nullptr ? attributes : &ignored);
    }
    bool Has(const std::u16string& path) { return Attributes(path) == storage::kOk; }
    // Names and attributes in the order of the search, up to `limit`.
    storage::Status List(const std::u16string& directory,
                         std::vector<std::pair<std::u16string, uint32_t>>* entries,
                         size_t limit = 1 << 20);
    // All that can be reached, links left out, up to `limit` bytes of each file. What no path leads
    // to is listed only.
    Content ReadAll(Failures* failures = nullptr, size_t limit = 1 << 24, int depth = 600);

  private:
    void ReadBelow(const std::u16string& path, Failures* failures, size_t limit, int depth,
                   Content* content);

    std::optional<TempDir> dir_;
    std::filesystem::path path_;
    storage::StorageContext* container_ = nullptr;
};

// An open file handle.
class EngineFile {
  public:
    EngineFile(const EngineStore& store, const std::u16string& path, bool write = true,
               bool denyRead = false, bool denyWrite = false, bool read = true)
        : opened_(storage::StorageOpenFile(store, ToWide(path).c_str(), read, write, denyRead,
                                           denyWrite, WTEXT(""), 0, &file_)) {}
    ~EngineFile() { Close(); }
    EngineFile(const EngineFile&) = delete;
    EngineFile& operator=(const EngineFile&) = delete;

    storage::Status Opened() const { return opened_; }
    storage::FileHandle* Handle() const { return file_; }
    storage::FileObject* Object() const { return file_->object; }
    storage::Status Write(const Bytes& bytes) {
        uint32_t done = 0;
        return storage::StorageWriteFile(file_, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                         &done);
    }
    // What there is of `count` bytes.
    storage::Status Read(uint32_t count, Bytes* bytes);
    storage::Status Seek(int32_t offset, uint16_t origin = 0) {
        uint32_t position = 0;
        return storage::StorageSeekFile(file_, offset, origin, &position);
    }
    // Positions and sizes that no public operation reaches.
    void SeekFar(uint64_t position) { file_->position = position; }
    storage::Status SetSize(uint64_t size) {
        return storage::SetFileSize(Object(), size, Object()->transaction);
    }
    storage::Status Close() {
        return file_ == nullptr ? storage::kOk
                                : storage::StorageCloseFile(std::exchange(file_, nullptr));
    }
    // The container is closed, and its handles with it.
    void LetGo() { file_ = nullptr; }

  private:
    storage::FileHandle* file_ = nullptr;
    storage::Status opened_;
};

// Turns the long form of seeded tests on: ZRFS_LONG_TESTS holds how many times as long they run.
uint32_t LongTests();
// How many rounds a seeded test does that does `rounds` in the short form: fewer under the
// sanitizers, which are slow, and more in the long form.
uint32_t Rounds(uint32_t rounds);

// PutFile in the directory at a path; nobody else is at the store.
storage::Status PutAt(EngineStore& store, const platform::WChar* directory,
                      platform::WStringView name, const storage::FileContent& content);

}  // namespace support::container
