// A thread at work on a store that other threads use as well.
#pragma once

#include <random>

#include "tests/sharing/Content.h"

namespace sharing {

inline constexpr uint32_t kKeys = 4, kNames = 6;

inline std::string KeyOf(uint32_t number) {
    return "\\shared" + std::to_string(number % kKeys);
}
inline std::string NameOf(uint32_t number) {
    return "v" + std::to_string(number % kNames);
}

// A store with its keys open.
struct KeyedStore : Store {
    explicit KeyedStore(const std::string& path) : Store(path) {
        for (uint32_t i = 0; i < kKeys; ++i)
            FBR_OpenDirEx(0, Wide(KeyOf(i)).c_str(), &keys[i], handle);
    }
    FBR_KEY keys[kKeys] = {};
};

// A thread at work on a store, by its open keys and by paths. In each key the values of NameOf stay
// and one more comes and goes.
class User {
  public:
    User(KeyedStore* store, uint32_t thread, Tally* tally)
        : store_(store), thread_(thread), tally_(tally), random_(thread) {}

    void WorkUntil(int64_t end) {
        while (NowMs() < end) {
            const uint32_t roll = static_cast<uint32_t>(random_() % 10000);
            if (thread_ < 3 || (thread_ < 5 && roll % 4 == 0)) {
                Change(roll);
            } else if (roll % 5 == 0) {
                List(roll);
            } else {
                Get(roll);
            }
        }
    }

  private:
    FBR_KEY HandleOf(uint32_t roll) const { return store_->keys[roll % kKeys]; }

    void Get(uint32_t roll) {
        const bool guest = roll % 7 < 3;
        const std::string key = KeyOf(roll), name = guest ? kGuest : NameOf(roll / 8);
        Bytes data;
        std::string wrong;
        const FBR_STATUS status = roll % 3 == 0 ? store_->Get(key, name, &data)
                                                : store_->Get(HandleOf(roll), name, &data);
        if (guest && status == FSSTATUS_NOT_FOUND) return;
        if (tally_->Did(status, "get " + name) && !ReadSeal(data, key, name, &wrong))
            tally_->Wrong(wrong);
    }

    void List(uint32_t roll) {
        std::vector<Text> names;
        const FBR_STATUS status = FBR_EnumerateAllValues(HandleOf(roll), names, store_->handle);
        if (!tally_->Did(status == FSSTATUS_NO_MORE_ENTRIES ? FSSTATUS_SUCCESS : status, "list"))
            return;
        if (names.size() != kNames && names.size() != kNames + 1)
            tally_->Wrong(KeyOf(roll) + " lists " + std::to_string(names.size()));
    }

    void Change(uint32_t roll) {
        if (!tally_->Went(store_->Lock(), "lock")) return;
        if (roll % 5 < 2) {
            ChangeGuest(roll);
        } else if (roll % 5 == 2) {
            ChangeOwn(roll);
        } else {
            SetIn(KeyOf(roll), NameOf(roll / 8), roll);
        }
        tally_->Went(store_->Unlock(), "release");
    }
    void SetIn(const std::string& key, const std::string& name, uint32_t roll) {
        const Bytes data = Sealed(key, name, {thread_, roll}, SizeOf(roll));
        tally_->Did(store_->Set(key, name, data), "set " + name);
    }
    void ChangeGuest(uint32_t roll) {
        if (roll % 2 != 0) return SetIn(KeyOf(roll), kGuest, roll);
        const FBR_STATUS status =
            FBR_DeleteValue(HandleOf(roll), Wide(kGuest).c_str(), store_->handle);
        tally_->Did(status == FSSTATUS_NOT_FOUND ? FSSTATUS_SUCCESS : status, "delete value");
    }
    // A key of the thread's own.
    void ChangeOwn(uint32_t roll) {
        const std::string own = "\\own" + std::to_string(thread_);
        if (hasOwn_) {
            tally_->Did(FBR_DeleteDirNamedEx(Wide(own).c_str(), store_->handle), "delete key");
        } else {
            SetIn(own, "v", roll);
        }
        hasOwn_ = !hasOwn_;
    }

    static constexpr const char* kGuest = "guest";
    KeyedStore* store_;
    const uint32_t thread_;
    Tally* tally_;
    std::mt19937 random_;
    bool hasOwn_ = false;
};

}  // namespace sharing
