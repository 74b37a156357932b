// SPDX-License-Identifier: MIT
// Any bytes as a store: opened through the engine and through the exported functions, read, written
// to, and closed.
#include "fuzz/ContainerInput.h"
#include "include/ZrFsLibrary.h"

namespace {

using platform::WString;

class Store {
  public:
    explicit Store(const std::filesystem::path& path) {
        FBR_InitialiseEx(support::Wide(path).c_str(), &store_, FS_VR_METHOD_TARN);
    }
    ~Store() {
        if (store_ != nullptr) FBR_DeInitialiseEx(store_);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    void Use() {
        if (store_ == nullptr) return;
        Read(WTEXT("\\"), 0);
        if (FBR_GetLockEx(1, store_) != FSSTATUS_SUCCESS) return;
        Change();
        uint32_t word = 0;
        FBR_Compact(store_, &word);
        FBR_IsCorrupted(store_, &word);
        FBR_ReleaseLockEx(1, store_);
    }

  private:
    void Read(const WString& path, FBR_KEY parent) {
        FBR_KEY key = 0;
        if (--left_ < 0 || FBR_OpenDirEx(parent, path.c_str(), &key, store_) != FSSTATUS_SUCCESS)
            return;
        std::vector<WString> names;
        FBR_EnumerateAllValues(key, names, store_);
        for (const WString& name : names) ReadValue(key, name);
        FBR_SYSTEMTIME time{};
        FBR_GetDirTimesEx(key, &time, store_);
        names.clear();
        FBR_EnumerateAllKeys(key, names, store_);
        for (const WString& name : names) Read(name, key);
        FBR_CloseDirEx(key, store_);
    }

    void ReadValue(FBR_KEY key, const WString& name) {
        if (--left_ < 0) return;
        uint8_t buffer[5000];
        uint64_t size = 0;
        uint32_t type = 0;
        FBR_QueryValue(key, name.c_str(), buffer, sizeof buffer, &size, &type, store_);
    }

    // Something new, something over what is there, and the first key gone with all below it.
    void Change() {
        FBR_KEY root = 0, key = 0;
        FBR_OpenDirEx(0, WTEXT("\\"), &root, store_);
        FBR_CreateDirEx(0, WTEXT("\\new"), FSCREATEOPTIONS_NONE, &key, store_);
        const std::string data(700, 'x');
        for (const FBR_KEY at : {root, key})
            FBR_SetValue(at, WTEXT("v"), 3, data.data(), data.size(), store_);
        FBR_RenameDirEx(key, WTEXT("renamed"), store_);
        if (key != 0) FBR_CloseDirEx(key, store_);
        std::vector<WString> names;
        FBR_EnumerateAllKeys(root, names, store_);
        if (!names.empty()) FBR_DeleteDirNamedEx((WTEXT("\\") + names[0]).c_str(), store_);
        FBR_DeleteValue(root, WTEXT("v"), store_);
        if (root != 0) FBR_CloseDirEx(root, store_);
    }

    FBR_STORE store_ = nullptr;
    int left_ = 300;  // entries to look at, for a damaged tree may come back to itself
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::ContainerInput input(fuzz::Bytes(data, data + size));
    Store(input.Path()).Use();
    input.UseBlindly();
    return 0;
}
