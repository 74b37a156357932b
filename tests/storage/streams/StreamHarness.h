// A container in a folder of its own, and files in it, through the engine's public operations.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include <cstring>
#include <utility>

#include "storage/StorageApi.h"
#include "storage/namespace/Stream.h"
#include "tests/support/ContainerBytes.h"
#include "tests/support/ContainerReader.h"
#include "tests/support/TempDir.h"

namespace streams {

using platform::WString;
using storage::FileHandle;
using storage::Status;
using storage::StorageContext;
using support::Bytes;

inline WString Wide(const char* text) {
    return WString(text, text + std::strlen(text));
}

// Bytes that differ from place to place.
inline Bytes Pattern(size_t size, uint32_t seed = 1) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(seed >> 24);
    }
    return bytes;
}

// An open file. Every call expects success unless it hands the status out.
class File {
  public:
    explicit File(FileHandle* handle) : handle_(handle) {}
    File(File&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    File& operator=(File&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~File() {
        if (handle_ != nullptr) storage::StorageCloseFile(handle_);
    }
    FileHandle* Handle() { return handle_; }
    storage::FileObject* Object() { return handle_->object; }

    void Seek(uint64_t position) { handle_->position = position; }
    Status TryWrite(const Bytes& bytes) {
        uint32_t done = 0;
        return storage::StorageWriteFile(handle_, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                         &done);
    }
    void Write(const Bytes& bytes) { ASSERT_EQ(TryWrite(bytes), 0); }
    // What there is of `count` bytes.
    Status TryRead(uint32_t count, Bytes* bytes) {
        bytes->assign(count, 0xCD);
        uint32_t done = 0;
        const Status status = storage::StorageReadFile(handle_, bytes->data(), count, &done);
        EXPECT_LE(done, count);
        bytes->resize(done);
        return status;
    }
    Bytes Read(uint32_t count) {
        Bytes bytes;
        const Status status = TryRead(count, &bytes);
        EXPECT_EQ(status, bytes.empty() && count != 0 ? storage::kEndOfData : 0);
        return bytes;
    }
    // What no public operation does to an open file.
    void SetStreamEnd(uint64_t end) {
        ASSERT_EQ(storage::SetStreamEnd(Object(), end, &handle_->block, Object()->transaction), 0);
    }
    void SetSize(uint64_t size) {
        ASSERT_EQ(storage::SetFileSize(Object(), size, Object()->transaction), 0);
    }
    Status Close() {
        FileHandle* handle = handle_;
        handle_ = nullptr;
        return storage::StorageCloseFile(handle);
    }

  private:
    FileHandle* handle_;
};

class Store {
  public:
    explicit Store(uint32_t pageSize) : pageSize_(pageSize), path_(dir_.File("store")) {
        EXPECT_EQ(storage::StorageCreate(path_.c_str(), 1, pageSize, nullptr, &context_, '\\',
                                         nullptr, 0),
                  0);
    }
    // A container made elsewhere.
    Store(const Bytes& bytes, uint32_t pageSize) : pageSize_(pageSize), path_(dir_.File("store")) {
        support::WriteBytes(dir_ / "store", bytes);
        Open();
    }
    ~Store() { Close(); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    uint32_t Payload() const { return pageSize_ - 32; }
    StorageContext* Context() { return context_; }
    Status TryOpen() { return storage::StorageOpen(path_.c_str(), &context_, '\\', nullptr, 0); }
    void Open() { EXPECT_EQ(TryOpen(), 0); }
    void Close() {
        if (context_ != nullptr) storage::StorageClose(context_);
        context_ = nullptr;
    }
    void Reopen() {
        Close();
        Open();
    }
    Bytes FileBytes() { return support::ReadBytes(dir_ / "store"); }
    // Closes the container and looks at its bytes.
    support::container::Reading Closed() {
        Close();
        return support::container::ReadContainer(FileBytes());
    }

    Status TryCreate(const char* name, bool truncate, FileHandle** handle) {
        return storage::StorageCreateFile(context_, Wide(name).c_str(), 1, 1, 0, 0, 0, WTEXT(""), 0,
                                          handle, 1, truncate);
    }
    // An existing file keeps its bytes unless `truncate`.
    File Create(const char* name, bool truncate = false) {
        FileHandle* handle = nullptr;
        EXPECT_EQ(TryCreate(name, truncate, &handle), 0);
        return File(handle);
    }
    Status TryOpenFile(const char* name, bool write, FileHandle** handle) {
        return storage::StorageOpenFile(context_, Wide(name).c_str(), 1, write, 0, 0, WTEXT(""), 0,
                                        handle);
    }
    File OpenFile(const char* name, bool write = false) {
        FileHandle* handle = nullptr;
        EXPECT_EQ(TryOpenFile(name, write, &handle), 0);
        return File(handle);
    }
    void Put(const char* name, const Bytes& bytes) {
        File file = Create(name, true);
        file.Write(bytes);
        EXPECT_EQ(file.Close(), 0);
    }
    Bytes Get(const char* name) {
        File file = OpenFile(name);
        uint32_t size = 0;
        EXPECT_EQ(storage::StorageSeekFile(file.Handle(), 0, 2, &size), 0);
        file.Seek(0);
        return file.Read(size + 1);
    }
    Status Delete(const char* name) {
        return storage::StorageDeleteFile(context_, Wide(name).c_str());
    }

  private:
    support::TempDir dir_;
    uint32_t pageSize_;
    WString path_;
    StorageContext* context_ = nullptr;
};

}  // namespace streams
