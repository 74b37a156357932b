// SPDX-License-Identifier: MIT
// Keys, and the values in them.
#ifndef ZRFS_KEY_HPP
#define ZRFS_KEY_HPP

#include "listing.hpp"
#include "value.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zrfs {

struct NamedValue {
    std::string name;
    Value value;
};

// An open key.
class Key {
  public:
    Key(Key&& other) noexcept : store_(other.store_), handle_(std::exchange(other.handle_, 0)) {}
    Key& operator=(Key&& other) noexcept {
        std::swap(store_, other.store_);
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Key() {
        if (handle_ != 0) FBR_CloseDirEx(handle_, store_);
    }

    FBR_KEY handle() const noexcept { return handle_; }
    // As it was asked for, in whatever case, and not as the store spells it, which subkeys() of the
    // key above tells; the live registry may give its own. Empty for the root.
    std::string name() const { return text_of(FBR_GetName_DirEx, "the name of a key"); }
    // The same of the way from the root, with a backslash in front.
    std::string path() const { return text_of(FBR_GetFullName_DirEx, "the path of a key"); }

    // A key below this one, by a name or a path.
    Key open(const Text& path) const {
        FBR_KEY key = 0;
        check(open_handle(path, key), detail::told("open key ", path));
        return Key(store_, key);
    }
    std::optional<Key> find(const Text& path) const {
        FBR_KEY key = 0;
        const FBR_STATUS status = open_handle(path, key);
        if (status == FSSTATUS_NOT_FOUND) return {};
        check(status, detail::told("open key ", path));
        return Key(store_, key);
    }
    // Makes it, and the keys on the way, where they are missing. Values of their names stay.
    Key create(const Text& path, FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE) const {
        if (path.has_zero()) check(FSSTATUS_INVALID_NAME, detail::told("make key ", path));
        make_way(path.wide());
        return made(path, options);
    }
    // A name, not a path.
    void rename(const Text& name) {
        if (name.has_zero() || name.wide().find('\\') != WideString::npos)
            check(FSSTATUS_INVALID_NAME, detail::told("rename a key to ", name));
        check(FBR_RenameDirEx(handle_, name.c_str(), store_),
              detail::told("rename a key to ", name));
    }
    // The key with its values; it must have no subkeys. The object is as if closed afterwards.
    void remove() && {
        const FBR_STATUS status = FBR_DeleteDirEx(handle_, store_);
        check(status, "delete a key");
        handle_ = 0;
    }
    // FSSTATUS_FILE_CORRUPT where what the store tells is no moment.
    std::chrono::sys_time<std::chrono::milliseconds> modified() const {
        FBR_SYSTEMTIME t{};
        check(FBR_GetDirTimesEx(handle_, &t, store_), "the time of a key");
        using namespace std::chrono;
        const auto first = year(t.wYear) / t.wMonth / 1;
        if (t.wYear < 1601 || !first.ok() || t.wDay > 31)
            check(FSSTATUS_FILE_CORRUPT, "the time of a key");
        // Day 0 is the one before the first.
        return sys_days(first) + days(t.wDay - 1) + hours(t.wHour) + minutes(t.wMinute) +
               seconds(t.wSecond) + milliseconds(t.wMilliseconds);
    }

    // The value of a name; the empty one is the unnamed value.
    Value get(const Text& name) const {
        Value value;
        check(query(name, value), detail::told("read value ", name));
        return value;
    }
    std::optional<Value> try_get(const Text& name) const {
        Value value;
        const FBR_STATUS status = query(name, value);
        if (status == FSSTATUS_NOT_FOUND) return {};
        check(status, detail::told("read value ", name));
        return value;
    }
    void set(const Text& name, const Value& value) const {
        if (name.has_zero()) check(FSSTATUS_INVALID_NAME, detail::told("set value ", name));
        check(FBR_SetValue(handle_, name.c_str(), value.type, value.data.data(), value.data.size(),
                           store_),
              detail::told("set value ", name));
    }
    // False when there is no such value.
    bool remove_value(const Text& name) const {
        if (name.has_zero()) return false;
        const FBR_STATUS status = FBR_DeleteValue(handle_, name.c_str(), store_);
        if (status == FSSTATUS_NOT_FOUND) return false;
        check(status, detail::told("delete value ", name));
        return true;
    }

    // Names of subkeys and of values, and values with their names, in the store's order. A key that
    // is a temporary object lives on in its listing.
    Listing<std::string> subkeys() const& { return names(this, FBR_EnumIntDirEx); }
    Listing<std::string> subkeys() && { return names(kept(), FBR_EnumIntDirEx); }
    Listing<std::string> value_names() const& { return names(this, FBR_EnumIntFileEx); }
    Listing<std::string> value_names() && { return names(kept(), FBR_EnumIntFileEx); }
    Listing<NamedValue> values() const& { return named_values(this); }
    Listing<NamedValue> values() && { return named_values(kept()); }

  private:
    friend class Store;
    Key(FBR_STORE store, FBR_KEY handle) : store_(store), handle_(handle) {}

    FBR_STATUS open_handle(const Text& path, FBR_KEY& key) const {
        if (path.has_zero()) return FSSTATUS_NOT_FOUND;
        return FBR_OpenDirEx(handle_, path.c_str(), &key, store_);
    }
    Key made(const Text& path, FBR_CREATEOPTIONS options) const {
        FBR_KEY key = 0;
        const FBR_STATUS status = FBR_CreateDirEx(handle_, path.c_str(), options, &key, store_);
        if (status != FSSTATUS_ALREADY_EXISTS) check(status, detail::told("make key ", path));
        return Key(store_, key);
    }
    // A container makes a key of a path below a value, too, where no list shows it. Made one by
    // one, keys stand beside the values of their names.
    void make_way(const WideString& path) const {
        const size_t last = path.rfind('\\');
        if (last == WideString::npos || last == 0 || find(path.substr(0, last))) return;
        for (size_t end = path.find('\\', 1); end != WideString::npos;
             end = path.find('\\', end + 1))
            made(path.substr(0, end), FSCREATEOPTIONS_NONE);
    }

    template <class Function>
    std::string text_of(Function function, const char* what) const {
        FBR_WCHAR* text = nullptr;
        check(function(handle_, &text, store_), what);
        return take(text);
    }
    // `key` is a pointer, which may own the key.
    template <class Pointer, class Function>
    static Listing<std::string> names(Pointer key, Function function) {
        return Listing<std::string>([=](uint32_t i) { return key->entry(function, i); });
    }
    template <class Pointer>
    static Listing<NamedValue> named_values(Pointer key) {
        return Listing<NamedValue>([=](uint32_t i) -> std::optional<NamedValue> {
            std::optional<std::string> name = key->entry(FBR_EnumIntFileEx, i);
            if (!name) return {};
            Value value = key->get(*name);
            return NamedValue{std::move(*name), std::move(value)};
        });
    }
    std::shared_ptr<const Key> kept() { return std::make_shared<const Key>(std::move(*this)); }
    template <class Function>
    std::optional<std::string> entry(Function function, uint32_t index) const {
        FBR_WCHAR* name = nullptr;
        const FBR_STATUS status = function(handle_, index, &name, store_);
        if (status == FSSTATUS_NO_MORE_ENTRIES) return {};
        check(status, "list a key");
        return take(name);
    }
    static std::string take(FBR_WCHAR* text) {
        struct Release {
            FBR_WCHAR* text;
            ~Release() { FBR_Release(text); }
        } const release{text};
        return text == nullptr ? std::string() : to_utf8(text);
    }
    // One call does for a small value. A buffer that came back full may have more behind it; it
    // grows with what is there, not with what a damaged value claims.
    FBR_STATUS query(const Text& name, Value& value) const {
        if (name.has_zero()) return FSSTATUS_NOT_FOUND;
        for (size_t room = 512;; room *= 4) {
            value.data.resize(room);
            uint64_t size = 0;
            const FBR_STATUS status = FBR_QueryValue(handle_, name.c_str(), value.data.data(), room,
                                                     &size, &value.type, store_);
            if (status != FSSTATUS_SUCCESS && status != FSSTATUS_BUFFER_OVERFLOW) return status;
            if (status == FSSTATUS_SUCCESS && size < room) {
                value.data.resize(size);
                return status;
            }
            if (room > UINT32_MAX) return FSSTATUS_FAILED;
        }
    }

    FBR_STORE store_;
    FBR_KEY handle_;
};

}  // namespace zrfs

#endif
