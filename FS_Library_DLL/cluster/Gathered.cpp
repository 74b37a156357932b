// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/Gathered.h"

#include <utility>

namespace cluster {
namespace {

// A request has 1.5 MiB.
constexpr size_t kMostBytes = 900'000;

size_t BytesOf(const Change& change) {
    size_t bytes = 0;
    for (const Operation& one : change.operations)
        bytes += one.span.from.size() + one.span.to.size() + one.value.size();
    return bytes;
}

}  // namespace

bool Gathered::Add(const Change& change) {
    const size_t bytes = BytesOf(change);
    // One compare and one operation more are those of the lock.
    const bool fits = all_.Fits(change.operations.size()) &&
                      all_.compares.size() + change.compares.size() < kMostOperations &&
                      bytes_ + bytes <= kMostBytes;
    if (!fits && !IsEmpty()) return false;
    // All compares are made before the first put: of a record that is put here, it is known.
    for (const Compare& compare : change.compares)
        if (!puts_.contains(compare.span.from) &&
            compared_.insert({compare.span.from, compare.span.to}).second)
            all_.compares.push_back(compare);
    for (const Operation& operation : change.operations) {
        if (operation.what == Operation::What::Put)
            AddPut(operation);
        else if (deleted_.insert({operation.span.from, operation.span.to}).second)
            all_.operations.push_back(operation);
    }
    bytes_ += bytes;
    return true;
}

// The last one counts, and only one of a record may be in a transaction.
void Gathered::AddPut(const Operation& put) {
    const auto [place, isNew] = puts_.try_emplace(put.span.from, all_.operations.size());
    if (isNew)
        all_.operations.push_back(put);
    else
        all_.operations[place->second] = put;
}

Change Gathered::Take() {
    return std::exchange(*this, {}).all_;
}

}  // namespace cluster
