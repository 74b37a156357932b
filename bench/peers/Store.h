// SPDX-License-Identifier: MIT
// One store of the comparison: ours in one of its ways of use, or somebody else's.
//
// The benchmark's keys are known by a path and, once open, by a number of the store's choice. Every
// change is one commit of its own. Nothing is flushed to the disk by anybody. What fails throws
// std::runtime_error.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Content.h"

namespace bench {

// A value as a store hands it out, good until the next call. The name is in one of the two forms.
struct Answer {
    std::string_view plainName;
    std::basic_string_view<FBR_WCHAR> name;
    uint32_t type = 0;
    const void* data = nullptr;
    size_t size = 0;
};

enum class Span { Changes, Reads };

class Store {
  public:
    using Handle = int64_t;  // 0 for none
    using Visitor = void (*)(void* context, const Answer& answer);

    virtual ~Store() = default;

    // Opens the store, which is made when its file is missing; closes it.
    virtual void Open() = 0;
    virtual void Close() = 0;

    // Around a row of calls of one sort: who holds a lock or keeps a reading transaction open does
    // so from Begin to End. No span is begun for opening a store for one read.
    virtual void Begin(Span) {}
    virtual void End(Span) {}

    // Parents are made before their children. OpenKey gives 0 for a missing key.
    virtual Handle MakeKey(const KeyData& key) = 0;
    virtual Handle OpenKey(const KeyData& key) = 0;
    virtual void CloseKey(Handle) {}
    // A key without subkeys, with its values.
    virtual void DeleteKey(Handle handle, const KeyData& key) = 0;

    virtual void Set(Handle handle, const ValueData& value) = 0;
    // The answer bears no name.
    virtual Answer Get(Handle handle, const ValueData& value) = 0;
    // All values of a key, with name and data.
    virtual void Enumerate(Handle handle, Visitor visit, void* context) = 0;
    // The name of the value at a place, from a store that lists by place; false from others.
    virtual bool ListOne(Handle, uint32_t) { return false; }
};

// A store that takes part. `folder` is empty and the store's own.
struct Maker {
    std::string name;
    std::function<std::unique_ptr<Store>(const std::filesystem::path& folder)> make;
    bool ours = false;
    uint32_t mostKeys = UINT32_MAX;  // with more it takes too long, or cannot
};

enum class LockUse { Held, ForEachChange };
enum class SqliteUse { Exclusive, ExclusiveSafe, Shared };

std::unique_ptr<Store> MakeContainer(const std::filesystem::path& folder, LockUse use);
std::unique_ptr<Store> MakeOfflineHive(const std::filesystem::path& folder);
std::unique_ptr<Store> MakeSqlite(const std::filesystem::path& folder, SqliteUse use);
std::unique_ptr<Store> MakeLmdb(const std::filesystem::path& folder, bool writeMap);
std::unique_ptr<Store> MakeLevelDb(const std::filesystem::path& folder);
std::unique_ptr<Store> MakeHivex(const std::filesystem::path& folder);
std::unique_ptr<Store> MakeLiveRegistry();

// The names that the goals are about.
inline constexpr const char* kOurs = "ours, lock held";
inline constexpr const char* kOursEach = "ours, a lock for each change";
inline constexpr const char* kSqlite = "SQLite, exclusive, 64 MiB cache";
inline constexpr const char* kLmdb = "LMDB";

// Those of us that every build has; those of others that this one has.
std::vector<Maker> OurMakers();
std::vector<Maker> PeerMakers();

}  // namespace bench
