// SPDX-License-Identifier: MIT
#include <leveldb/cache.h>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>

#include "bench/peers/ByteKey.h"

namespace bench {
namespace {

constexpr size_t kCacheBytes = size_t{64} << 20;
constexpr char kPaths = 'p', kValues = 'v';

void Check(const leveldb::Status& status) {
    if (!status.ok()) throw std::runtime_error("LevelDB: " + status.ToString());
}

// Paths and values under a letter each; a change is a put or a batch; reads keep one iterator.
class LevelDbStore : public Store {
  public:
    explicit LevelDbStore(const std::filesystem::path& folder)
        : path_((folder / "store.leveldb").string()) {}

    void Open() override {
        cache_.reset(leveldb::NewLRUCache(kCacheBytes));
        leveldb::Options options;
        options.create_if_missing = true;
        options.block_cache = cache_.get();
        leveldb::DB* database = nullptr;
        Check(leveldb::DB::Open(options, path_, &database));
        database_.reset(database);
    }
    void Close() override {
        database_.reset();
        cache_.reset();
    }
    void End(Span) override { walk_.reset(); }

    Handle MakeKey(const KeyData& key) override {
        stored_.clear();
        PutNumber(&stored_, ++lastId_);
        Check(database_->Put({}, kPaths + key.plainPath, stored_));
        return lastId_;
    }
    Handle OpenKey(const KeyData& key) override {
        const leveldb::Status status = database_->Get({}, kPaths + key.plainPath, &stored_);
        if (status.IsNotFound()) return 0;
        Check(status);
        return TakeNumber(stored_);
    }
    void DeleteKey(Handle handle, const KeyData& key) override {
        leveldb::WriteBatch batch;
        Place(handle, {});
        const std::unique_ptr<leveldb::Iterator> walk(database_->NewIterator({}));
        for (walk->Seek(place_); walk->Valid() && walk->key().starts_with(place_); walk->Next())
            batch.Delete(walk->key());
        Check(walk->status());
        batch.Delete(kPaths + key.plainPath);
        Check(database_->Write({}, &batch));
    }

    void Set(Handle handle, const ValueData& value) override {
        stored_.assign(reinterpret_cast<const char*>(&value.type), kTypeBytes);
        stored_.append(reinterpret_cast<const char*>(value.data.data()), value.data.size());
        Check(database_->Put({}, Place(handle, value.plainName), stored_));
    }
    Answer Get(Handle handle, const ValueData& value) override {
        Check(database_->Get({}, Place(handle, value.plainName), &stored_));
        return TakeValue(stored_);
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        if (walk_ == nullptr) walk_.reset(database_->NewIterator({}));
        Place(handle, {});
        for (walk_->Seek(place_); walk_->Valid() && walk_->key().starts_with(place_);
             walk_->Next()) {
            Answer answer = TakeValue({walk_->value().data(), walk_->value().size()});
            answer.plainName = {walk_->key().data() + place_.size(),
                                walk_->key().size() - place_.size()};
            visit(context, answer);
        }
        Check(walk_->status());
    }

  private:
    const std::string& Place(Handle handle, const std::string& name) {
        place_.assign(1, kValues);
        PutNumber(&place_, handle);
        place_ += name;
        return place_;
    }

    const std::string path_;
    std::unique_ptr<leveldb::Cache> cache_;
    std::unique_ptr<leveldb::DB> database_;
    std::unique_ptr<leveldb::Iterator> walk_;
    Handle lastId_ = 0;
    std::string place_, stored_;
};

}  // namespace

std::unique_ptr<Store> MakeLevelDb(const std::filesystem::path& folder) {
    return std::make_unique<LevelDbStore>(folder);
}

}  // namespace bench
