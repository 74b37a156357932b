// SPDX-License-Identifier: MIT
// Stores, keys and values as C++20 objects, over the flat functions and nothing else of the
// library: a program may use it with any compiler and any C++ run time.
//
// What is opened closes with its object. A failure is a std::system_error (error.hpp); text is
// UTF-8 or UTF-16 (text.hpp). A Key, a lock and a range do not outlive their Store. Threads: as for
// the flat functions, but each object belongs to one thread at a time.
//
//     zrfs::Store store("settings.fbr");
//     zrfs::WriteLock lock(store);
//     zrfs::Key key = store.create("Software\\Hello");
//     key.set("Count", zrfs::Value::dword(42));
//     for (const auto& [name, value] : key.values()) ...
#ifndef ZRFS_STORE_HPP
#define ZRFS_STORE_HPP

#include "key.hpp"

namespace zrfs {

class Store {
  public:
    // Opens the store at a path of FBR_InitialiseEx; a container that is missing is made.
    explicit Store(const Text& path, FBR_METHOD method = FS_VR_METHOD_TARN) {
        if (path.has_zero()) check(FSSTATUS_INVALID_NAME, detail::told("open store ", path));
        check(FBR_InitialiseEx(path.c_str(), &handle_, method), detail::told("open store ", path));
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
    // The key and all below it. The root is FSSTATUS_INVALID_PARAMETER, for a path that is empty by
    // a slip would take all along: FBR_DeleteDirNamedEx of "\\" empties a store.
    void remove_tree(const Text& path) const {
        if (path.wide().find_first_not_of(FBR_WCHAR{'\\'}) == WideString::npos)
            check(FSSTATUS_INVALID_PARAMETER, "delete the root of a store");
        open(path);  // a container would take a value of the name, too
        check(FBR_DeleteDirNamedEx(rooted(path).c_str(), handle_),
              detail::told("delete key ", path));
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
    Lock(const Store& store, FBR_LOCK_TYPE type) : store_(store.handle()), type_(type) {
        check(FBR_GetLockEx(type_, store_), "lock a store");
    }
    ~Lock() { FBR_ReleaseLockEx(type_, store_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

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
