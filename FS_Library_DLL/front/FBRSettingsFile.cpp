// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/front/FBRSettingsFile.h"

#include <cstring>

#include "FS_Library_DLL/ValueName.h"
#include "FS_Library_DLL/registry/KeyTreeDeleter.h"
#include "include/ZrFsLibrary.h"
#include "platform/HostPath.h"
#include "platform/PageFile.h"

namespace {

using String = IFBRSettingsFile::String;
using Strings = IFBRSettingsFile::Strings;
using Bytes = IFBRSettingsFile::Bytes;

constexpr uint32_t kSettingsLock = 2;

enum RegistryType : uint32_t {
    kRegSz = 1,
    kRegExpandSz = 2,
    kRegBinary = 3,
    kRegDword = 4,
    kRegMultiSz = 7,
    kRegQword = 11,
};

// A key for the time of one operation.
class ScopedKey {
  public:
    ScopedKey(IFSInterface* store, const String& path) : store_(store) {
        if (store == nullptr) return;
        status = store->FBR_OpenDirEx(0, path.c_str(), &key);
        owns_ = status == FSSTATUS_SUCCESS;
    }
    ~ScopedKey() {
        if (owns_) store_->FBR_CloseDirEx(key);
    }
    ScopedKey(const ScopedKey&) = delete;
    ScopedKey& operator=(const ScopedKey&) = delete;

    explicit operator bool() const { return status == FSSTATUS_SUCCESS; }

    FBR_STATUS status = FSSTATUS_INVALID_PARAMETER;
    int64_t key = 0;

