// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/offline/OfflineHiveFile.h"

#include <atomic>
#include <memory>
#include <string>

#include "Shared/logging/Logger.h"
#include "offreg/HiveFormat.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/HostPath.h"
#include "platform/PageFile.h"
#include "platform/Resources.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/FsOfflineRegistryImpl"

namespace offline {
namespace {

using offreg::format::Load;
using platform::Error;
using platform::kErrorSuccess;
using platform::PageFile;
using platform::ToUtf8;
using platform::WString;
using Varnhold::Hob::Detail::kError;

namespace base = offreg::format::base;

constexpr const char* kReplace = "offline::ReplaceHive";
// A save holds the lock for some renames; whoever holds it longer is not one.
constexpr uint32_t kLongestWait = 3000;
constexpr int kMostNames = 1000;

Error Open(const WString& path, bool readOnly, std::unique_ptr<PageFile>* file) {
    const platform::Handle handle = platform::OpenFileHandle(
        path.c_str(), readOnly, static_cast<uint32_t>(platform::Disposition::OpenExisting),
        nullptr);
    if (!platform::IsValid(handle)) return platform::LastError();
    file->reset(platform::AdoptFileHandle(handle, path.c_str()));
    return *file != nullptr ? kErrorSuccess : platform::kErrorOutOfMemory;
}

Error Flush(const WString& path) {
    std::unique_ptr<PageFile> file;
    const Error error = Open(path, false, &file);
    return error == kErrorSuccess ? file->Flush() : error;
}

// A folder beside the hive, for one file of the hive's name. Both go with the object.
class SideFolder {
  public:
    explicit SideFolder(const WString& hive) : hive_(hive) {}
    ~SideFolder() {
        if (folder_.empty()) return;
        platform::DeleteFileByPath(file_.c_str());
        platform::RemoveFolder(folder_.c_str());
    }
    SideFolder(const SideFolder&) = delete;
    SideFolder& operator=(const SideFolder&) = delete;

    Error Make();
    const WString& File() const { return file_; }

  private:
    const WString& hive_;
    WString folder_;  // empty until it is made
    WString file_;
};

// The folder's name is short, since paths are not always allowed to be long.
Error SideFolder::Make() {
    static std::atomic<uint32_t> counter{0};
    const size_t cut = hive_.rfind(platform::kHostSeparator);
    const WString around = cut == WString::npos ? WString() : hive_.substr(0, cut + 1);
    const WString name = cut == WString::npos ? hive_ : hive_.substr(cut + 1);
    for (int attempt = 0; attempt < kMostNames; ++attempt) {
        const std::string number = std::to_string(platform::ProcessId() * 1000u +
                                                  platform::TickCount() % 1000 + ++counter);
        WString folder = around + WTEXT("~hive") + WString(number.begin(), number.end());
        const Error error = platform::MakePrivateFolder(folder.c_str());
        if (error == platform::kErrorAlreadyExists) continue;
        if (error != kErrorSuccess) return error;
        file_ = folder;
        file_.append(1, platform::kHostSeparator).append(name);
        folder_ = std::move(folder);
        return kErrorSuccess;
    }
    return platform::kErrorAlreadyExists;
}

Error PutInPlace(const WString& path, const WString& fresh) {
    const Error error = platform::CopyOwnerAndMode(path.c_str(), fresh.c_str());
    if (error == kErrorSuccess) return platform::RenameOver(fresh.c_str(), path.c_str());
    ZRFS_LOG(kError, kReplace, "[{}] is not replaced: its owner or mode cannot be kept [{}]",
             ToUtf8(path), error);
    return error;
}

// From here on no other one of this kind can come in between.
Error Exchange(const WString& path, const HiveMark& read, const WString& fresh) {
    platform::ReplacementLock lock;
    HiveMark now;
    Error error = lock.Take(path.c_str(), kLongestWait);
    if (error == kErrorSuccess) error = TakeMark(path, &now);
    if (error == kErrorSuccess && now.file.exists) {
        return now == read ? PutInPlace(path, fresh) : platform::kErrorSharingViolation;
    }
    // A file that was taken away is made anew: that undoes nobody's change.
    const bool isGone = error == kErrorSuccess || error == platform::kErrorFileNotFound;
    return isGone ? platform::RenameNew(fresh.c_str(), path.c_str()) : error;
}

Error WriteAndExchange(const WString& path, const HiveMark& read,
                       const std::function<uint32_t(const WString& path)>& save) {
    SideFolder side(path);
    Error error = side.Make();
    if (error == kErrorSuccess) error = save(side.File());
    if (error == kErrorSuccess) error = Flush(side.File());
    if (error != kErrorSuccess) return error;
    error = read.file.exists ? Exchange(path, read, side.File())
                             : platform::RenameNew(side.File().c_str(), path.c_str());
    return error == platform::kErrorAlreadyExists ? platform::kErrorSharingViolation : error;
}

}  // namespace

bool HiveMark::IsSettled() const {
    const bool isHive = std::memcmp(head.data(), base::kMagic, 4) == 0;
    return !isHive || Load<uint32_t>(head.data() + base::kSequence1) ==
                          Load<uint32_t>(head.data() + base::kSequence2);
}

uint32_t TakeMark(const WString& path, HiveMark* mark) {
    *mark = {};
    Error error = platform::LookAtFile(path.c_str(), &mark->file);
    if (error != kErrorSuccess || !mark->file.exists) return error;
    std::unique_ptr<PageFile> file;
    uint32_t done = 0;
    error = Open(path, true, &file);
    return error == kErrorSuccess
               ? file->Read(0, mark->head.data(), static_cast<uint32_t>(mark->head.size()), &done)
               : error;
}

uint32_t ReplaceHive(const WString& path, const HiveMark& read,
                     const std::function<uint32_t(const WString& path)>& save) {
    const Error error = WriteAndExchange(path, read, save);
    if (error == platform::kErrorSharingViolation) {
        ZRFS_LOG(kError, kReplace,
                 "[{}] is not the file that was read: somebody else has written or holds it, and "
                 "the changes of this store are given up",
                 ToUtf8(path));
    } else if (error != kErrorSuccess) {
        ZRFS_LOG(kError, kReplace,
                 read.file.exists ? "[{}] cannot be replaced and stays as it is [{}]"
                                  : "[{}] cannot be written [{}]",
                 ToUtf8(path), error);
    }
    return error;
}

}  // namespace offline
