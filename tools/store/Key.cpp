// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "FS_Library_DLL/keystore/FsBrackenTarnImpl.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "tools/format/Text.h"
#include "tools/store/Place.h"
#include "tools/store/Store.h"

namespace fbr {
namespace {

constexpr size_t kFirstBuffer = 1024;         // holds the data of most values
constexpr uint64_t kLargeStep = 1024 * 1024;  // what a claim alone is worth

// What a store tells may be damaged, or no moment at all. A container tells the last day of a year
// as day 0 of the next.
std::optional<FBR_SYSTEMTIME> InCalendar(FBR_SYSTEMTIME time) {
    using namespace std::chrono;
    constexpr unsigned kFirstYear = 1601, kLastYear = 9999;
    if (time.wMonth == 1 && time.wDay == 0) {
        --time.wYear;
        time.wMonth = 12;
        time.wDay = 31;
    }
    const year_month_day date{year(time.wYear), month(time.wMonth), day(time.wDay)};
    const bool isOne = date.ok() && time.wYear >= kFirstYear && time.wYear <= kLastYear &&
                       time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 &&
                       time.wMilliseconds < 1000;
    return isOne ? std::optional(time) : std::nullopt;
}

}  // namespace

WString Key::Below(WStringView name) const {
    WString path = path_;
    if (!path.empty()) path += '\\';
    return path += name;
}

std::string Key::ShowValue(WStringView name) const {
    return fmt::format("value \"{}\" of key {} in {}", Printable(name), ShowKey(path_),
                       store_->Name());
}

std::string Key::ShowSubkey(WStringView name) const {
    return fmt::format("key {} in {}", ShowKey(Below(name)), store_->Name());
}

std::string Key::Show() const {
    return fmt::format("key {} in {}", ShowKey(path_), store_->Name());
}

void Key::Fail(const std::string& what, FBR_STATUS status) const {
    store_->ThrowFailed(what, status);
}

Key Key::OpenSubkey(WStringView name) const {
    const auto what = [&] { return "cannot open " + ShowSubkey(name); };
    return Key(*store_, Below(name), store_->Told(what, [&] { return key_.open(name); }));
}

Key Key::CreateSubkey(WStringView name) const {
    const auto what = [&] { return "cannot make " + ShowSubkey(name); };
    return Key(*store_, Below(name), store_->Told(what, [&] { return key_.create(name); }));
}

std::optional<Key> Key::TryCreateBelow(WStringView path) const {
    try {
        return Key(*store_, Below(path), key_.create(path));
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

void Key::AddSubkeyNames(std::vector<WString>& names) const {
    const FBR_STATUS status = FBR_EnumerateAllKeys(key_.handle(), names, store_->Handle());
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_NO_MORE_ENTRIES) {
        Fail(fmt::format("cannot list the subkeys of {} in {}", ShowKey(path_), store_->Name()),
             status);
    }
}

void Key::AddValueNames(std::vector<WString>& names) const {
    const FBR_STATUS status = FBR_EnumerateAllValues(key_.handle(), names, store_->Handle());
    if (store_->IsText() && path_.empty()) std::erase_if(names, IsVersionName);
    if (!store_->KeepsUnnamedApart()) {
        for (WString& name : names) {
            if (platform::CompareFolded(name, WTEXT("(Default)")) == 0) name.clear();
        }
    }
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_NO_MORE_ENTRIES) {
        Fail(fmt::format("cannot list the values of {} in {}", ShowKey(path_), store_->Name()),
             status);
    }
}

bool Key::HasSubkeys() const {
    FBR_WCHAR* name = nullptr;
    const FBR_STATUS status = FBR_EnumIntDirEx(key_.handle(), 0, &name, store_->Handle());
    FBR_Release(name);
    // A name that cannot be given is that of a subkey all the same.
    return status == FSSTATUS_SUCCESS || status == FSSTATUS_INVALID_NAME;
}

std::optional<FBR_SYSTEMTIME> Key::Time() const {
    FBR_SYSTEMTIME time = {};
    if (store_->IsText()) return std::nullopt;  // that of the reading
    if (FBR_GetDirTimesEx(key_.handle(), &time, store_->Handle()) == FSSTATUS_SUCCESS)
        return InCalendar(time);
    // A container does not find a key by a path of names that it writes otherwise.
    const auto* container = dynamic_cast<const FsBrackenTarnImpl*>(store_->Handle());
    if (container == nullptr ||
        FsTimeOfAnyKey(key_.handle(), &time, container->Context()) != FSSTATUS_SUCCESS)
        return std::nullopt;
    return InCalendar(time);
}

// Values are asked for at the store itself, for the exported functions call the unnamed value
// "(Default)" before the store sees the name, and most stores take that for a name like any other.
FBR_STATUS Key::Query(const WString& name, size_t room, Value* value, uint64_t* size) const {
    value->data.resize(room);
    void* buffer = room != 0 ? value->data.data() : nullptr;
    const FBR_STATUS status = store_->Handle()->FBR_QueryValue(key_.handle(), name.c_str(), buffer,
                                                               room, size, &value->type);
    return room != 0 && status == FSSTATUS_SUCCESS && *size > room ? FSSTATUS_BUFFER_OVERFLOW
                                                                   : status;
}

// One call does for a small value. A store may fill a short buffer and say nothing of the rest,
// so data that fills the buffer is asked for again by its size.
Value Key::Get(const WString& name, uint64_t* missing) const {
    Value value;
    uint64_t size = 0;
    if (missing != nullptr) *missing = 0;
    FBR_STATUS status = Query(name, kFirstBuffer, &value, &size);
    const bool whole = status == FSSTATUS_SUCCESS && size < kFirstBuffer;
    if (!whole && (status == FSSTATUS_SUCCESS || status == FSSTATUS_BUFFER_OVERFLOW)) {
        uint64_t claimed = 0;
        status = Query(name, 0, &value, &claimed);
        if (status == FSSTATUS_SUCCESS) size = claimed;
        if (status == FSSTATUS_BUFFER_OVERFLOW)
            status = GetClaimed(name, claimed, &value, &size, missing);
    }
    if (status != FSSTATUS_SUCCESS) Fail("cannot read " + ShowValue(name), status);
    value.data.resize(std::min<uint64_t>(size, value.data.size()));
    return value;
}

// A damaged value may claim any size: the buffer grows with the data that is really there, and
// never past all that the store holds.
FBR_STATUS Key::GetClaimed(const WString& name, uint64_t claimed, Value* value, uint64_t* size,
                           uint64_t* missing) const {
    const uint64_t most = std::min(claimed, store_->BytesHeld());
    for (uint64_t room = std::min(most, kLargeStep);; room = std::min(most, room * 2)) {
        const FBR_STATUS status = Query(name, room, value, size);
        if (status != FSSTATUS_SUCCESS && status != FSSTATUS_BUFFER_OVERFLOW) return status;
        const bool ended = status == FSSTATUS_SUCCESS && *size < room;
        if (!ended && room < most) continue;
        if (!ended && most < claimed) {
            Fail(fmt::format("cannot read {}, which claims {} bytes, more than the store holds",
                             ShowValue(name), claimed),
                 FSSTATUS_FILE_CORRUPT);
        }
        if (ended && missing != nullptr) *missing = claimed - *size;
        return status;
    }
}

void Key::Set(const WString& name, uint32_t type, const Bytes& data) const {
    const FBR_STATUS status =
        store_->Handle()->FBR_SetValue(key_.handle(), name.c_str(), type, data.data(), data.size());
    if (status != FSSTATUS_SUCCESS) Fail("cannot set " + ShowValue(name), status);
}

bool Key::DeleteValue(const WString& name) const {
    return store_->Told([&] { return "cannot remove " + ShowValue(name); },
                        [&] { return key_.remove_value(name); });
}

void Key::Delete() {
    const auto what = [&] {
        return fmt::format("cannot remove key {} in {}", ShowKey(path_), store_->Name());
    };
    store_->Told(what, [&] { std::move(key_).remove(); });
}

void Key::Rename(const WString& name) {
    const auto what = [&] {
        return fmt::format("cannot rename key {} to {} in {}", ShowKey(path_), Printable(name),
                           store_->Name());
    };
    store_->Told(what, [&] { key_.rename(name); });
}

}  // namespace fbr
