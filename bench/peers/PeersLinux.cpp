// SPDX-License-Identifier: MIT
#include "bench/peers/Store.h"

namespace bench {

std::vector<Maker> PeerMakers() {
    using Folder = std::filesystem::path;
    // hivex writes all values of a key anew for each that is set, and gives no room back.
    constexpr uint32_t kMostKeysOfHivex = 5000;
    return {
        {kSqlite, [](const Folder& folder) { return MakeSqlite(folder, SqliteUse::Exclusive); }},
        {"SQLite, exclusive, 64 MiB, WAL",
         [](const Folder& folder) { return MakeSqlite(folder, SqliteUse::ExclusiveSafe); }},
        {"SQLite, WAL", [](const Folder& folder) { return MakeSqlite(folder, SqliteUse::Shared); }},
        {"LevelDB", [](const Folder& folder) { return MakeLevelDb(folder); }},
        {kLmdb, [](const Folder& folder) { return MakeLmdb(folder, false); }},
        {"LMDB, writemap", [](const Folder& folder) { return MakeLmdb(folder, true); }},
        {"hivex, in memory", [](const Folder& folder) { return MakeHivex(folder); }, false,
         kMostKeysOfHivex},
    };
}

}  // namespace bench
