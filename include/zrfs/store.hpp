// SPDX-License-Identifier: MIT
// Stores, keys and values as C++20 objects, over the flat functions and nothing else of the
// library: a program may use it with any compiler and any C++ run time.
//
// What is opened closes with its object. A failure is a std::system_error whose code is a
// FBR_STATUS of zrfs::category(). Text is UTF-8 (std::string_view) or UTF-16
// (std::basic_string_view<FBR_WCHAR>) where it goes in, UTF-8 where it comes out; a unit of UTF-16
// that has no partner goes through as the three bytes that it would have, and back. A Key, a lock
// and a range do not outlive their Store. Threads: as for the flat functions, but each object
// belongs to one thread at a time.
//
//     zrfs::Store store("settings.fbr");
//     zrfs::WriteLock lock(store);
//     zrfs::Key key = store.create("Software\\Hello");
//     key.set("Count", zrfs::Value::dword(42));
//     for (const auto& [name, value] : key.values()) ...
#ifndef ZRFS_STORE_HPP
#define ZRFS_STORE_HPP

#if __has_include("ZrFsLibrary.h")
#include "ZrFsLibrary.h"
#else
#include "../ZrFsLibrary.h"
#endif

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace zrfs {

using WideString = std::basic_string<FBR_WCHAR>;
using WideView = std::basic_string_view<FBR_WCHAR>;

// ---- Failures ----

// The category of FBR_STATUS; its messages are those of FsStatusText.
inline const std::error_category& category() noexcept {
    class Category : public std::error_category {
      public:
        const char* name() const noexcept override { return "zrfs"; }
        std::string message(int code) const override {
            return FsStatusText(static_cast<FBR_STATUS>(code));
        }
    };
    static const Category instance;
    return instance;
}

inline std::error_code make_error_code(FBR_STATUS status) noexcept {
    return {static_cast<int>(status), category()};
}

// Throws for anything but success. `what` tells what was done, and on what.
inline void check(FBR_STATUS status, const std::string& what) {
    if (status != FSSTATUS_SUCCESS) throw std::system_error(make_error_code(status), what);
}

// ---- Text ----

namespace detail {

inline void append_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kFirst[more] | c >> 6 * more);
    for (int i = more - 1; i >= 0; --i) out += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
}

// The character at `at`, which moves behind it. A byte that begins none is one by itself.
inline char32_t next_utf8(std::string_view text, size_t& at) {
    const auto first = static_cast<unsigned char>(text[at++]);
    const int more = first < 0xC2 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : first < 0xF5 ? 3 : 0;
    if (first < 0x80) return first;
    if (more == 0 || text.size() - at < static_cast<size_t>(more)) return 0xFFFD;
    char32_t c = first & (0x3Fu >> more);
    for (int i = 0; i < more; ++i) {
        const auto byte = static_cast<unsigned char>(text[at + static_cast<size_t>(i)]);
        if ((byte & 0xC0) != 0x80) return 0xFFFD;
        c = c << 6 | (byte & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (c < kLeast[more] || c > 0x10FFFF) return 0xFFFD;
    at += static_cast<size_t>(more);
    return c;
}

}  // namespace detail

inline std::string to_utf8(WideView text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<char16_t>(text[i]);
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size()) {
            const char32_t low = static_cast<char16_t>(text[i + 1]);
            if (low >= 0xDC00 && low < 0xE000) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        detail::append_utf8(out, c);
    }
    return out;
}

inline WideString to_utf16(std::string_view text) {
    WideString out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const char32_t c = detail::next_utf8(text, at);
        if (c >= 0x10000) {
            out += static_cast<FBR_WCHAR>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<FBR_WCHAR>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<FBR_WCHAR>(c);
        }
    }
    return out;
}

// A text that goes in, in either form.
class Text {
  public:
    Text(std::string_view utf8) : wide_(to_utf16(utf8)) {}
    Text(const std::string& utf8) : wide_(to_utf16(utf8)) {}
    Text(const char* utf8) : wide_(to_utf16(utf8)) {}
    Text(WideView wide) : wide_(wide) {}
    Text(const WideString& wide) : wide_(wide) {}
    Text(const FBR_WCHAR* wide) : wide_(wide) {}

    const FBR_WCHAR* c_str() const noexcept { return wide_.c_str(); }
    const WideString& wide() const noexcept { return wide_; }
    std::string utf8() const { return to_utf8(wide_); }

  private:
    WideString wide_;
};

// ---- Values ----

using Bytes = std::vector<unsigned char>;

// Typed bytes. The makers write what other programs expect; the readers answer nothing where the
// type or the size is another one.
struct Value {
    uint32_t type = FBR_TYPE_NONE;
    Bytes data;

    bool operator==(const Value&) const = default;

