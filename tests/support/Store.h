// SPDX-License-Identifier: MIT
// A store of any kind in few words, by the exported functions alone. Paths and names are plain
// text or the store's own units.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "include/ZrFsLibrary.h"
#include "tests/support/ContainerReader.h"
#include "tests/support/TempDir.h"

namespace support {

using platform::WChar;
using platform::WString;

// A path or name, as it is easiest to write.
struct Text : WString {
    Text(const char* utf8) : WString(platform::FromUtf8(utf8)) {}
    Text(const std::string& utf8) : WString(platform::FromUtf8(utf8)) {}
    Text(const WChar* units) : WString(units) {}
    Text(WString units) : WString(std::move(units)) {}
};
using Names = std::vector<WString>;

// What a function handed out, given back.
inline WString Taken(WChar* text) {
    WString copy(text != nullptr ? text : WTEXT("(none)"));
    FBR_Release(text);
    return copy;
}

inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kLockWrite = 1;
inline constexpr uint32_t kLockRead = 3;

// An open key, closed with the object.
class OpenKey {
  public:
    OpenKey() = default;
    OpenKey(FBR_STORE store, FBR_KEY key) : store_(store), key_(key) {}
    ~OpenKey() { Close(); }
    OpenKey(OpenKey&& other) noexcept : store_(other.store_), key_(std::exchange(other.key_, 0)) {}
    OpenKey& operator=(OpenKey&& other) noexcept {
        std::swap(store_, other.store_);
        std::swap(key_, other.key_);
        return *this;
    }
    operator FBR_KEY() const { return key_; }
    FBR_STATUS Close() {
        return key_ == 0 ? FSSTATUS_SUCCESS : FBR_CloseDirEx(std::exchange(key_, 0), store_);
    }

