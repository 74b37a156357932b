// SPDX-License-Identifier: MIT
// What is asked of a cluster, and its answers.
#pragma once

#include <cstdint>
#include <vector>

#include "FS_Library_DLL/cluster/EtcdHttp.h"

namespace cluster {

// The key `from` alone, or with `to` all keys from there up to `to`, which is not one of them.
struct Span {
    std::string from, to = {};
};
// All keys that begin with `prefix`, which is not empty.
Span AllBelow(std::string prefix);

struct KeyValue {
    std::string key, value;
    int64_t created = 0, modified = 0, lease = 0;  // the first two are revisions
};

struct RangeRequest {
    Span span;
    int64_t limit = 0;     // 0: none
    int64_t revision = 0;  // 0: as it is now, as a majority knows it
    bool keysOnly = false;
};
struct RangeReply {
    std::vector<KeyValue> found;  // in the order of their keys
    bool hasMore = false;         // than the limit allowed
};

struct Compare {
    enum class What { Created, Modified };
    enum class How { Equal, Greater };
    What what;
    How how;
    Span span;  // each key of several; where there is none, its revision is 0
    int64_t revision = 0;
};
struct Operation {
    enum class What { Put, Delete, Range };
    What what;
    Span span;
    std::string value = {};  // of a put
    int64_t lease = 0;       // of a put
    int64_t limit = 0;       // of a range
};
Operation Put(std::string key, std::string value, int64_t lease = 0);
Operation Delete(Span span);
Operation Get(Span span, int64_t limit = 0);

// No more than this in either list.
inline constexpr size_t kMostOperations = 128;

struct Transaction {
    std::vector<Compare> compares;
    std::vector<Operation> ifTrue, ifFalse;
};
struct TransactionReply {
    bool isTrue = false;
    int64_t revision = 0;             // of the cluster
    std::vector<RangeReply> results;  // one for each operation that ran; empty but for a range
};

// Answers as they come, which may be anything: false for one that is none.
bool ReadRangeReply(std::string_view text, RangeReply* reply, int64_t* revision);
bool ReadTransactionReply(std::string_view text, size_t operations, TransactionReply* reply);
bool ReadLeaseReply(std::string_view text, int64_t* id, int64_t* seconds);
// A line of what a watch tells: an event, one that deletes something where nothing else counts, or
// that the watch is at its end.
enum class Events { All, Deletions };
bool TellsOf(Events wanted, std::string_view line);

class EtcdApi {
  public:
    explicit EtcdApi(std::shared_ptr<const EtcdSettings> settings) : http_(std::move(settings)) {}

    // How long a call goes on trying.
    void SetPatience(Milliseconds patience) { patience_ = patience; }
    // While it freezes, all that is read is of the state that the first answer since then showed.
    // Compares are made of what is there now all the same.
    void Freeze(bool freezes) {
        if (freezes_ != freezes) frozenAt_ = 0;
        freezes_ = freezes;
    }
    void Interrupt() { http_.Interrupt(); }
    void CloseSockets() { http_.CloseSockets(); }

    // `revision` becomes the one that was read, and may be null.
    Outcome Range(const RangeRequest& request, RangeReply* reply, int64_t* revision = nullptr);
    Outcome Do(const Transaction& transaction, TransactionReply* reply);
    Outcome Grant(int64_t seconds, int64_t* lease);
    Outcome Revoke(int64_t lease);
    // NoSuchLease when it ran out.
    Outcome KeepAlive(int64_t lease);
    // Answered when there was such an event at or behind the revision, or the cluster knows no more
    // what there was; Unanswered when the time is over, the member was lost, or `goesOn` is false.
    Outcome WaitFor(Events wanted, const std::vector<Span>& spans, int64_t revision,
                    Milliseconds patience, const EtcdHttp::GoesOn& goesOn = {});

  private:
    Outcome Ask(const char* path, const std::string& body, std::string* reply,
                size_t* sent = nullptr) {
        return http_.Post(path, body, patience_, reply, sent);
    }

    int64_t Reads(int64_t revision) const { return revision == 0 ? frozenAt_ : revision; }
    void HasRead(int64_t revision) {
        if (freezes_ && frozenAt_ == 0) frozenAt_ = revision;
    }

    EtcdHttp http_;
    bool freezes_ = false;
    int64_t frozenAt_ = 0;  // 0: nothing was read yet, or it does not freeze
    Milliseconds patience_{12000};
};

}  // namespace cluster