    static Value binary(std::span<const unsigned char> bytes) {
        return {FBR_TYPE_BINARY, Bytes(bytes.begin(), bytes.end())};
    }
    static Value dword(uint32_t number) { return of_number(FBR_TYPE_DWORD, number, 4); }
    static Value qword(uint64_t number) { return of_number(FBR_TYPE_QWORD, number, 8); }
    static Value text(const Text& text) { return of_text(FBR_TYPE_SZ, text); }
    static Value expand_text(const Text& text) { return of_text(FBR_TYPE_EXPAND_SZ, text); }
    // Empty texts cannot be told from the end, and are left out.
    static Value texts(const std::vector<std::string>& texts) {
        Value value{FBR_TYPE_MULTI_SZ, {}};
        for (const std::string& text : texts) {
            if (!text.empty()) value.append(to_utf16(text));
        }
        value.append({});
        return value;
    }

    // DWORD (either order of bytes) and QWORD.
    std::optional<uint64_t> number() const {
        const bool small = type == FBR_TYPE_DWORD || type == FBR_TYPE_DWORD_BE;
        if ((!small && type != FBR_TYPE_QWORD) || data.size() != (small ? 4u : 8u)) return {};
        uint64_t number = 0;
        for (size_t i = 0; i < data.size(); ++i) {
            const size_t place = type == FBR_TYPE_DWORD_BE ? data.size() - 1 - i : i;
            number |= static_cast<uint64_t>(data[i]) << 8 * place;
        }
        return number;
    }
    // SZ, EXPAND_SZ and LINK, up to the first zero unit.
    std::optional<std::string> text() const {
        if (type != FBR_TYPE_SZ && type != FBR_TYPE_EXPAND_SZ && type != FBR_TYPE_LINK) return {};
        const WideString wide = units();
        return to_utf8(WideView(wide).substr(0, wide.find(FBR_WCHAR{0})));
    }
    // MULTI_SZ.
    std::optional<std::vector<std::string>> texts() const {
        if (type != FBR_TYPE_MULTI_SZ) return {};
        std::vector<std::string> out;
        const WideString wide = units();
        for (WideView rest = wide; !rest.empty() && rest.front() != 0;) {
            const size_t end = std::min(rest.find(FBR_WCHAR{0}), rest.size());
            out.push_back(to_utf8(rest.substr(0, end)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return out;
    }

  private:
    static Value of_number(uint32_t type, uint64_t number, int bytes) {
        Value value{type, {}};
        for (int i = 0; i < bytes; ++i)
            value.data.push_back(static_cast<unsigned char>(number >> 8 * i));
        return value;
    }
    static Value of_text(uint32_t type, const Text& text) {
        Value value{type, {}};
        value.append(text.wide());
        return value;
    }
    // The units, the lowest byte first, and a zero unit.
    void append(const WideString& text) {
        for (size_t i = 0; i <= text.size(); ++i) {
            const auto unit = static_cast<char16_t>(text.c_str()[i]);
            data.push_back(static_cast<unsigned char>(unit));
            data.push_back(static_cast<unsigned char>(unit >> 8));
        }
    }
    WideString units() const {
        WideString out;
        for (size_t i = 0; i + 1 < data.size(); i += 2)
            out += static_cast<FBR_WCHAR>(data[i] | data[i + 1] << 8);
        return out;
    }
};

// ---- Ranges ----

// What an enumeration of the library hands out, as an input range. Entry i is asked for when it is
// wanted; under a ReadLock or WriteLock all are of one state.
template <class Item>
class Listing {
  public:
    // Entry i, nothing behind the last.
    using Fetch = std::function<std::optional<Item>(uint32_t)>;

    class Iterator {
      public:
        using iterator_concept = std::input_iterator_tag;
        using value_type = Item;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        explicit Iterator(const Fetch& fetch) : fetch_(&fetch) { load(); }
        const Item& operator*() const { return *item_; }
        const Item* operator->() const { return &*item_; }
        Iterator& operator++() {
            ++index_;
            load();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return !item_; }

      private:
        void load() { item_ = (*fetch_)(index_); }
        const Fetch* fetch_ = nullptr;
        uint32_t index_ = 0;
        std::optional<Item> item_;
    };

    explicit Listing(Fetch fetch) : fetch_(std::move(fetch)) {}
    Iterator begin() const { return Iterator(fetch_); }
    std::default_sentinel_t end() const { return {}; }

  private:
    Fetch fetch_;
};

// ---- Keys ----

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
    std::string name() const { return text_of(FBR_GetName_DirEx, "the name of a key"); }
    // With a backslash in front; empty for the root.
    std::string path() const { return text_of(FBR_GetFullName_DirEx, "the path of a key"); }

    // A key below this one, by a name or a path.
    Key open(const Text& path) const {
        FBR_KEY key = 0;
        check(FBR_OpenDirEx(handle_, path.c_str(), &key, store_), "open key " + path.utf8());
        return Key(store_, key);
    }
    std::optional<Key> find(const Text& path) const {
        FBR_KEY key = 0;
        const FBR_STATUS status = FBR_OpenDirEx(handle_, path.c_str(), &key, store_);
        if (status == FSSTATUS_NOT_FOUND) return {};
        check(status, "open key " + path.utf8());
        return Key(store_, key);
    }
    // Makes it, and the keys on the way, where they are missing. Values of their names stay.
    Key create(const Text& path, FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE) const {
        make_way(path.wide());
        return made(path, options);
    }
    // A name, not a path.
    void rename(const Text& name) {
        if (name.wide().find('\\') != WideString::npos)
            check(FSSTATUS_INVALID_NAME, "rename a key to " + name.utf8());
        check(FBR_RenameDirEx(handle_, name.c_str(), store_), "rename a key to " + name.utf8());
    }
    // The key with its values; it must have no subkeys. The object is as if closed afterwards.
    void remove() && {
        const FBR_STATUS status = FBR_DeleteDirEx(handle_, store_);
        check(status, "delete a key");
        handle_ = 0;
    }
    std::chrono::sys_time<std::chrono::milliseconds> modified() const {
        FBR_SYSTEMTIME t{};
        check(FBR_GetDirTimesEx(handle_, &t, store_), "the time of a key");
        using namespace std::chrono;
        return sys_days(year(t.wYear) / t.wMonth / t.wDay) + hours(t.wHour) + minutes(t.wMinute) +
               seconds(t.wSecond) + milliseconds(t.wMilliseconds);
    }

    // The value of a name; the empty one is the unnamed value.
    Value get(const Text& name) const {
        Value value;
        check(query(name, value), "read value " + name.utf8());
        return value;
    }
    std::optional<Value> try_get(const Text& name) const {
        Value value;
        const FBR_STATUS status = query(name, value);
        if (status == FSSTATUS_NOT_FOUND) return {};
        check(status, "read value " + name.utf8());
        return value;
    }
    void set(const Text& name, const Value& value) const {
        check(FBR_SetValue(handle_, name.c_str(), value.type, value.data.data(), value.data.size(),
                           store_),
              "set value " + name.utf8());
    }
    // False when there is no such value.
    bool remove_value(const Text& name) const {
        const FBR_STATUS status = FBR_DeleteValue(handle_, name.c_str(), store_);
        if (status == FSSTATUS_NOT_FOUND) return false;
        check(status, "delete value " + name.utf8());
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

    Key made(const Text& path, FBR_CREATEOPTIONS options) const {
        FBR_KEY key = 0;
        const FBR_STATUS status = FBR_CreateDirEx(handle_, path.c_str(), options, &key, store_);
        if (status != FSSTATUS_ALREADY_EXISTS) check(status, "make key " + path.utf8());
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

// ---- Stores and locks ----

class Store {
  public:
    // Opens the store at a path of FBR_InitialiseEx; a container that is missing is made.
    explicit Store(const Text& path, FBR_METHOD method = FS_VR_METHOD_TARN) {
        check(FBR_InitialiseEx(path.c_str(), &handle_, method), "open store " + path.utf8());
    }
    Store(Store&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Store& operator=(Store&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Store() {
        if (handle_ != nullptr) FBR_DeInitialiseEx(handle_);
    }
    // As the destructor, which cannot tell of a failure.
    void close() { check(FBR_DeInitialiseEx(std::exchange(handle_, nullptr)), "close a store"); }

    FBR_STORE handle() const noexcept { return handle_; }

    Key root() const { return below_root().open("\\"); }
    // Keys by their path from the root, with or without a backslash in front.
    Key open(const Text& path) const { return below_root().open(rooted(path)); }
    std::optional<Key> find(const Text& path) const { return below_root().find(rooted(path)); }
    Key create(const Text& path, FBR_CREATEOPTIONS options = FSCREATEOPTIONS_NONE) const {
        return below_root().create(rooted(path), options);
    }
    // The key and all below it.
    void remove_tree(const Text& path) const {
        open(path);  // a container would take a value of the name, too
        check(FBR_DeleteDirNamedEx(rooted(path).c_str(), handle_), "delete key " + path.utf8());
    }
    // Gives free pages of a container back to the disk.
    void compact() const {
        uint32_t done = 0;
        check(FBR_Compact(handle_, &done), "compact a store");
    }

  private:
    Key below_root() const { return Key(handle_, 0); }
    static WideString rooted(const Text& path) {
        const bool has = !path.wide().empty() && path.wide().front() == '\\';
        return has ? path.wide() : WideString(1, FBR_WCHAR{'\\'}) + path.wide();
    }

    FBR_STORE handle_ = nullptr;
};

// A lock from its construction to its end. It belongs to the thread that took it.
class Lock {
  public:
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  protected:
    Lock(const Store& store, FBR_LOCK_TYPE type) : store_(store.handle()), type_(type) {
        check(FBR_GetLockEx(type_, store_), "lock a store");
    }
    ~Lock() { FBR_ReleaseLockEx(type_, store_); }

  private:
    FBR_STORE store_;
    FBR_LOCK_TYPE type_;
};

// For changes.
class WriteLock : public Lock {
  public:
    explicit WriteLock(const Store& store) : Lock(store, FBR_LOCK_WRITE) {}
};

// For reads that all see one state.
class ReadLock : public Lock {
  public:
    explicit ReadLock(const Store& store) : Lock(store, FBR_LOCK_READ) {}
};

}  // namespace zrfs

#endif
