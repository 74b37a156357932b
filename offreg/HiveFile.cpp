// SPDX-License-Identifier: MIT
#include "offreg/HiveFile.h"

#include <algorithm>
#include <atomic>
#include <memory>

#include "offreg/HiveReader.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/PageFile.h"
#include "platform/Resources.h"

namespace offreg {
namespace {

using platform::Disposition;
using platform::Error;
using platform::kErrorSuccess;
using platform::PageFile;

constexpr uint32_t kPiece = 4 << 20;

Error Open(const WChar* path, bool readOnly, Disposition disposition,
           std::unique_ptr<PageFile>* file) {
    const platform::Handle handle =
        platform::OpenFileHandle(path, readOnly, static_cast<uint32_t>(disposition), nullptr);
    if (!platform::IsValid(handle)) return platform::LastError();
    file->reset(platform::AdoptFileHandle(handle, path));
    return *file != nullptr ? kErrorSuccess : platform::kErrorOutOfMemory;
}

Error ReadAll(PageFile& file, Bytes* content) {
    for (size_t at = 0; at < content->size();) {
        const auto piece = static_cast<uint32_t>(std::min<size_t>(content->size() - at, kPiece));
        uint32_t done = 0;
        const Error error = file.Read(at, content->data() + at, piece, &done);
        if (error != kErrorSuccess) return error;
        at += done;
        if (done < piece) content->resize(at);  // cut while it was read
    }
    return kErrorSuccess;
}

Error WriteAll(PageFile& file, const Bytes& content) {
    for (size_t at = 0; at < content.size();) {
        const auto piece = static_cast<uint32_t>(std::min<size_t>(content.size() - at, kPiece));
        const void* start = content.data() + at;
        uint32_t done = 0;
        const Error error = file.Write(at, &start, 1, piece, &done);
        if (error != kErrorSuccess) return error;
        if (done < piece) return platform::kErrorDiskFull;
        at += piece;
    }
    return file.Flush();
}

WString TemporaryName(const WChar* path) {
    static std::atomic<uint32_t> counter{0};
    const std::string suffix = "." + std::to_string(platform::ProcessId()) + "-" +
                               std::to_string(platform::TickCount()) + "-" +
                               std::to_string(++counter) + ".tmp";
    return WString(path) + WString(suffix.begin(), suffix.end());
}

// Days from 1601-01-01, which begins a cycle of 400 years, to the first day of a month.
uint64_t DaysBefore(uint32_t year, uint32_t month) {
    static constexpr uint16_t kDays[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const uint64_t years = year - 1601;
    const bool isLeap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return years * 365 + years / 4 - years / 100 + years / 400 + kDays[month - 1] +
           (isLeap && month > 2 ? 1 : 0);
}

}  // namespace

Error ReadWholeFile(const WChar* path, Bytes* content) {
    std::unique_ptr<PageFile> file;
    Error error = Open(path, true, Disposition::OpenExisting, &file);
    if (error != kErrorSuccess) return error;
    uint64_t size = 0;
    error = file->Size(&size);
    if (error != kErrorSuccess) return error;
    if (size > 0xFFFFFFFF) return kErrorBadDatabase;
    content->resize(size);
    return ReadAll(*file, content);
}

Error SaveNewFile(const WChar* path, const Bytes& content) {
    if (platform::ProbePath(path) == kErrorSuccess) return platform::kErrorAlreadyExists;
    const WString temporary = TemporaryName(path);
    std::unique_ptr<PageFile> file;
    Error error = Open(temporary.c_str(), false, Disposition::CreateNew, &file);
    if (error != kErrorSuccess) return error;
    error = WriteAll(*file, content);
    file.reset();
    if (error == kErrorSuccess) error = platform::RenameNew(temporary.c_str(), path);
    if (error != kErrorSuccess) platform::DeleteFileByPath(temporary.c_str());
    return error;
}

uint64_t FileTimeNow() {
    const platform::UtcTime now = platform::UtcNow();
    const uint64_t days = DaysBefore(now.year, now.month) + now.day - 1;
    const uint64_t seconds = ((days * 24 + now.hour) * 60 + now.minute) * 60 + now.second;
    return (seconds * 1000 + now.millisecond) * 10000;
}

}  // namespace offreg
