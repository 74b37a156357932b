// SPDX-License-Identifier: MIT
// The texts of the records of a store. What comes from the cluster may have been written by
// anybody: each of the readers looks at every field, and is false for what it did not expect.
#pragma once

#include "FS_Library_DLL/cluster/ClusterNames.h"
#include "platform/Clock.h"

namespace cluster {

// A key among those of its parent.
struct ChildRecord {
    std::string id;
    WString name;
};
std::string ChildText(const ChildRecord& child);
// `folded` is what the record's name ends with.
bool ReadChild(std::string_view text, std::string_view folded, ChildRecord* child);

// A key by its id; the root has no parent.
struct KeyRecord {
    std::string parent;
    WString name;
    platform::UtcTime made = {};
};
inline constexpr int kLayout = 1;  // which the root's record tells
std::string KeyText(const KeyRecord& key);
std::string RootText(const platform::UtcTime& made);
bool ReadKeyRecord(std::string_view text, KeyRecord* key);
// Of the root's record; false when it is none.
bool ReadLayout(std::string_view text, int* layout);

// A key that is still to be deleted: the parent that its own record must tell then, or none.
std::string GoneText(const std::string& parent);
std::string ReadGone(std::string_view text);

std::string TimeText(const platform::UtcTime& time);
bool ReadTime(std::string_view text, platform::UtcTime* time);

// What is longer lies in pieces, all but the last of this size.
inline constexpr uint64_t kPieceBytes = 512 * 1024;

struct ValueRecord {
    WString name;
    uint32_t type = 0;
    std::string data = {};    // where it is whole
    std::string pieces = {};  // the id of the pieces, or empty
    uint64_t size = 0;
};
// Text, and numbers of the types for them, stand there as such, and all else in base 64.
std::string ValueText(const ValueRecord& value);
bool ReadValue(std::string_view text, std::string_view folded, ValueRecord* value);
// The name alone.
bool ReadValueName(std::string_view text, std::string_view folded, WString* name);

// Who has the lock, and the last change that was made under it.
struct LockRecord {
    std::string holder;  // an id
    std::string change;  // empty at first
};
std::string LockText(const LockRecord& lock, const platform::UtcTime& since);
bool ReadLock(std::string_view text, LockRecord* lock);

}  // namespace cluster
