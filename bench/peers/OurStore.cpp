// SPDX-License-Identifier: MIT
#include <cstring>

#include "bench/peers/Store.h"
#include "include/ZrFsLibrary.h"

namespace bench {
namespace {

constexpr uint32_t kWriteLock = 1;

void Check(FBR_STATUS status, const char* what) {
    if (status != FSSTATUS_SUCCESS)
        throw std::runtime_error(std::string(what) + " gave status " +
                                 std::to_string(static_cast<int>(status)));
}

// Ours by its exported functions: a container, with the lock held or taken for each change, or an
// offline hive, whose locks mean nothing.
class OurStore : public Store {
  public:
    OurStore(const std::filesystem::path& file, FBR_METHOD method, LockUse use)
        : path_(ToText(file.string())), method_(method), use_(use) {}
    ~OurStore() override {
        if (store_ != nullptr) FBR_DeInitialiseEx(store_);
    }

    void Open() override {
        Check(FBR_InitialiseEx(path_.c_str(), &store_, method_), "FBR_InitialiseEx");
    }
    void Close() override {
        FBR_STORE store = store_;
        store_ = nullptr;
        Check(FBR_DeInitialiseEx(store), "FBR_DeInitialiseEx");
    }
    void Begin(Span) override {
        if (use_ == LockUse::Held) Lock();
    }
    void End(Span) override {
        if (use_ == LockUse::Held) Unlock();
    }

    Handle MakeKey(const KeyData& key) override {
        FBR_KEY handle = 0;
        Change([&] {
            return FBR_CreateDirEx(0, key.path.c_str(), FSCREATEOPTIONS_NONE, &handle, store_);
        });
        return handle;
    }
    Handle OpenKey(const KeyData& key) override {
        FBR_KEY handle = 0;
        const FBR_STATUS status = FBR_OpenDirEx(0, key.path.c_str(), &handle, store_);
        if (status == FSSTATUS_NOT_FOUND) return 0;
        Check(status, "FBR_OpenDirEx");
        return handle;
    }
    void CloseKey(Handle handle) override {
        Check(FBR_CloseDirEx(handle, store_), "FBR_CloseDirEx");
    }
    void DeleteKey(Handle handle, const KeyData&) override {
        Change([&] { return FBR_DeleteDirEx(handle, store_); });
        // A hive's handle outlives its key.
        if (method_ == FS_VR_METHOD_OFFLINE) CloseKey(handle);
    }

    void Set(Handle handle, const ValueData& value) override {
        Change([&] {
            return FBR_SetValue(handle, value.name.c_str(), value.type, value.data.data(),
                                value.data.size(), store_);
        });
    }
    Answer Get(Handle handle, const ValueData& value) override {
        return Query(handle, value.name.c_str());
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        names_.clear();
        if (FBR_EnumerateAllValues(handle, names_, store_) != FSSTATUS_NO_MORE_ENTRIES)
            throw std::runtime_error("FBR_EnumerateAllValues did not reach the end");
        for (const Text& name : names_) {
            Answer answer = Query(handle, name.c_str());
            answer.name = name;
            visit(context, answer);
        }
    }

    bool ListOne(Handle handle, uint32_t place) override {
        FBR_WCHAR* name = nullptr;
        Check(FBR_EnumIntFileEx(handle, place, &name, store_), "FBR_EnumIntFileEx");
        FBR_Release(name);
        return true;
    }

  private:
    void Lock() { Check(FBR_GetLockEx(kWriteLock, store_), "FBR_GetLockEx"); }
    void Unlock() { Check(FBR_ReleaseLockEx(kWriteLock, store_), "FBR_ReleaseLockEx"); }
    template <class Operation>
    void Change(Operation operation) {
        if (use_ == LockUse::ForEachChange) Lock();
        Check(operation(), "a change");
        if (use_ == LockUse::ForEachChange) Unlock();
    }
    Answer Query(Handle handle, const FBR_WCHAR* name) {
        Answer answer;
        uint64_t size = 0;
        Check(FBR_QueryValue(handle, name, buffer_, sizeof buffer_, &size, &answer.type, store_),
              "FBR_QueryValue");
        answer.data = buffer_;
        answer.size = static_cast<size_t>(size);
        return answer;
    }

    const Text path_;
    const FBR_METHOD method_;
    const LockUse use_;
    FBR_STORE store_ = nullptr;
    std::vector<Text> names_;
    uint8_t buffer_[16384];
};

}  // namespace

std::unique_ptr<Store> MakeContainer(const std::filesystem::path& folder, LockUse use) {
    return std::make_unique<OurStore>(folder / "store.fbr", FS_VR_METHOD_TARN, use);
}

std::unique_ptr<Store> MakeOfflineHive(const std::filesystem::path& folder) {
    return std::make_unique<OurStore>(folder / "store.hive", FS_VR_METHOD_OFFLINE, LockUse::Held);
}

std::vector<Maker> OurMakers() {
    return {
        {kOurs, [](const auto& folder) { return MakeContainer(folder, LockUse::Held); }, true},
        {kOursEach,
         [](const auto& folder) { return MakeContainer(folder, LockUse::ForEachChange); }, true},
        {"our offline hive, in memory", [](const auto& folder) { return MakeOfflineHive(folder); },
         true},
    };
}

}  // namespace bench
