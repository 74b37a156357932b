// SPDX-License-Identifier: MIT
// The two ends of a command that goes from one place to another.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tools/console/Interrupt.h"
#include "tools/store/Place.h"
#include "tools/store/Session.h"

namespace fbr {

// One end as the command line names it.
struct End {
    StoreName store;
    platform::WString key;
};

// Throws UsageError for the value by which a store tells its version: who sets another one locks
// everybody out.
void ExpectNotStoresOwn(const Place& place, platform::WStringView name);

// True when `to` is `from` or stands below it.
bool LeadsIntoItself(const End& from, const End& to);

// Does `work` and closes what it works on, also after a failure: a hive is saved then, and what
// `work` tells to stand does so only if that works.
template <class Closed>
void DoAndClose(Closed& closed, const std::function<void()>& work) {
    const auto whyLost = [&closed]() -> std::string {
        try {
            closed.Close();
            return "";
        } catch (const StoreError& error) {
            return std::string("; and none of that was saved: ") + error.what();
        }
    };
    try {
        work();
    } catch (const std::exception& error) {
        const std::string lost = whyLost();
        if (lost.empty()) throw;
        if (dynamic_cast<const Interrupted*>(&error) != nullptr)
            throw Interrupted(error.what() + lost);
        throw std::runtime_error(error.what() + lost);
    }
    closed.Close();
}

// Two stores, or one for both ends.
class StorePair {
  public:
    // The key at `from` must be there, or nothing is made at `to`.
    StorePair(const End& from, const End& to, Store::IfMissing ifMissing)
        : from_(from.store, Store::IfMissing::kFail) {
        from_.OpenKey(from.key);
        if (!IsSameStore(from.store, to.store)) to_.emplace(to.store, ifMissing);
    }
    const Store& From() const { return from_; }
    const Store& To() const { return to_ ? *to_ : from_; }
    void Close() {
        if (to_) to_->Close();
        from_.Close();
    }

  private:
    Store from_;
    std::optional<Store> to_;
};

// Keeps others from changing either end. Every process takes its locks in the same order, so that
// two of them never wait for each other. One store for both ends has the lock of `to`.
template <class LockOfFrom, class LockOfTo>
class BothLocks {
  public:
    explicit BothLocks(const StorePair& stores) {
        const bool two = &stores.From() != &stores.To();
        const bool fromFirst = two && stores.From().Name() < stores.To().Name();
        if (fromFirst) from_.emplace(stores.From());
        to_.emplace(stores.To());
        if (two && !fromFirst) from_.emplace(stores.From());
    }

  private:
    std::optional<LockOfFrom> from_;
    std::optional<LockOfTo> to_;
};

}  // namespace fbr
