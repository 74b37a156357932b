// SPDX-License-Identifier: MIT
#include "offreg/OfflineRegistry.h"

#include <algorithm>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "Shared/logging/Logger.h"
#include "Shared/security/SecurityDescriptor.h"
#include "Shared/security/SecurityText.h"
#include "offreg/HiveFile.h"
#include "offreg/HiveReader.h"
#include "offreg/HiveTree.h"
#include "offreg/HiveWriter.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "offreg/OfflineRegistry"

using namespace offreg;
using Varnhold::Hob::Detail::kWarning;

namespace {

constexpr uint32_t kSuccess = 0;
constexpr uint32_t kFileNotFound = 2;
constexpr uint32_t kInvalidHandle = 6;
constexpr uint32_t kOutOfMemory = 14;
constexpr uint32_t kInvalidParameter = 87;
constexpr uint32_t kMoreData = 234;
constexpr uint32_t kNoMoreItems = 259;
constexpr uint32_t kKeyDeleted = 1018;
constexpr uint32_t kKeyHasChildren = 1020;
constexpr uint32_t kInvalidSecurityDescriptor = 1338;
constexpr uint32_t kFileCorrupt = 1392;

constexpr uint32_t kOptionLink = 2;
constexpr uint32_t kCreatedNewKey = 1;
constexpr uint32_t kOpenedExistingKey = 2;

constexpr size_t kLongestKeyName = 255;
constexpr size_t kLongestValueName = 16383;
// No list is above 64 KiB, no SID above 68 bytes: a descriptor ends well below this.
constexpr size_t kLargestDescriptor = 256 << 10;

constexpr const WChar* kDefaultSecurity =
    WTEXT("O:BAG:SYD:(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)");

constexpr uint32_t kHandleMark = 0x6B657948;

struct OpenHive;

// What an ORHKEY points at.
struct Handle {
    uint32_t mark = kHandleMark;
    OpenHive* hive = nullptr;
    Key* key = nullptr;
    std::list<Handle>::iterator self;  // unset in the hive's own handle

    ~Handle() { mark = 0; }
};

struct OpenHive {
    OpenHive() {
        root.hive = this;
        root.key = &tree.Root();
    }

    std::mutex lock;
    Hive tree;
    bool isDamaged = false;  // the file holds more than the tree
    Handle root;
    std::list<Handle> handles;  // all others that are open
};

Handle* AsHandle(ORHKEY handle) {
    auto* candidate = static_cast<Handle*>(handle);
    return candidate != nullptr && candidate->mark == kHandleMark ? candidate : nullptr;
}

OpenHive* AsHive(ORHKEY handle) {
    Handle* candidate = AsHandle(handle);
    return candidate != nullptr && candidate == &candidate->hive->root ? candidate->hive : nullptr;
}

template <class Body>
uint32_t Guarded(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    } catch (const std::length_error&) {
        return kOutOfMemory;
    }
}

// Runs `body` on the key of a handle, under the hive's lock.
template <class Body>
uint32_t WithKey(ORHKEY handle, Body body) noexcept {
    Handle* open = AsHandle(handle);
    if (open == nullptr) return kInvalidHandle;
    const std::lock_guard guard(open->hive->lock);
    if (open->key->deleted) return kKeyDeleted;
    return Guarded([&] { return body(*open->hive, *open->key); });
}

// The same for a body that changes the hive. What could not be read of a damaged hive would be lost
// with the first save, so that such a hive is not changed.
template <class Body>
uint32_t WithKeyToChange(ORHKEY handle, Body body) noexcept {
    return WithKey(handle, [&](OpenHive& hive, Key& key) -> uint32_t {
        return hive.isDamaged ? kFileCorrupt : body(hive, key);
    });
}

void TellLeftOut(const OR_WCHAR* path, const LeftOut& leftOut) {
    constexpr const char* kFunction = "OROpenHive";
    if (leftOut.count == 0) return;
    const std::string file = platform::ToUtf8(path);
    for (const std::string& what : leftOut.told) {
        ZRFS_LOG(kWarning, kFunction, "[{}] is damaged: {} cannot be read", file, what);
    }
    ZRFS_LOG(kWarning, kFunction, "[{}] is read without [{}] damaged parts and cannot be changed",
             file, leftOut.count);
}

