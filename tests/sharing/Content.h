// SPDX-License-Identifier: MIT
// The content that the users of one store share, and what must be there afterwards.
//
// Each writer has a key of its own with kOwnValues sealed values: value i is set for every number
// that leaves the rest i. Besides it sets the two values of a pair, under one lock, to one number,
// and a value and keys come and go.
#pragma once

#include <map>
#include <random>

#include "tests/sharing/Driver.h"
#include "tests/support/Store.h"

namespace sharing {

using support::Bytes;
using support::ReadAll;
using support::container::Key;

inline constexpr uint32_t kOwnValues = 20;
inline constexpr uint32_t kPairs = 4;

// Values that tell on themselves: where they belong, who set them, and whether they are whole.
struct Seal {
    uint32_t writer = 0;
    uint32_t sequence = 0;
    bool operator==(const Seal& other) const = default;
};
// `size` bytes, at least 32, that no other key, name, writer, number or size has.
Bytes Sealed(const std::string& key, const std::string& name, Seal seal, uint32_t size);
// Who set the value, if it is whole and belongs to that key and name.
std::optional<Seal> ReadSeal(const Bytes& data, const std::string& key, const std::string& name);

// By the path of a key, which is made if need be; nothing here fails a test.
class Store : public support::Store {
  public:
    explicit Store(const std::string& path) : support::Store(path) {}

    FBR_STATUS Set(const std::string& key, const std::string& name, Seal seal, uint32_t size);
    FBR_STATUS Get(const std::string& key, const std::string& name, Bytes* data);
    FBR_STATUS Get(FBR_KEY key, const std::string& name, Bytes* data);
};

inline std::string OwnKey(uint32_t writer) {
    return "\\writer" + std::to_string(writer);
}
inline std::string OwnName(uint32_t sequence) {
    return "v" + std::to_string(sequence % kOwnValues);
}
uint32_t SizeOf(uint32_t sequence);

// Makes the store, with every value of `writers` writers set once, by number 0 to 19.
void MakeShared(const std::string& path, uint32_t writers);
// One change of a writer, under the lock.
FBR_STATUS ChangeShared(Store* store, uint32_t writer, uint32_t sequence);
// The next change of a writer that has done what is tallied; false when it cannot go on.
bool ChangeUnderLock(Store* store, uint32_t writer, Tally* tally);
// Looks at every value of the content that one state of the store holds.
void JudgeShared(const Key& root, Tally* tally);
// The writer's values are those that `done` changes left, and no older ones.
void ExpectChanges(const std::string& path, uint32_t writer, uint64_t done);
// Sets value `number` of a user that has a number of its own.
bool SetNumbered(const std::string& path, const std::string& user, int number, Tally* tally);
// The first `count` of these are there.
void ExpectNumbered(const std::string& path, const std::string& user, int count);

// Keys of the writers and pairs, open for all who read from one store.
using OpenKeys = std::map<std::string, FBR_KEY>;
OpenKeys OpenShared(Store* store, uint32_t writers);

// Gets without a lock. What is read once may not be older later.
class Reader {
  public:
    Reader(uint32_t writers, Tally* tally)
        : writers_(writers), tally_(tally), random_(std::random_device()()) {}
    void Step(Store* store, const OpenKeys& keys);

  private:
    void GetOne(Store* store, const OpenKeys& keys, const std::string& key,
                const std::string& name);
    void List(Store* store, const OpenKeys& keys, const std::string& key);

    const uint32_t writers_;
    Tally* tally_;
    std::mt19937 random_;
    std::map<std::string, uint32_t> seen_;
};

// Sound to the check and to an independent reader: no id twice, no mark of damage; at most pages
// that nothing refers to, where these may be.
void ExpectSound(const std::string& path, bool orLostPages = false);

}  // namespace sharing
