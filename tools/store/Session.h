// SPDX-License-Identifier: MIT
// Stores that stay open and locked from one command to the next.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "tools/store/Store.h"

namespace fbr {

// While one stands each store that a command opens stays open, and the first lock that is taken of
// it stays, for writing where that can be had; Store and StoreLock ask here. One at a time.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Null when none stands.
    static Session* Current();

    // The name with its method of the store that is open at that path: a hive is no file before it
    // is closed, and shows nothing.
    std::optional<StoreName> Named(const std::string& path) const;
    // The store that is open by that name; null when it is not.
    std::shared_ptr<zrfs::Store> Find(const StoreName& name) const;
    void Keep(const StoreName& name, std::shared_ptr<zrfs::Store> store);
    // Takes a lock once for a store; throws as the lock does.
    void Lock(const zrfs::Store& store, FBR_LOCK_TYPE type);

    // Closes all of them and throws what fails first.
    void Close();

  private:
    struct Kept {
        Kept(StoreName itsName, std::shared_ptr<zrfs::Store> opened)
            : name(std::move(itsName)), store(std::move(opened)) {}
        StoreName name;
        std::shared_ptr<zrfs::Store> store;
        std::optional<zrfs::Lock> lock;
        bool writes = false;  // by that lock
    };
    std::deque<Kept> kept_;
};

// True for one store by two names.
bool IsSameStore(const StoreName& a, const StoreName& b);

}  // namespace fbr
