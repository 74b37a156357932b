// A container of a test's own, driven through the public operations.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "storage/StorageApi.h"
#include "storage/core/Context.h"
#include "storage/core/Format.h"
#include "storage/namespace/FileObject.h"
#include "storage/namespace/Search.h"
#include "tests/support/ContainerBuilder.h"
#include "tests/support/ContainerReader.h"
#include "tests/support/TempDir.h"

namespace tests {

using namespace storage;
using platform::WString;
using support::Bytes;

inline WString Widen(const std::u16string& text) {
    return {text.begin(), text.end()};
}
inline std::u16string Narrow(const WString& text) {
    return {text.begin(), text.end()};
}
inline WString Repeat(WChar unit, size_t count) {
    return WString(count, unit);
}

// A container file, closed with the object. Separator is "\".
class Store {
  public:
    explicit Store(uint32_t pageSize = 512) {
        EXPECT_EQ(
            StorageCreate(Path().c_str(), 1, pageSize, nullptr, &container_, '\\', nullptr, 0),
            kOk);
    }
    // Opens a file that was laid out by hand.
    explicit Store(const Bytes& file) {
        support::WriteBytes(dir_ / "store", file);
        EXPECT_EQ(Open(), kOk);
    }
    ~Store() { Close(); }

    WString Path() const { return dir_.File("store"); }
    StorageContext* Get() const { return container_; }
    operator StorageContext*() const { return container_; }

    Status Open() { return StorageOpen(Path().c_str(), &container_, '\\', nullptr, 0); }
    Status Close() {
        if (container_ == nullptr) return kOk;
        const Status status = StorageClose(container_);
        container_ = nullptr;
        return status;
    }
    void Reopen() {
        EXPECT_EQ(Close(), kOk);
        ASSERT_EQ(Open(), kOk);
    }
    // Closes the container and reads it with other eyes.
    support::container::Reading Read() {
        EXPECT_EQ(Close(), kOk);
        return support::container::ReadContainer(support::ReadBytes(dir_ / "store"));
    }
    // The same, for a container that must be sound; it is open again afterwards.
    support::container::Reading ReadSound() {
        auto reading = Read();
        EXPECT_TRUE(reading.Sound()) << reading.Report();
        EXPECT_EQ(Open(), kOk);
        return reading;
    }
    Bytes FileBytes() const { return support::ReadBytes(dir_ / "store"); }

    Status MakeDirectory(const WString& path) {
        return StorageCreateDirectory(container_, path.c_str());
    }
    Status OpenHandle(const WString& path, FileHandle** file, bool write = false,
                      bool denyRead = false, bool denyWrite = false) {
        return StorageOpenFile(container_, path.c_str(), 1, write, denyRead, denyWrite, nullptr, 0,
                               file);
    }
    Status CreateHandle(const WString& path, FileHandle** file, bool openIfExists = false,
                        bool truncate = false, bool write = true) {
        return StorageCreateFile(container_, path.c_str(), 1, write, 0, 0, 0, nullptr, 0, file,
                                 openIfExists, truncate);
    }
    // Makes or replaces a file.
    Status Put(const WString& path, const std::string& text = "x") {
        FileHandle* file = nullptr;
        Status status = CreateHandle(path, &file, true, true);
        if (status != kOk) return status;
        uint32_t done = 0;
        status = text.empty() ? kOk
                              : StorageWriteFile(file, text.data(),
                                                 static_cast<uint32_t>(text.size()), &done);
        const Status closed = StorageCloseFile(file);
        return status != kOk ? status : closed;
    }
    // The text of a file, or "status <n>".
    std::string Text(const WString& path) {
        FileHandle* file = nullptr;
        Status status = OpenHandle(path, &file);
        if (status != kOk) return "status " + std::to_string(status);
        std::string text(1 << 16, '\0');
        uint32_t done = 0;
        status = StorageReadFile(file, text.data(), static_cast<uint32_t>(text.size()), &done);
        text.resize(done);
        StorageCloseFile(file);
        return status == kOk || status == kEndOfData ? text : "status " + std::to_string(status);
    }
    Status Delete(const WString& path) { return StorageDeleteFile(container_, path.c_str()); }
    Status Move(const WString& from, const WString& to) {
        return StorageMoveFile(container_, from.c_str(), to.c_str());
    }
    // 0 for what is not there.
    uint32_t Attributes(const WString& path) {
        uint32_t attributes = 0;
        StorageGetFileAttributes(container_, path.c_str(), &attributes);
        return attributes;
    }
    Status AttributesStatus(const WString& path) {
        uint32_t attributes = 0;
        return StorageGetFileAttributes(container_, path.c_str(), &attributes);
    }
    bool Exists(const WString& path) { return AttributesStatus(path) == kOk; }
    // The names that a search yields, in its order; a status other than kNoMore ends it as one
    // more name.
    std::vector<WString> List(const WString& pattern, uint32_t mask = 3, int32_t flags = 0) {
        std::vector<WString> names;
        StorageSearchStruct record{};
        Status status = StorageFindFirst(container_, &record, pattern.c_str(), mask, flags);
        for (; status == kOk; status = StorageFindNext(container_, &record))
            names.push_back((flags & kFindFullName) != 0 ? record.fullName : record.name);
        StorageFindClose(container_, &record);
        if (status != kNoMore) names.push_back(Widen(u"status ") + Number(status));
        return names;
    }
    static WString Number(int64_t value) {
        const std::string text = std::to_string(value);
        return {text.begin(), text.end()};
    }

  private:
    support::TempDir dir_;
    StorageContext* container_ = nullptr;
};

inline std::vector<WString> Names(std::initializer_list<const WChar*> names) {
    return {names.begin(), names.end()};
}

}  // namespace tests
