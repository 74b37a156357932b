// SPDX-License-Identifier: MIT
// The objects of include/zrfs with what the tool needs besides: a failure says what failed, on
// what, and why, stores stay open from one command to the next, and values are those of any store.
//
// One thread at a time. A Key or a WriteLock does not outlive its Store.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "include/zrfs/store.hpp"
#include "tools/console/Interrupt.h"
#include "tools/format/Record.h"

class SharedStore;

namespace fbr {

// A failed operation on a store. The text has all that a person needs.
class StoreError : public std::runtime_error {
  public:
    StoreError(const std::string& text, FBR_STATUS status)
        : std::runtime_error(text), status_(status) {}
    FBR_STATUS Status() const { return status_; }

  private:
    FBR_STATUS status_;
};

// Which store: the path string of FBR_InitialiseEx and the method.
struct StoreName {
    std::string path;  // UTF-8
    FBR_METHOD method = FS_VR_METHOD_TARN;
    bool isText = false;  // exported text, to be read as a store

    // As the command line names it.
    std::string Shown() const;
};

// The file on this machine that holds the store, where there is one: none for the live registry
// and for a store behind a server.
std::optional<std::filesystem::path> FileOf(const StoreName& name);

// True when a key may have both an unnamed value and one with the name "(Default)". In a container
// those are the same.
bool KeepsUnnamedApart(const StoreName& name);

// True for a store that has its version in its root, in the value FBRVersion.
inline bool HasVersion(const StoreName& name) {
    return name.method != FS_VR_METHOD_NATIVE;
}

// A path of the command line: names joined by backslashes, one in front or behind let pass.
platform::WString NormalKeyPath(platform::WStringView path);
// "\a\b" for the path "a\b", "\" for the root, ready for a message.
std::string ShowKey(platform::WStringView path);

struct Value {
    uint32_t type = 0;
    Bytes data;
    bool operator==(const Value&) const = default;
};

class Key;
class TextStore;

class Store {
  public:
    // What to do when the file of the store is not there.
    enum class IfMissing { kFail, kCreate };

    Store(StoreName name, IfMissing ifMissing);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::string& Name() const { return shown_; }
    const StoreName& FullName() const { return name_; }
    // True for text that is read as a store and cannot be changed.
    bool IsText() const { return text_ != nullptr; }
    FBR_STORE Handle() const { return open_->handle(); }
    const zrfs::Store& Open() const { return *open_; }
    // Null where it is none that many machines share.
    SharedStore* Shared() const;
    // True when a session keeps it open, see Session.h.
    bool IsKept() const { return kept_; }

    // Paths are as in Document: no backslash in front, the root is empty.
    Key OpenKey(platform::WStringView path) const;
    Key CreateKey(platform::WStringView path) const;

    // The key and all below it. False when there is no such key.
    bool DeleteTree(platform::WStringView path) const;
    // Throws the StoreError when it cannot be known.
    bool HasKey(platform::WStringView path) const;

    bool KeepsUnnamedApart() const { return fbr::KeepsUnnamedApart(name_); }
    // The size of the store's file, which no value in it passes; as good as endless where there is
    // no file to ask.
    uint64_t BytesHeld() const;
    // True when the value FBRVersion of the root is the store's own.
    bool RootHasVersion() const { return HasVersion(name_); }

    // Throws where the store is text.
    void ExpectNoText() const;
    // Throws the StoreError for a failure at this store, see below.
    [[noreturn]] void ThrowFailed(const std::string& what, FBR_STATUS status) const;
    // What `work` gives; its failure is thrown so, with what `what` then says.
    template <class What, class Work>
    auto Told(const What& what, const Work& work) const {
        try {
            return work();
        } catch (const std::system_error& error) {
            ThrowFailed(what(), zrfs::status_of(error.code()));
        }
    }

    // Writes what is still to be written and reports a failure of that, as the destructor cannot.
    void Close();

  private:
    bool IsThere() const;

    StoreName name_;
    std::string shown_;
    std::unique_ptr<TextStore> text_;  // what is open in the place of text
    std::shared_ptr<zrfs::Store> open_;
    bool kept_ = false;
};

// Stands while a store of that name closes: no interrupt breaks off the saving of a hive.
std::unique_ptr<UnbrokenGuard> WhileItCloses(const StoreName& name);

// Throws the StoreError for a failure at that store, with the reason as far as it can be known.
[[noreturn]] void ThrowFailedAt(const StoreName& name, const std::string& what, FBR_STATUS status);

// A lock of a store, held from the constructor to the destructor.
class StoreLock {
  public:
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

  protected:
    StoreLock(const Store& store, FBR_LOCK_TYPE type);
    ~StoreLock();

  private:
    std::optional<zrfs::Lock> lock_;
    SharedStore* snapshot_ = nullptr;  // in the place of a lock for reads
};

// For changes.
class WriteLock : public StoreLock {
  public:
    explicit WriteLock(const Store& store);
};

// For reads that must all see one state: nobody else writes meanwhile, but to a store that many
// machines share, which shows one state all the same and is not kept from anybody.
class ReadLock : public StoreLock {
  public:
    explicit ReadLock(const Store& store);
};

// An open key.
class Key {
  public:
    Key(const Store& store, platform::WString path, zrfs::Key key)
        : store_(&store), path_(std::move(path)), key_(std::move(key)) {}

    const Store& In() const { return *store_; }
    // The path from the root, without a backslash in front.
    const platform::WString& Path() const { return path_; }

    // A subkey by its one name.
    Key OpenSubkey(platform::WStringView name) const;
    Key CreateSubkey(platform::WStringView name) const;
    // A key further down, with those on the way to it, in one step. Nothing when that fails; one
    // subkey after the other may work, and tells what is wrong.
    std::optional<Key> TryCreateBelow(platform::WStringView path) const;

    // Add the names that the store lists; those before a failure are there when it is thrown. They
    // are what the store says and may lead nowhere: see Reach.h.
    void AddSubkeyNames(std::vector<platform::WString>& names) const;
    // The unnamed value is the empty name, here and in the operations below.
    void AddValueNames(std::vector<platform::WString>& names) const;
    bool HasSubkeys() const;
    // Of the last change, in UTC, in the years 1601 to 9999; nothing where the store does not tell,
    // or tells what is no moment of these.
    std::optional<FBR_SYSTEMTIME> Time() const;

    // Takes no more memory than the data that is there needs, whatever size a damaged value claims;
    // *missing becomes the number of bytes that it claims and does not have.
    Value Get(const platform::WString& name, uint64_t* missing = nullptr) const;
    void Set(const platform::WString& name, uint32_t type, const Bytes& data) const;
    // False when there is no such value.
    bool DeleteValue(const platform::WString& name) const;

    // For messages: "value "n" of key \a in x.fbr", "key \a\n in x.fbr".
    std::string ShowValue(platform::WStringView name) const;
    std::string ShowSubkey(platform::WStringView name) const;
    std::string Show() const;

    // The key with its values; it must have no subkeys.
    void Delete();
    void Rename(const platform::WString& name);

  private:
    platform::WString Below(platform::WStringView name) const;
    [[noreturn]] void Fail(const std::string& what, FBR_STATUS status) const;
    FBR_STATUS Query(const platform::WString& name, size_t room, Value* value,
                     uint64_t* size) const;
    FBR_STATUS GetClaimed(const platform::WString& name, uint64_t claimed, Value* value,
                          uint64_t* size, uint64_t* missing) const;

    const Store* store_;
    platform::WString path_;
    zrfs::Key key_;
};

}  // namespace fbr
