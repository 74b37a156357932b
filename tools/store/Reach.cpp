// SPDX-License-Identifier: MIT
#include "tools/store/Reach.h"

#include <fmt/format.h>

#include <set>

#include "tools/console/Interrupt.h"

namespace fbr {
namespace {

using platform::WString;
using platform::WStringView;

struct Before {
    bool operator()(WStringView a, WStringView b) const {
        return platform::CompareFolded(a, b) < 0;
    }
};

// What keeps a name from leading to its own; null when nothing does.
const char* Fault(WStringView name, bool isKey) {
    if (name.find(WChar{0}) != WStringView::npos) return "holds a zero";
    if (!isKey) return nullptr;
    if (name.empty()) return "is empty";
    return name.find(WChar{'\\'}) != WStringView::npos ? "holds a backslash" : nullptr;
}

template <typename Show>
std::vector<Listed> Judge(std::vector<WString> names, bool isKey, const Show& show,
                          const OnLoss& onLoss) {
    std::set<WStringView, Before> seen;
    std::vector<Listed> listed;
    listed.reserve(names.size());  // which keeps the views in place
    for (WString& name : names) {
        const char* fault = Fault(name, isKey);
        listed.push_back({std::move(name), true});
        Listed& last = listed.back();
        if (!seen.insert(last.name).second && fault == nullptr) fault = "stands for another, too";
        last.reachable = fault == nullptr;
        if (fault != nullptr && onLoss)
            onLoss(fmt::format("cannot reach {} by its name, which {}", show(last.name), fault));
    }
    return listed;
}

std::vector<WString> Reachable(std::vector<Listed> listed) {
    std::vector<WString> names;
    for (Listed& one : listed) {
        if (one.reachable) names.push_back(std::move(one.name));
    }
    return names;
}

// What ends only the way to one key or value. After any other failure the next call would fail,
// too. The live registry has keys that the system makes up as it is asked, and no word for one that
// it cannot.
bool IsOnesOwn(FBR_STATUS status, const Store& store) {
    switch (status) {
        case FSSTATUS_FAILED:
            return store.FullName().method == FS_VR_METHOD_NATIVE;
        case FSSTATUS_INVALID_PARAMETER:
        case FSSTATUS_NOT_FOUND:
        case FSSTATUS_PATH_NOT_FOUND:
        case FSSTATUS_INVALID_NAME:
        case FSSTATUS_FILE_CORRUPT:
        case FSSTATUS_ACCESS_DENIED:
            return true;
        default:
            return false;
    }
}

void TellOrThrow(const StoreError& error, const Key& key, const OnLoss& onLoss) {
    if (!IsOnesOwn(error.Status(), key.In())) throw error;
    if (onLoss) onLoss(error.what());
}

using AddNames = void (Key::*)(std::vector<WString>&) const;

std::vector<WString> NamesOf(const Key& key, AddNames add, const OnLoss& onLoss) {
    std::vector<WString> names;
    try {
        (key.*add)(names);
    } catch (const StoreError& error) {
        TellOrThrow(error, key, onLoss);
    }
    return names;
}

}  // namespace

std::vector<Listed> ListSubkeys(const Key& key, const OnLoss& onLoss) {
    const auto show = [&key](WStringView name) { return key.ShowSubkey(name); };
    return Judge(NamesOf(key, &Key::AddSubkeyNames, onLoss), true, show, onLoss);
}

std::vector<Listed> ListValues(const Key& key, const OnLoss& onLoss) {
    const auto show = [&key](WStringView name) { return key.ShowValue(name); };
    return Judge(NamesOf(key, &Key::AddValueNames, onLoss), false, show, onLoss);
}

size_t CountValues(const Key& key, const OnLoss& onLoss) {
    return NamesOf(key, &Key::AddValueNames, onLoss).size();
}

std::vector<WString> ReachableSubkeys(const Key& key, const OnLoss& onLoss) {
    return Reachable(ListSubkeys(key, onLoss));
}

std::vector<WString> ReachableValues(const Key& key, const OnLoss& onLoss) {
    return Reachable(ListValues(key, onLoss));
}

std::optional<Key> TryOpen(const Key& key, const WString& name, const OnLoss& onLoss) {
    StopIfInterrupted();
    try {
        return key.OpenSubkey(name);
    } catch (const StoreError& error) {
        TellOrThrow(error, key, onLoss);
        return std::nullopt;
    }
}

std::string ShowShortData(const Key& key, WStringView name, const Value& value, uint64_t missing) {
    return fmt::format("{} claims {} bytes and has {}", key.ShowValue(name),
                       value.data.size() + missing, value.data.size());
}

std::optional<Value> TryGet(const Key& key, const WString& name, const OnLoss& onLoss) {
    StopIfInterrupted();
    try {
        uint64_t missing = 0;
        Value value = key.Get(name, &missing);
        if (missing != 0 && onLoss) onLoss(ShowShortData(key, name, value, missing));
        return value;
    } catch (const StoreError& error) {
        TellOrThrow(error, key, onLoss);
        return std::nullopt;
    }
}

}  // namespace fbr