WStringView TextOf(const OR_WCHAR* text) {
    return text == nullptr ? WStringView() : WStringView(text);
}

// The key at the end of `path` below `from`.
uint32_t Walk(Key& from, WStringView path, Key** found) {
    *found = &from;
    while (!path.empty()) {
        const size_t length = std::min(path.find('\\'), path.size());
        *found = (*found)->subkeys.Find(path.substr(0, length));
        if (*found == nullptr || length + 1 == path.size()) return kFileNotFound;
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return kSuccess;
}

// Makes room for a handle first, so that nothing can fail once a key exists.
class NewHandle {
  public:
    explicit NewHandle(OpenHive& hive) : hive_(hive) {
        handle_ = &hive.handles.emplace_back();
        handle_->hive = &hive;
        handle_->self = std::prev(hive.handles.end());
    }
    ~NewHandle() {
        if (handle_ != nullptr) hive_.handles.erase(handle_->self);
    }
    NewHandle(const NewHandle&) = delete;
    NewHandle& operator=(const NewHandle&) = delete;

    void Give(Key& key, ORHKEY* result) {
        handle_->key = &key;
        ++key.handles;
        *result = std::exchange(handle_, nullptr);
    }

  private:
    OpenHive& hive_;
    Handle* handle_;
};

Bytes DefaultDescriptor() {
    Bytes descriptor;
    security::ParseSecurityText(kDefaultSecurity, &descriptor);
    return descriptor;
}

// A caller's descriptor tells its own size; the caller's memory is trusted.
bool TakeCallersApart(const void* descriptor, security::Parts* parts) {
    return security::TakeApart({static_cast<const uint8_t*>(descriptor), kLargestDescriptor},
                               parts);
}

// The key's own descriptor or, where the file has none or a broken one, the default. `kept` holds
// the bytes in the second case.
security::Parts PartsOf(const Key& key, Bytes* kept) {
    security::Parts parts;
    if (key.security != nullptr && security::TakeApart(*key.security->descriptor, &parts)) {
        return parts;
    }
    *kept = DefaultDescriptor();
    security::TakeApart(*kept, &parts);
    return parts;
}

// Stores a name and its terminator. `units` is the buffer's size, then the name's.
uint32_t GiveName(WStringView name, OR_WCHAR* buffer, uint32_t* units) {
    const auto length = static_cast<uint32_t>(name.size());
    if (buffer == nullptr || *units <= length) {
        *units = length + 1;
        return kMoreData;
    }
    std::copy(name.begin(), name.end(), buffer);
    buffer[length] = 0;
    *units = length;
    return kSuccess;
}

// Stores data, or just its size when there is no buffer.
uint32_t GiveData(const Bytes& data, void* buffer, uint32_t* bytes) {
    const auto size = static_cast<uint32_t>(data.size());
    const bool fits = bytes != nullptr && size <= *bytes;
    if (bytes != nullptr) *bytes = size;
    if (buffer == nullptr) return kSuccess;
    if (!fits) return kMoreData;
    std::copy(data.begin(), data.end(), static_cast<uint8_t*>(buffer));
    return kSuccess;
}

void GiveTime(uint64_t time, ORFILETIME* out) {
    if (out != nullptr) *out = {static_cast<uint32_t>(time), static_cast<uint32_t>(time >> 32)};
}

void GiveNumber(size_t number, uint32_t* out) {
    if (out != nullptr) *out = static_cast<uint32_t>(number);
}

bool IsKnownSystem(uint32_t major, uint32_t minor) {
    return (major == 5 && (minor == 1 || minor == 2)) || (major == 6 && minor <= 3) ||
           (major == 10 && minor == 0);
}

Key* AddKey(OpenHive& hive, Key& parent, WStringView name, const Bytes& descriptor) {
    Key* key = hive.tree.AddKey(parent, WString(name));
    if (!descriptor.empty()) {
        try {
            hive.tree.SetSecurity(*key, descriptor);
        } catch (...) {
            hive.tree.RemoveKey(*key);
            throw;
        }
    }
    key->lastWrite = parent.lastWrite = FileTimeNow();
    return key;
}

uint32_t DeleteKey(OpenHive& hive, Key& key) {
    if (key.parent == nullptr) return kInvalidParameter;
    if (key.subkeys.Count() != 0) return kKeyHasChildren;
    key.parent->lastWrite = FileTimeNow();
    hive.tree.RemoveKey(key);
    return kSuccess;
}

}  // namespace

