// A container store in a folder of its own, worked through the exported functions.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "include/ZrFsLibrary.h"
#include "platform/Text.h"
#include "tests/support/TempDir.h"

namespace keystore {

using platform::WChar;
using platform::WString;
using platform::WStringView;
using support::Bytes;

inline constexpr uint32_t kRegSz = 1;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;
inline constexpr uint32_t kLockWrite = 1;
inline constexpr uint32_t kLockWriteToo = 2;
inline constexpr uint32_t kLockRead = 3;

// One handle on a store, closed at the end.
class Store {
  public:
    explicit Store(const WString& path) : file(path) {
        status = FBR_InitialiseEx(path.c_str(), &handle, FS_VR_METHOD_TARN);
    }
    ~Store() { Close(); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    FBR_STATUS Close() {
        const FBR_STATUS result = handle != nullptr ? FBR_DeInitialiseEx(handle) : FSSTATUS_SUCCESS;
        handle = nullptr;
        return result;
    }
    FBR_STATUS Lock(uint32_t type = kLockWrite) { return FBR_GetLockEx(type, handle); }
    FBR_STATUS Unlock(uint32_t type = kLockWrite) { return FBR_ReleaseLockEx(type, handle); }

    // 0 when the key cannot be opened.
    FBR_KEY Open(const WString& path, FBR_KEY parent = 0) {
        FBR_KEY key = 0;
        FBR_OpenDirEx(parent, path.c_str(), &key, handle);
        return key;
    }
    FBR_KEY Root() { return Open(WTEXT("\\")); }
    // The handle of a key that is made, or was there.
    FBR_KEY Make(const WString& path, FBR_KEY parent = 0,
                 FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE) {
        FBR_KEY key = 0;
        FBR_CreateDirEx(parent, path.c_str(), options, &key, handle);
        return key;
    }
    bool Has(const WString& path) {
        const FBR_KEY key = Open(path);
        if (key != 0) FBR_CloseDirEx(key, handle);
        return key != 0;
    }
    FBR_STATUS Set(FBR_KEY key, const WString& name, const Bytes& data,
                   uint32_t type = kRegBinary) {
        return FBR_SetValue(key, name.c_str(), type, data.data(), data.size(), handle);
    }
    // The data of a value, by the protocol of asking for the size first.
    std::optional<Bytes> Get(FBR_KEY key, const WString& name, uint32_t* type = nullptr) {
        uint64_t size = 99;
        FBR_STATUS result = FBR_QueryValue(key, name.c_str(), nullptr, 0, &size, type, handle);
        if (result == FSSTATUS_SUCCESS && size == 0) return Bytes();
        if (result != FSSTATUS_BUFFER_OVERFLOW) return std::nullopt;
        Bytes data(size);
        result = FBR_QueryValue(key, name.c_str(), data.data(), size, &size, type, handle);
        if (result != FSSTATUS_SUCCESS || size != data.size()) return std::nullopt;
        return data;
    }
    std::vector<WString> Values(FBR_KEY key) {
        std::vector<WString> names;
        EXPECT_EQ(FBR_EnumerateAllValues(key, names, handle), FSSTATUS_NO_MORE_ENTRIES);
        return names;
    }
    std::vector<WString> Keys(FBR_KEY key) {
        std::vector<WString> names;
        EXPECT_EQ(FBR_EnumerateAllKeys(key, names, handle), FSSTATUS_NO_MORE_ENTRIES);
        return names;
    }
    WString FullName(FBR_KEY key) {
        WChar* text = nullptr;
        EXPECT_EQ(FBR_GetFullName_DirEx(key, &text, handle), FSSTATUS_SUCCESS);
        const WString name(text != nullptr ? text : WTEXT("(none)"));
        FBR_Release(text);
        return name;
    }

    const WString file;
    FBR_STORE handle = nullptr;
    FBR_STATUS status;
};

// A new store under a write lock.
class StoreTest : public testing::Test {
  protected:
    StoreTest() : path(dir.File("store.fbr")), store(path) {
        EXPECT_EQ(store.status, FSSTATUS_SUCCESS);
        EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    }

    support::TempDir dir;
    const WString path;
    Store store;
};

}  // namespace keystore
