// The content that the roles of one mix share, and what must be there afterwards.
//
// Each writer has a key of its own with kOwnValues sealed values: value i is set for every number
// that leaves the rest i. Besides it sets the two values of a pair, under one lock, to one number.
#pragma once

#include "tests/sharing/Driver.h"
#include "tests/sharing/OpenStore.h"
#include "tests/sharing/SealedValue.h"

namespace sharing {

inline constexpr uint32_t kOwnValues = 20;
inline constexpr uint32_t kPairs = 4;
std::string OwnKey(uint32_t writer);
std::string PairKey(uint32_t pair);
// Where the role that works from a folder sets its value `number`.
std::string FromKey(uint32_t number);
std::string OwnName(uint32_t sequence);
uint32_t SizeOf(uint32_t sequence);

// Makes the store, with every value of `writers` writers set once, by number 0 to 19.
void MakeShared(const std::string& path, uint32_t writers);
// One change of a writer, under the lock.
FBR_STATUS ChangeShared(Store* store, uint32_t writer, uint32_t sequence);
// Looks at every value of the content that one state of the store holds.
void JudgeShared(const Key& root, Tally* tally);
// The writer's values are those that `done` changes left, and no older ones.
void ExpectChanges(const std::string& path, uint32_t writer, uint64_t done);
// The same for the first values of the role that works from a folder, by its number.
void ExpectValuesFrom(const std::string& path, const std::string& number, int count);
// Who uses the file by this name, from a folder, waits for who holds its lock by `path`.
void ExpectOneLock(Troupe* troupe, const std::string& path, const std::string& folder,
                   const std::string& name);

}  // namespace sharing
