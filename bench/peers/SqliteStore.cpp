// SPDX-License-Identifier: MIT
#include <sqlite3.h>

#include "bench/peers/Store.h"

namespace bench {
namespace {

// Two tables, one of paths, one of values in the order of key and name; prepared statements; each
// change a transaction by itself.
//
// Exclusive: alone on its file, with 64 MiB of cache, reads in one long transaction, and the old
// pages of a change kept in memory, which is the fastest but does not outlive a kill; safe from
// that with a write-ahead log. Shared: that log as processes share it, each read by itself.
class SqliteStore : public Store {
  public:
    SqliteStore(const std::filesystem::path& folder, SqliteUse use)
        : path_((folder / "store.sqlite").string()), use_(use) {}
    ~SqliteStore() override { Shut(); }

    void Open() override {
        const bool fresh = !std::filesystem::exists(path_);
        Check(sqlite3_open(path_.c_str(), &database_));
        Run("PRAGMA synchronous=OFF");
        if (use_ != SqliteUse::Shared)
            Run("PRAGMA locking_mode=EXCLUSIVE; PRAGMA cache_size=-65536");
        if (use_ == SqliteUse::Exclusive) Run("PRAGMA journal_mode=MEMORY");
        if (!fresh) return;
        if (use_ != SqliteUse::Exclusive) Run("PRAGMA journal_mode=WAL");  // the file keeps it
        Run("CREATE TABLE keys(path TEXT PRIMARY KEY, id INTEGER NOT NULL) WITHOUT ROWID");
        Run("CREATE TABLE vals(key INTEGER, name TEXT, type INTEGER NOT NULL, data BLOB,"
            " PRIMARY KEY(key, name)) WITHOUT ROWID");
    }
    void Close() override { Check(Shut()); }
    void Begin(Span span) override {
        if (use_ != SqliteUse::Shared && span == Span::Reads) Run("BEGIN");
    }
    void End(Span span) override {
        if (use_ != SqliteUse::Shared && span == Span::Reads) Run("COMMIT");
    }

    Handle MakeKey(const KeyData& key) override {
        sqlite3_stmt* make = Prepared(kMakeKey);
        BindText(make, 1, key.plainPath);
        sqlite3_bind_int64(make, 2, ++lastId_);
        Step(make);
        return lastId_;
    }
    Handle OpenKey(const KeyData& key) override {
        sqlite3_stmt* find = Prepared(kFindKey);
        BindText(find, 1, key.plainPath);
        const Handle id = sqlite3_step(find) == SQLITE_ROW ? sqlite3_column_int64(find, 0) : 0;
        sqlite3_reset(find);
        return id;
    }
    void DeleteKey(Handle handle, const KeyData& key) override {
        Step(Prepared(kBegin));
        sqlite3_bind_int64(Prepared(kDeleteValues), 1, handle);
        Step(Prepared(kDeleteValues));
        BindText(Prepared(kDeleteKey), 1, key.plainPath);
        Step(Prepared(kDeleteKey));
        Step(Prepared(kCommit));
    }

    void Set(Handle handle, const ValueData& value) override {
        sqlite3_stmt* set = Prepared(kSet);
        sqlite3_bind_int64(set, 1, handle);
        BindText(set, 2, value.plainName);
        sqlite3_bind_int64(set, 3, value.type);
        sqlite3_bind_blob(set, 4, value.data.data(), static_cast<int>(value.data.size()),
                          SQLITE_STATIC);
        Step(set);
    }
    Answer Get(Handle handle, const ValueData& value) override {
        sqlite3_stmt* get = Prepared(kGet);
        sqlite3_bind_int64(get, 1, handle);
        BindText(get, 2, value.plainName);
        if (sqlite3_step(get) != SQLITE_ROW) throw std::runtime_error("SQLite: no such value");
        Answer answer = Columns(get, 0);
        // Out of SQLite's buffer before the statement, and with it the transaction, ends.
        buffer_.assign(static_cast<const char*>(answer.data), answer.size);
        answer.data = buffer_.data();
        sqlite3_reset(get);
        return answer;
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        sqlite3_stmt* all = Prepared(kAll);
        sqlite3_bind_int64(all, 1, handle);
        while (sqlite3_step(all) == SQLITE_ROW) {
            Answer answer = Columns(all, 1);
            answer.plainName = {reinterpret_cast<const char*>(sqlite3_column_text(all, 0)),
                                static_cast<size_t>(sqlite3_column_bytes(all, 0))};
            visit(context, answer);
        }
        Check(sqlite3_reset(all));
    }

  private:
    enum Statement {
        kMakeKey,
        kFindKey,
        kDeleteKey,
        kDeleteValues,
        kSet,
        kGet,
        kAll,
        kBegin,
        kCommit,
        kCount
    };
    static constexpr const char* kText[kCount] = {
        "INSERT INTO keys VALUES(?1, ?2)",
        "SELECT id FROM keys WHERE path = ?1",
        "DELETE FROM keys WHERE path = ?1",
        "DELETE FROM vals WHERE key = ?1",
        "INSERT INTO vals VALUES(?1, ?2, ?3, ?4) ON CONFLICT(key, name)"
        " DO UPDATE SET type = excluded.type, data = excluded.data",
        "SELECT type, data FROM vals WHERE key = ?1 AND name = ?2",
        "SELECT name, type, data FROM vals WHERE key = ?1",
        "BEGIN IMMEDIATE",
        "COMMIT",
    };

    void Check(int code) const {
        if (code != SQLITE_OK)
            throw std::runtime_error(std::string("SQLite: ") + sqlite3_errmsg(database_));
    }
    void Run(const char* sql) { Check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
    sqlite3_stmt* Prepared(Statement which) {
        if (statements_[which] == nullptr)
            Check(sqlite3_prepare_v3(database_, kText[which], -1, SQLITE_PREPARE_PERSISTENT,
                                     &statements_[which], nullptr));
        return statements_[which];
    }
    static void BindText(sqlite3_stmt* statement, int place, const std::string& text) {
        sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    void Step(sqlite3_stmt* statement) {
        sqlite3_step(statement);
        Check(sqlite3_reset(statement));
    }
    static Answer Columns(sqlite3_stmt* statement, int first) {
        Answer answer;
        answer.type = static_cast<uint32_t>(sqlite3_column_int64(statement, first));
        answer.data = sqlite3_column_blob(statement, first + 1);
        answer.size = static_cast<size_t>(sqlite3_column_bytes(statement, first + 1));
        return answer;
    }
    int Shut() {
        for (sqlite3_stmt*& statement : statements_) {
            sqlite3_finalize(statement);
            statement = nullptr;
        }
        sqlite3* database = database_;
        database_ = nullptr;
        return sqlite3_close(database);
    }

    const std::string path_;
    const SqliteUse use_;
    sqlite3* database_ = nullptr;
    sqlite3_stmt* statements_[kCount] = {};
    Handle lastId_ = 0;
    std::string buffer_;
};

}  // namespace

std::unique_ptr<Store> MakeSqlite(const std::filesystem::path& folder, SqliteUse use) {
    return std::make_unique<SqliteStore>(folder, use);
}

}  // namespace bench