uint32_t OROpenHive(const OR_WCHAR* path, ORHKEY* hive) {
    if (path == nullptr || hive == nullptr) return kInvalidParameter;
    *hive = nullptr;
    return Guarded([&]() -> uint32_t {
        Bytes content;
        uint32_t error = ReadWholeFile(path, &content);
        if (error != kSuccess) return error;
        auto opened = std::make_unique<OpenHive>();
        LeftOut leftOut;
        error = ReadHive(content.data(), content.size(), opened->tree, &leftOut);
        if (error != kSuccess) return error;
        TellLeftOut(path, leftOut);
        opened->isDamaged = leftOut.count != 0;
        *hive = &opened.release()->root;
        return kSuccess;
    });
}

uint32_t ORCreateHive(ORHKEY* hive) {
    if (hive == nullptr) return kInvalidParameter;
    *hive = nullptr;
    return Guarded([&] {
        auto made = std::make_unique<OpenHive>();
        Key& root = made->tree.Root();
        root.name = WTEXT("ROOT");
        root.lastWrite = FileTimeNow();
        made->tree.SetSecurity(root, DefaultDescriptor());
        *hive = &made.release()->root;
        return kSuccess;
    });
}

uint32_t ORCloseHive(ORHKEY hive) {
    OpenHive* open = AsHive(hive);
    if (open == nullptr) return kInvalidHandle;
    delete open;
    return kSuccess;
}

uint32_t ORSaveHive(ORHKEY hive, const OR_WCHAR* path, uint32_t osMajor, uint32_t osMinor) {
    OpenHive* open = AsHive(hive);
    if (open == nullptr) return kInvalidHandle;
    if (path == nullptr || !IsKnownSystem(osMajor, osMinor)) return kInvalidParameter;
    return WithKeyToChange(hive, [&](OpenHive& owner, Key&) -> uint32_t {
        Bytes content;
        const uint32_t error = WriteHive(owner.tree, FileTimeNow(), path, &content);
        return error != kSuccess ? error : SaveNewFile(path, content);
    });
}

uint32_t OROpenKey(ORHKEY key, const OR_WCHAR* path, ORHKEY* result) {
    if (result == nullptr) return kInvalidParameter;
    *result = nullptr;
    return WithKey(key, [&](OpenHive& hive, Key& from) {
        Key* found = nullptr;
        const uint32_t error = Walk(from, TextOf(path), &found);
        if (error == kSuccess) NewHandle(hive).Give(*found, result);
        return error;
    });
}

uint32_t ORCloseKey(ORHKEY key) {
    Handle* open = AsHandle(key);
    if (open == nullptr || AsHive(key) != nullptr) return kInvalidHandle;
    OpenHive& hive = *open->hive;
    const std::lock_guard guard(hive.lock);
    Key& closed = *open->key;
    hive.handles.erase(open->self);
    --closed.handles;
    hive.tree.Collect(closed);
    return kSuccess;
}

