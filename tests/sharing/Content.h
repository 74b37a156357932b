// What a store holds, as its users see it and as its bytes tell, and the content that roles share.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "tests/sharing/Driver.h"
#include "tests/sharing/SealedValue.h"
#include "tests/support/ContainerReader.h"

namespace sharing {

using support::container::Key;
using support::container::Value;
using Text = std::basic_string<FBR_WCHAR>;

Text Wide(const std::string& ascii);

// A store that is open, and closed at the end.
class Store {
  public:
    explicit Store(const std::string& path);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    FBR_STATUS Close();
    FBR_STATUS Lock(uint32_t type = 1) { return FBR_GetLockEx(type, handle); }
    FBR_STATUS Unlock() { return FBR_ReleaseLockEx(1, handle); }
    // By the path of a key, which is made if need be.
    FBR_STATUS Set(const std::string& key, const std::string& name, const Bytes& data);
    FBR_STATUS Get(const std::string& key, const std::string& name, Bytes* data);
    FBR_STATUS Get(FBR_KEY key, const std::string& name, Bytes* data);

    FBR_STORE handle = nullptr;
    FBR_STATUS status;
};

// All that a store holds but its version, by enumeration and queries.
FBR_STATUS ReadAll(FBR_STORE store, Key* root);

// ---- The content that the roles of one mix share ----
//
// Each writer has a key of its own with kOwnValues sealed values: value i is set for every number
// that leaves the rest i. Besides it sets the two values of a pair, under one lock, to one number.

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

// ---- The file ----

struct Findings {
    FBR_STATUS status = FSSTATUS_FAILED;
    std::map<uint32_t, uint32_t> codes;  // without those of progress
    std::string Line() const;
    // A sound file, or one with pages that are in use and nothing refers to.
    bool Sound() const { return status == FSSTATUS_SUCCESS && codes.empty(); }
    bool OnlyLostPages() const;
};
Findings CheckFile(const std::string& path);

// Sound to the check and to an independent reader: no id twice, no mark of damage.
void ExpectSound(const std::string& path);
// The same, but for lost pages.
void ExpectOnlyLostPages(const std::string& path);

}  // namespace sharing