  private:
    IFSInterface* store_;
    bool owns_ = false;
};

// Asks for the size and then for the data. An empty value is FSSTATUS_SUCCESS with no bytes.
FBR_STATUS ReadValue(IFSInterface* store, int64_t key, const String& name, Bytes& bytes,
                     uint32_t& type) {
    uint64_t size = 0;
    const FBR_STATUS status =
        store->FBR_QueryValue(key, OrDefault(name.c_str()), nullptr, 0, &size, &type);
    if (status != FSSTATUS_BUFFER_OVERFLOW) return status;
    bytes.resize(static_cast<size_t>(size));
    return store->FBR_QueryValue(key, OrDefault(name.c_str()), bytes.data(), bytes.size(), &size,
                                 &type);
}

FBR_STATUS ReadValueAt(IFSInterface* store, const String& path, const String& name, Bytes& bytes,
                       uint32_t& type) {
    const ScopedKey key(store, path);
    return key ? ReadValue(store, key.key, name, bytes, type) : key.status;
}

template <class Number>
FBR_STATUS ReadNumber(IFSInterface* store, const String& path, const String& name,
                      uint32_t wantedType, Number& value) {
    Bytes bytes;
    uint32_t type = 0;
    const FBR_STATUS status = ReadValueAt(store, path, name, bytes, type);
    if (status != FSSTATUS_SUCCESS) return status;
    if (type != wantedType || bytes.size() != sizeof value) return FSSTATUS_FAILED;
    std::memcpy(&value, bytes.data(), sizeof value);
    return FSSTATUS_SUCCESS;
}

// The units of a value of one of two types, the terminators at its end cut off. An empty value may
// be of any type.
FBR_STATUS ReadText(IFSInterface* store, const String& path, const String& name, uint32_t typeA,
                    uint32_t typeB, String& text) {
    const ScopedKey key(store, path);
    if (!key) return key.status;
    uint64_t size = 0;
    uint32_t type = 0;
    FBR_STATUS status =
        store->FBR_QueryValue(key.key, OrDefault(name.c_str()), nullptr, 0, &size, &type);
    if (status != FSSTATUS_BUFFER_OVERFLOW) return status;
    text.resize(static_cast<size_t>(size / sizeof(WChar)));
    status = store->FBR_QueryValue(key.key, OrDefault(name.c_str()), text.data(),
                                   text.size() * sizeof(WChar), &size, &type);
    if (status != FSSTATUS_SUCCESS) return status;
    if (type != typeA && type != typeB) return FSSTATUS_FAILED;
    text.erase(text.find_last_not_of(WChar{0}) + 1);
    return FSSTATUS_SUCCESS;
}

Strings SplitAtTerminators(const String& text) {
    Strings parts;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(WChar{0}, start);
        if (end == String::npos) end = text.size();
        if (end != start) parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

}  // namespace

OpenedStore::OpenedStore(const WString& path, FBR_METHOD method) {
    status = FBR_InitialiseEx(path.c_str(), &store, method);
}

OpenedStore::~OpenedStore() {
    if (store != nullptr) FBR_DeInitialiseEx(store);
}

HeldLock::HeldLock(IFSInterface* owner)
    : store(owner), status(owner->FBR_GetLockEx(kSettingsLock)) {}

HeldLock::~HeldLock() {
    if (status == FSSTATUS_SUCCESS) store->FBR_ReleaseLockEx(kSettingsLock);
}

FBRSettingsFile::FBRSettingsFile(const String& path, FBR_METHOD method)
    : path_(path.substr(
          path.starts_with(platform::kLongPathPrefix) ? platform::kLongPathPrefix.size() : 0)),
      method_(method) {}

FBRSettingsFile::~FBRSettingsFile() {
    Release();
}

// The lock goes first, so that volatile keys stay when the store is closed.
void FBRSettingsFile::Release() {
    lock_.reset();
    store_.reset();
}

bool FBRSettingsFile::IsFileBased() const {
    return method_ == FS_VR_METHOD_TARN || method_ == FS_VR_METHOD_VARNHOLD_TARN;
}

FBR_STATUS FBRSettingsFile::OpenAndLock() {
    store_ = std::make_unique<OpenedStore>(path_, method_);
    if (store_->status != FSSTATUS_SUCCESS) return store_->status;
    lock_ = std::make_unique<HeldLock>(store_->store);
    return lock_->status;
}

FBR_STATUS FBRSettingsFile::Create(bool overwrite) {
    Release();
    if (IsFileBased() && platform::ProbePath(path_.c_str()) == platform::kErrorSuccess) {
        if (!overwrite) return FSSTATUS_ALREADY_EXISTS;
        platform::DeleteFileByPath(path_.c_str());
    }
    return OpenAndLock();
}

FBR_STATUS FBRSettingsFile::Open() {
    Release();
    if (IsFileBased() && platform::ProbePath(path_.c_str()) != platform::kErrorSuccess)
        return FSSTATUS_NOT_FOUND;
    return OpenAndLock();
}

FBR_STATUS FBRSettingsFile::EnumerateKeys(const String& path, Strings& names) {
    names.clear();
    const ScopedKey key(Interface(), path);
    if (!key) return key.status;
    const FBR_STATUS status = Interface()->FBR_EnumerateAllKeys(key.key, names);
    return status == FSSTATUS_NO_MORE_ENTRIES ? FSSTATUS_SUCCESS : status;
}

FBR_STATUS FBRSettingsFile::EnumerateValues(const String& path, Strings& names) {
    names.clear();
    const ScopedKey key(Interface(), path);
    if (!key) return key.status;
    const FBR_STATUS status = Interface()->FBR_EnumerateAllValues(key.key, names);
    return status == FSSTATUS_NO_MORE_ENTRIES ? FSSTATUS_SUCCESS : status;
}

bool FBRSettingsFile::KeyExists(const String& path) {
    return static_cast<bool>(ScopedKey(Interface(), path));
}

bool FBRSettingsFile::ValueExists(const String& path, const String& name) {
    Bytes scratch;
    uint32_t type = 0;
    return ReadValueAt(Interface(), path, name, scratch, type) == FSSTATUS_SUCCESS;
}

FBR_STATUS FBRSettingsFile::GetDword(const String& path, const String& name, uint32_t& value) {
    return ReadNumber(Interface(), path, name, kRegDword, value);
}

FBR_STATUS FBRSettingsFile::GetQword(const String& path, const String& name, uint64_t& value) {
    return ReadNumber(Interface(), path, name, kRegQword, value);
}

FBR_STATUS FBRSettingsFile::GetString(const String& path, const String& name, String& value) {
    String text;
    const FBR_STATUS status = ReadText(Interface(), path, name, kRegSz, kRegExpandSz, text);
    if (status == FSSTATUS_SUCCESS) value = std::move(text);
    return status;
}

FBR_STATUS FBRSettingsFile::GetMultiString(const String& path, const String& name,
                                           Strings& values) {
    String text;
    const FBR_STATUS status = ReadText(Interface(), path, name, kRegMultiSz, kRegMultiSz, text);
    if (status == FSSTATUS_SUCCESS) values = SplitAtTerminators(text);
    return status;
}

FBR_STATUS FBRSettingsFile::GetBinary(const String& path, const String& name, Bytes& value) {
    Bytes bytes;
    uint32_t type = 0;
    const FBR_STATUS status = ReadValueAt(Interface(), path, name, bytes, type);
    if (status != FSSTATUS_SUCCESS) return status;
    if (type != kRegBinary) return FSSTATUS_FAILED;
    value = std::move(bytes);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS FBRSettingsFile::DeleteValue(const String& path, const String& name) {
    const ScopedKey key(Interface(), path);
    return key ? Interface()->FBR_DeleteValue(key.key, name.c_str()) : key.status;
}

FBR_STATUS FBRSettingsFile::DeleteKey(const String& path, bool recursive) {
    if (recursive && Interface() != nullptr) {
        KeyTreeDeleter tree(Interface(), path);
        return DeleteOpenKeyTree(tree);
    }
    const ScopedKey key(Interface(), path);
    return key ? Interface()->FBR_DeleteDirEx(key.key) : key.status;
}

FBR_STATUS FBRSettingsFile::MarkKeyDeleted(const String& path) {
    String tombstone = path;
    if (tombstone.ends_with('\\')) tombstone.pop_back();
    return CreateKey(tombstone + WTEXT("_R.I.P"));
}

FBR_STATUS FBRSettingsFile::CreateKey(const String& path) {
    if (Interface() == nullptr) return FSSTATUS_INVALID_PARAMETER;
    int64_t key = 0;
    const FBR_STATUS status =
        Interface()->FBR_CreateDirEx(0, path.c_str(), FSCREATEOPTIONS_NONE, &key);
    if (key != 0) Interface()->FBR_CloseDirEx(key);
    return status == FSSTATUS_ALREADY_EXISTS ? FSSTATUS_SUCCESS : status;
}

FBR_STATUS FBRSettingsFile::SetString(const String& path, const String& name, const String& value,
                                      bool createKey) {
    if (Interface() == nullptr) return FSSTATUS_INVALID_PARAMETER;
    const FBR_STATUS made = createKey ? CreateKey(path) : FSSTATUS_SUCCESS;
    const ScopedKey key(Interface(), path);
    if (!key) return made != FSSTATUS_SUCCESS ? made : key.status;
    return Interface()->FBR_SetValue(key.key, OrDefault(name.c_str()), kRegSz, value.c_str(),
                                     (value.size() + 1) * sizeof(WChar));
}

FBR_STATUS FBRSettingsFile::RenameKey(const String& path, const String& newName) {
    const ScopedKey key(Interface(), path);
    return key ? Interface()->FBR_RenameDirEx(key.key, newName.c_str()) : key.status;
}

FBR_STATUS FBRSettingsFile::GetRawValue(const String& path, const String& name, Bytes& value,
                                        uint32_t* type) {
    value.clear();
    uint32_t found = 0;
    const FBR_STATUS status = ReadValueAt(Interface(), path, name, value, found);
    if (type != nullptr) *type = found;
    return status;
}

FBR_STATUS FBRSettingsFile::SetRawValue(const String& path, const String& name, const Bytes& value,
                                        uint32_t type) {
    const ScopedKey key(Interface(), path);
    if (!key) return key.status;
    return Interface()->FBR_SetValue(key.key, OrDefault(name.c_str()), type, value.data(),
                                     value.size());
}

std::unique_ptr<IFBRSettingsFile> CreateFBRSettingsFile(const String& path, FBR_METHOD method) {
    return std::make_unique<FBRSettingsFile>(path, method);
}