uint32_t ORCreateKey(ORHKEY key, const OR_WCHAR* path, const OR_WCHAR* className, uint32_t options,
                     const void* descriptor, ORHKEY* result, uint32_t* disposition) {
    if (path == nullptr || result == nullptr) return kInvalidParameter;
    *result = nullptr;
    if (options != 0 && options != kOptionLink) return kInvalidParameter;
    return WithKey(key, [&](OpenHive& hive, Key& from) {
        const WStringView whole(path);
        const size_t cut = whole.rfind('\\') + 1;  // 0 when there is none
        const WStringView name = whole.substr(cut);
        Key* parent = &from;
        const uint32_t error = Walk(from, whole.substr(0, cut == 0 ? 0 : cut - 1), &parent);
        if (error != kSuccess) return error;
        if (name.empty()) return cut == 0 ? kInvalidParameter : kFileNotFound;

        NewHandle handle(hive);
        Key* found = parent->subkeys.Find(name);
        if (disposition != nullptr) {
            *disposition = found != nullptr ? kOpenedExistingKey : kCreatedNewKey;
        }
        if (found == nullptr) {
            if (hive.isDamaged) return kFileCorrupt;
            if (name.size() > kLongestKeyName || parent->depth >= kMaxDepth) {
                return kInvalidParameter;
            }
            security::Parts parts;
            if (descriptor != nullptr && !TakeCallersApart(descriptor, &parts)) {
                return kInvalidSecurityDescriptor;
            }
            WString newClass(TextOf(className));
            found = AddKey(hive, *parent, name,
                           descriptor != nullptr ? security::PutTogether(parts) : Bytes());
            found->className = std::move(newClass);
            found->isLink = options == kOptionLink;
        }
        handle.Give(*found, result);
        return kSuccess;
    });
}

uint32_t ORDeleteKey(ORHKEY key, const OR_WCHAR* path) {
    return WithKeyToChange(key, [&](OpenHive& hive, Key& from) {
        Key* found = nullptr;
        const uint32_t error = Walk(from, TextOf(path), &found);
        return error != kSuccess ? error : DeleteKey(hive, *found);
    });
}

uint32_t OREnumKey(ORHKEY key, uint32_t index, OR_WCHAR* name, uint32_t* nameUnits,
                   OR_WCHAR* className, uint32_t* classUnits, ORFILETIME* lastWrite) {
    if (nameUnits == nullptr || (className != nullptr && classUnits == nullptr)) {
        return kInvalidParameter;
    }
    return WithKey(key, [&](OpenHive&, Key& from) {
        if (index >= from.subkeys.Count()) return kNoMoreItems;
        const Key& found = *from.subkeys.At(index);
        uint32_t error = GiveName(found.name, name, nameUnits);
        if (className != nullptr) {
            const uint32_t classError = GiveName(found.className, className, classUnits);
            if (error == kSuccess) error = classError;
        }
        if (error == kSuccess) GiveTime(found.lastWrite, lastWrite);
        return error;
    });
}

uint32_t ORDeleteValue(ORHKEY key, const OR_WCHAR* name) {
    return WithKeyToChange(key, [&](OpenHive&, Key& from) {
        const Value* found = from.values.Find(TextOf(name));
        if (found == nullptr) return kFileNotFound;
        from.values.Remove(found);
        from.lastWrite = FileTimeNow();
        return kSuccess;
    });
}

uint32_t ORGetValue(ORHKEY key, const OR_WCHAR* path, const OR_WCHAR* name, uint32_t* type,
                    void* data, uint32_t* bytes) {
    if (data != nullptr && bytes == nullptr) return kInvalidParameter;
    return WithKey(key, [&](OpenHive&, Key& from) {
        Key* owner = nullptr;
        const uint32_t error = Walk(from, TextOf(path), &owner);
        if (error != kSuccess) return error;
        const Value* found = owner->values.Find(TextOf(name));
        if (found == nullptr) return kFileNotFound;
        GiveNumber(found->type, type);
        return GiveData(found->data, data, bytes);
    });
}

uint32_t ORSetValue(ORHKEY key, const OR_WCHAR* name, uint32_t type, const void* data,
                    uint32_t bytes) {
    const auto* start = static_cast<const uint8_t*>(data);
    // The highest bit of a size has a meaning of its own in the file.
    if ((data == nullptr && bytes != 0) || bytes >= 0x80000000) return kInvalidParameter;
    return WithKeyToChange(key, [&](OpenHive&, Key& from) {
        const WStringView wanted = TextOf(name);
        if (wanted.size() > kLongestValueName) return kInvalidParameter;
        Value* value = from.values.Find(wanted);
        if (value != nullptr) {
            value->data.assign(start, start + bytes);
        } else {
            Bytes copy(start, start + bytes);
            value = from.values.Add(WString(wanted));
            value->data = std::move(copy);
        }
        value->type = type;
        from.lastWrite = FileTimeNow();
        return kSuccess;
    });
}