  private:
    FBR_STORE store_ = nullptr;
    FBR_KEY key_ = 0;
};

// One handle on a store, closed at the end.
class Store {
  public:
    explicit Store(Text path, FBR_METHOD method = FS_VR_METHOD_TARN) : file(std::move(path)) {
        status = FBR_InitialiseEx(file.c_str(), &handle, method);
    }
    ~Store() { Close(); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    FBR_STATUS Close() {
        return handle == nullptr ? FSSTATUS_SUCCESS
                                 : FBR_DeInitialiseEx(std::exchange(handle, nullptr));
    }
    FBR_STATUS Lock(uint32_t type = kLockWrite) { return FBR_GetLockEx(type, handle); }
    FBR_STATUS Unlock(uint32_t type = kLockWrite) { return FBR_ReleaseLockEx(type, handle); }

    // 0 when the key cannot be opened.
    FBR_KEY Open(const Text& path, FBR_KEY parent = 0) {
        FBR_KEY key = 0;
        FBR_OpenDirEx(parent, path.c_str(), &key, handle);
        return key;
    }
    FBR_KEY Root() { return Open("\\"); }
    // The handle of a key that is made, or was there; `told` is whether it was.
    FBR_KEY Make(const Text& path, FBR_KEY parent = 0,
                 FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE, FBR_STATUS* told = nullptr) {
        FBR_KEY key = 0;
        const FBR_STATUS made = FBR_CreateDirEx(parent, path.c_str(), options, &key, handle);
        if (told != nullptr) *told = made;
        return key;
    }
    FBR_STATUS Close(FBR_KEY key) { return FBR_CloseDirEx(key, handle); }
    // The statuses alone.
    FBR_STATUS TryMake(const Text& path, FBR_KEY parent = 0,
                       FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE) {
        FBR_STATUS told = FSSTATUS_SUCCESS;
        const FBR_KEY key = Make(path, parent, options, &told);
        if (key != 0) Close(key);
        return told;
    }
    FBR_STATUS TryOpen(const Text& path, FBR_KEY parent = 0) {
        FBR_KEY key = 0;
        const FBR_STATUS told = FBR_OpenDirEx(parent, path.c_str(), &key, handle);
        if (key != 0) Close(key);
        return told;
    }
    bool Has(const Text& path) { return TryOpen(path) == FSSTATUS_SUCCESS; }
    FBR_STATUS Delete(FBR_KEY key) { return FBR_DeleteDirEx(key, handle); }
    FBR_STATUS DeleteTree(const Text& path) { return FBR_DeleteDirNamedEx(path.c_str(), handle); }
    FBR_STATUS Rename(FBR_KEY key, const Text& name) {
        return FBR_RenameDirEx(key, name.c_str(), handle);
    }
    FBR_STATUS Duplicate(FBR_KEY key, FBR_KEY* copy) {
        return FBR_DuplicateDirHandleEx(key, copy, handle);
    }

    FBR_STATUS Set(FBR_KEY key, const Text& name, const Bytes& data, uint32_t type = kRegBinary) {
        return FBR_SetValue(key, name.c_str(), type, data.data(), data.size(), handle);
    }
    FBR_STATUS Query(FBR_KEY key, const Text& name, void* buffer, uint64_t room, uint64_t* size,
                     uint32_t* type = nullptr) {
        return FBR_QueryValue(key, name.c_str(), buffer, room, size, type, handle);
    }
    // The data of a value, by the protocol of asking for the size first.
    std::optional<Bytes> Get(FBR_KEY key, const Text& name, uint32_t* type = nullptr) {
        uint64_t size = 99;
        FBR_STATUS told = Query(key, name, nullptr, 0, &size, type);
        if (told == FSSTATUS_SUCCESS && size == 0) return Bytes();
        // The live registry takes a short value for one that fits, and tells its size.
        if (told != FSSTATUS_BUFFER_OVERFLOW && told != FSSTATUS_SUCCESS) return std::nullopt;
        Bytes data(size);
        told = Query(key, name, data.data(), size, &size, type);
        if (told != FSSTATUS_SUCCESS || size != data.size()) return std::nullopt;
        return data;
    }
    FBR_STATUS DeleteValue(FBR_KEY key, const Text& name) {
        return FBR_DeleteValue(key, name.c_str(), handle);
    }

    Names Values(FBR_KEY key) {
        Names names;
        EXPECT_EQ(FBR_EnumerateAllValues(key, names, handle), FSSTATUS_NO_MORE_ENTRIES);
        return names;
    }
    Names Keys(FBR_KEY key) {
        Names names;
        EXPECT_EQ(FBR_EnumerateAllKeys(key, names, handle), FSSTATUS_NO_MORE_ENTRIES);
        return names;
    }
    WString FullName(FBR_KEY key) {
        WChar* text = nullptr;
        EXPECT_EQ(FBR_GetFullName_DirEx(key, &text, handle), FSSTATUS_SUCCESS);
        return Taken(text);
    }

    const WString file;
    FBR_STORE handle = nullptr;
    FBR_STATUS status;
};

// All that a key holds, by enumeration and queries; the first failure.
inline FBR_STATUS ReadKey(FBR_STORE store, FBR_KEY key, container::Key* out) {
    const auto units = [](const WString& text) { return std::u16string(text.begin(), text.end()); };
    Names names;
    FBR_STATUS status = FBR_EnumerateAllValues(key, names, store);
    if (status != FSSTATUS_NO_MORE_ENTRIES) return status;
    for (const WString& name : names) {
        uint64_t size = 0;
        container::Value& value = out->values[units(name)];
        value.data.resize(1 << 16);
        status = FBR_QueryValue(key, name.c_str(), value.data.data(), value.data.size(), &size,
                                &value.type, store);
        if (status != FSSTATUS_SUCCESS) return status;
        value.data.resize(size);
    }
    names.clear();
    status = FBR_EnumerateAllKeys(key, names, store);
    if (status != FSSTATUS_NO_MORE_ENTRIES) return status;
    for (const WString& name : names) {
        FBR_KEY below = 0;
        status = FBR_OpenDirEx(key, name.c_str(), &below, store);
        const OpenKey closed(store, below);
        if (status == FSSTATUS_SUCCESS) status = ReadKey(store, below, &out->keys[units(name)]);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    return FSSTATUS_SUCCESS;
}

// The same of a store, without the value that tells its version.
inline FBR_STATUS ReadAll(FBR_STORE store, container::Key* root) {
    *root = container::Key();
    FBR_KEY key = 0;
    FBR_STATUS status = FBR_OpenDirEx(0, WTEXT("\\"), &key, store);
    const OpenKey closed(store, key);
    if (status == FSSTATUS_SUCCESS) status = ReadKey(store, key, root);
    root->values.erase(u"FBRVersion");
    return status;
}

}  // namespace support
