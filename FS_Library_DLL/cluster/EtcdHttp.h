// SPDX-License-Identifier: MIT
// Requests to the members of a cluster, which are asked in turn until one answers.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "FS_Library_DLL/cluster/EtcdSettings.h"

namespace cluster {

// How a request ended.
enum class Outcome {
    Answered,
    Unanswered,   // in time; it may have been done, and may still be
    Interrupted,  // by Interrupt
    Denied,       // the credentials, or what they allow
    NoSuchLease,
    Compacted,  // the revision asked for is none that the cluster has
    TooLarge,   // the request, or the answer
    NoSpace,    // the cluster's quota is used up
    Malformed,  // the answer is none
    Refused     // for any other reason
};

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// One at a time may use it, but for Interrupt. Nothing that is asked throws but std::bad_alloc.
// What goes wrong is logged with the names of the members.
class EtcdHttp {
  public:
    // Throws std::runtime_error where there is no libcurl.
    explicit EtcdHttp(std::shared_ptr<const EtcdSettings> settings);
    ~EtcdHttp();
    EtcdHttp(const EtcdHttp&) = delete;
    EtcdHttp& operator=(const EtcdHttp&) = delete;

    // Posts a body, such as to "/v3/kv/range". A request that broke off, and one that a member
    // could not pass on to a leader, is sent again, to the next member: what must not be done twice
    // says so itself, by what it compares. No member is waited for longer than 4 s, nor than its
    // part of the patience.
    // *sent, unless it is null, becomes how often it was sent.
    Outcome Post(const char* path, const std::string& body, Milliseconds patience,
                 std::string* reply, size_t* sent = nullptr);
    // Sends once, to the member that answered last. Each line of the answer goes to `onLine`, until
    // that returns false, which is Answered; Unanswered when the time is over, it breaks off, or
    // `goesOn` is false, which is asked each time that the thread wakes up, and may be empty.
    using OnLine = std::function<bool(std::string_view line)>;
    using GoesOn = std::function<bool()>;
    Outcome Stream(const char* path, const std::string& body, Milliseconds patience,
                   const OnLine& onLine, const GoesOn& goesOn = {});
    // From any thread: ends what is under way, and all that is asked later.
    void Interrupt();
    // In the child of a fork: closes its copies of the connections and tells nobody. Neither used
    // nor destroyed any more, for another thread may have been at work with it at the fork.
    void CloseSockets();

  private:
    struct Attempt;
    struct Curl;

    Outcome Send(const char* path, Attempt* attempt, Clock::time_point until);
    std::string WhatToLookAt(int curlCode) const;
    Outcome Judge(const Attempt& attempt);
    Outcome Authenticate(Clock::time_point until);
    bool Perform(const Attempt& attempt, Clock::time_point until, int* result);
    void Pause(Milliseconds time);
    Milliseconds LongestFor(Milliseconds patience) const;
    void Tell(const char* path, Outcome outcome) const;

    const std::shared_ptr<const EtcdSettings> settings_;
    std::unique_ptr<Curl> curl_;
    size_t member_;  // the one to ask next
    std::string token_;
    std::string lastFailure_;
    std::atomic<bool> interrupted_ = false;
};

}  // namespace cluster