uint32_t OREnumValue(ORHKEY key, uint32_t index, OR_WCHAR* name, uint32_t* nameUnits,
                     uint32_t* type, void* data, uint32_t* bytes) {
    if (nameUnits == nullptr || (data != nullptr && bytes == nullptr)) return kInvalidParameter;
    return WithKey(key, [&](OpenHive&, Key& from) {
        if (index >= from.values.Count()) return kNoMoreItems;
        const Value& found = *from.values.At(index);
        const uint32_t error = GiveName(found.name, name, nameUnits);
        const uint32_t dataError = GiveData(found.data, data, bytes);
        GiveNumber(found.type, type);
        return error != kSuccess ? error : dataError;
    });
}

uint32_t ORQueryInfoKey(ORHKEY key, OR_WCHAR* className, uint32_t* classUnits, uint32_t* subkeys,
                        uint32_t* longestSubkey, uint32_t* longestClass, uint32_t* values,
                        uint32_t* longestValueName, uint32_t* longestData,
                        uint32_t* descriptorBytes, ORFILETIME* lastWrite) {
    if (className != nullptr && classUnits == nullptr) return kInvalidParameter;
    return WithKey(key, [&](OpenHive&, Key& from) {
        size_t longest[4] = {};
        if (longestSubkey != nullptr || longestClass != nullptr) {
            from.subkeys.ForEach([&longest](const Key& subkey) {
                longest[0] = std::max(longest[0], subkey.name.size());
                longest[1] = std::max(longest[1], subkey.className.size());
            });
        }
        if (longestValueName != nullptr || longestData != nullptr) {
            for (size_t i = 0; i < from.values.Count(); ++i) {
                longest[2] = std::max(longest[2], from.values.At(i)->name.size());
                longest[3] = std::max(longest[3], from.values.At(i)->data.size());
            }
        }
        GiveNumber(from.subkeys.Count(), subkeys);
        GiveNumber(longest[0], longestSubkey);
        GiveNumber(longest[1], longestClass);
        GiveNumber(from.values.Count(), values);
        GiveNumber(longest[2], longestValueName);
        GiveNumber(longest[3], longestData);
        GiveNumber(from.security != nullptr ? from.security->descriptor->size() : 0,
                   descriptorBytes);
        GiveTime(from.lastWrite, lastWrite);
        return classUnits != nullptr ? GiveName(from.className, className, classUnits) : kSuccess;
    });
}

uint32_t ORGetKeySecurity(ORHKEY key, uint32_t information, void* descriptor, uint32_t* bytes) {
    if (bytes == nullptr) return kInvalidParameter;
    return WithKey(key, [&](OpenHive&, Key& from) {
        Bytes kept;
        const Bytes chosen = security::Select(PartsOf(from, &kept), information);
        const uint32_t room = descriptor != nullptr ? *bytes : 0;
        GiveNumber(chosen.size(), bytes);
        if (room < chosen.size()) return kMoreData;
        std::copy(chosen.begin(), chosen.end(), static_cast<uint8_t*>(descriptor));
        return kSuccess;
    });
}

uint32_t ORSetKeySecurity(ORHKEY key, uint32_t information, const void* descriptor) {
    if (descriptor == nullptr) return kInvalidParameter;
    return WithKeyToChange(key, [&](OpenHive& hive, Key& from) {
        security::Parts changed;
        if (!TakeCallersApart(descriptor, &changed)) return kInvalidSecurityDescriptor;
        Bytes kept;
        hive.tree.SetSecurity(from, security::Merge(PartsOf(from, &kept), changed, information));
        from.lastWrite = FileTimeNow();
        return kSuccess;
    });
}
