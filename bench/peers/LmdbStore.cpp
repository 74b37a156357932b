// SPDX-License-Identifier: MIT
#include <lmdb.h>

#include "bench/peers/ByteKey.h"

namespace bench {
namespace {

void Check(int code) {
    if (code != MDB_SUCCESS) throw std::runtime_error(std::string("LMDB: ") + mdb_strerror(code));
}

std::string_view View(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

MDB_val Bytes(const std::string& text) {
    return {text.size(), const_cast<char*>(text.data())};
}

// Two databases, of paths and of values; each change a transaction, reads in one that stays open.
class LmdbStore : public Store {
  public:
    LmdbStore(const std::filesystem::path& folder, bool writeMap)
        : path_((folder / "store.lmdb").string()), writeMap_(writeMap) {}
    ~LmdbStore() override { mdb_env_close(environment_); }

    void Open() override {
        constexpr size_t kMapBytes = size_t{4} << 30;
        const bool fresh = !std::filesystem::exists(path_);
        Check(mdb_env_create(&environment_));
        Check(mdb_env_set_mapsize(environment_, kMapBytes));
        Check(mdb_env_set_maxdbs(environment_, 2));
        const unsigned int how = MDB_NOSUBDIR | MDB_NOSYNC | (writeMap_ ? MDB_WRITEMAP : 0u);
        Check(mdb_env_open(environment_, path_.c_str(), how, 0600));
        OpenDatabases(fresh ? 0 : MDB_RDONLY, fresh ? MDB_CREATE : 0);
    }
    void Close() override {
        mdb_env_close(environment_);
        environment_ = nullptr;
    }
    void Begin(Span span) override {
        if (span == Span::Reads) BeginReads();
    }
    void End(Span span) override {
        if (span == Span::Reads) EndReads();
    }

    Handle MakeKey(const KeyData& key) override {
        MDB_txn* change = Change();
        number_.clear();
        PutNumber(&number_, ++lastId_);
        MDB_val path = Bytes(key.plainPath), number = Bytes(number_);
        Check(mdb_put(change, keys_, &path, &number, 0));
        Check(mdb_txn_commit(change));
        return lastId_;
    }
    Handle OpenKey(const KeyData& key) override {
        const bool alone = reads_ == nullptr;
        if (alone) BeginReads();
        MDB_val path = Bytes(key.plainPath), number;
        const int found = mdb_get(reads_, keys_, &path, &number);
        const Handle handle = found == MDB_SUCCESS ? TakeNumber(View(number)) : 0;
        if (alone) EndReads();
        return handle;
    }
    void DeleteKey(Handle handle, const KeyData& key) override {
        MDB_txn* change = Change();
        MDB_cursor* cursor = nullptr;
        Check(mdb_cursor_open(change, values_, &cursor));
        MDB_val name = Place(handle, {}), data;
        for (int found = mdb_cursor_get(cursor, &name, &data, MDB_SET_RANGE);
             found == MDB_SUCCESS && OfKey(name);
             found = mdb_cursor_get(cursor, &name, &data, MDB_NEXT)) {
            Check(mdb_cursor_del(cursor, 0));
        }
        mdb_cursor_close(cursor);
        MDB_val path = Bytes(key.plainPath);
        Check(mdb_del(change, keys_, &path, nullptr));
        Check(mdb_txn_commit(change));
    }

    void Set(Handle handle, const ValueData& value) override {
        MDB_txn* change = Change();
        MDB_val place = Place(handle, value.plainName);
        MDB_val data{kTypeBytes + value.data.size(), nullptr};
        // The room is given first and filled then, which saves a copy.
        Check(mdb_put(change, values_, &place, &data, MDB_RESERVE));
        std::memcpy(data.mv_data, &value.type, kTypeBytes);
        std::memcpy(static_cast<char*>(data.mv_data) + kTypeBytes, value.data.data(),
                    value.data.size());
        Check(mdb_txn_commit(change));
    }
    Answer Get(Handle handle, const ValueData& value) override {
        const bool alone = reads_ == nullptr;
        if (alone) BeginReads();
        MDB_val place = Place(handle, value.plainName), data;
        Check(mdb_get(reads_, values_, &place, &data));
        Answer answer = TakeValue(View(data));
        if (alone) {
            buffer_.assign(static_cast<const char*>(answer.data), answer.size);
            answer.data = buffer_.data();
            EndReads();
        }
        return answer;
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        MDB_val name = Place(handle, {}), data;
        for (int found = mdb_cursor_get(cursor_, &name, &data, MDB_SET_RANGE);
             found == MDB_SUCCESS && OfKey(name);
             found = mdb_cursor_get(cursor_, &name, &data, MDB_NEXT)) {
            Answer answer = TakeValue(View(data));
            answer.plainName = View(name).substr(kNumberBytes);
            visit(context, answer);
        }
    }

  private:
    void OpenDatabases(unsigned int transaction, unsigned int how) {
        MDB_txn* opening = nullptr;
        Check(mdb_txn_begin(environment_, nullptr, transaction, &opening));
        Check(mdb_dbi_open(opening, "keys", how, &keys_));
        Check(mdb_dbi_open(opening, "values", how, &values_));
        Check(mdb_txn_commit(opening));
    }
    MDB_txn* Change() {
        MDB_txn* change = nullptr;
        Check(mdb_txn_begin(environment_, nullptr, 0, &change));
        return change;
    }
    void BeginReads() {
        Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reads_));
        Check(mdb_cursor_open(reads_, values_, &cursor_));
    }
    void EndReads() {
        mdb_cursor_close(cursor_);
        mdb_txn_abort(reads_);
        reads_ = nullptr;
    }
    MDB_val Place(Handle handle, const std::string& name) {
        place_.clear();
        PutNumber(&place_, handle);
        place_ += name;
        return Bytes(place_);
    }
    // Whether a value that was met is one of the key that Place was asked for.
    bool OfKey(const MDB_val& name) const {
        return std::memcmp(name.mv_data, place_.data(), kNumberBytes) == 0;
    }

    const std::string path_;
    const bool writeMap_;
    MDB_env* environment_ = nullptr;
    MDB_dbi keys_ = 0, values_ = 0;
    MDB_txn* reads_ = nullptr;
    MDB_cursor* cursor_ = nullptr;
    Handle lastId_ = 0;
    std::string place_, number_, buffer_;
};

}  // namespace

std::unique_ptr<Store> MakeLmdb(const std::filesystem::path& folder, bool writeMap) {
    return std::make_unique<LmdbStore>(folder, writeMap);
}

}  // namespace bench
