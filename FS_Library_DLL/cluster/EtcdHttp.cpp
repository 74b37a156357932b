// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/EtcdHttp.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <ctime>
#include <new>
#include <nlohmann/json.hpp>

#include "FS_Library_DLL/cluster/CurlLibrary.h"
#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/EtcdHttp"

namespace cluster {
namespace {

using nlohmann::json;
using Varnhold::Hob::Detail::kWarning;

constexpr size_t kMostReplyBytes = 64u << 20;
constexpr Milliseconds kConnecting{1000};
constexpr Milliseconds kOneMember{4000};

// A peer that went away ends a write over TLS with a signal, and the process is not ours.
class NoPipeSignal {
  public:
    NoPipeSignal() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~NoPipeSignal() {
        const timespec none{};
        if (!wasPending_) sigtimedwait(&pipe_, nullptr, &none);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    NoPipeSignal(const NoPipeSignal&) = delete;
    NoPipeSignal& operator=(const NoPipeSignal&) = delete;

  private:
    sigset_t pipe_, before_;
    bool wasPending_ = false;
};

Milliseconds Until(Clock::time_point until) {
    return std::max(Milliseconds(0), std::chrono::ceil<Milliseconds>(until - Clock::now()));
}

// What a member says that did not do it; the numbers are those of gRPC.
struct Failure {
    int code = 0;
    std::string message;
};

Failure ReadFailure(const std::string& body) {
    const json reply = json::parse(body, nullptr, false);
    Failure failure;
    // What stands before the gateway says it in plain words.
    if (!reply.is_object()) return {0, body.substr(0, std::min(body.find('\n'), size_t{200}))};
    const auto code = reply.find("code");
    const auto message = reply.find("error");
    if (code != reply.end() && code->is_number_integer()) failure.code = code->get<int>();
    if (message != reply.end() && message->is_string())
        failure.message = message->get<std::string>();
    return failure;
}

}  // namespace

struct EtcdHttp::Curl {
    const CurlLibrary& library;
    CURLM* const multi;
    CURL* const easy;
    curl_slist* headers = nullptr;
    std::array<std::atomic<int>, 32> sockets;  // those that are open, and -1

    explicit Curl(const CurlLibrary& loaded)
        : library(loaded), multi(loaded.multiInit()), easy(loaded.easyInit()) {
        for (auto& one : sockets) one = -1;
    }
    ~Curl() {
        library.freeList(headers);
        library.easyCleanup(easy);
        library.multiCleanup(multi);
    }
    Curl(const Curl&) = delete;
    Curl& operator=(const Curl&) = delete;

    template <class Value>
    void Set(CURLoption option, Value value) {
        library.setOption(easy, option, value);
    }
    // No "Expect", which would cost a round trip with each large value. A member that has no leader
    // ends a watch that asks for one.
    void SetHeaders(const std::string& token) {
        library.freeList(headers);
        headers = library.append(nullptr, "Content-Type: application/json");
        headers = library.append(headers, "Expect:");
        headers = library.append(headers, "Grpc-Metadata-hasleader: true");
        if (!token.empty()) headers = library.append(headers, ("Authorization: " + token).c_str());
        Set(CURLOPT_HTTPHEADER, headers);
    }
    void Wait(Milliseconds time) {
        library.poll(multi, nullptr, 0, static_cast<int>(time.count()), nullptr);
    }
    // One takes the place of the other; more than there is room for are not known.
    void Exchange(int known, int other) {
        for (auto& one : sockets)
            if (int expected = known; one.compare_exchange_strong(expected, other)) return;
    }
    void RememberSockets() {
        Set(
            CURLOPT_OPENSOCKETFUNCTION,
            +[](void* curl, curlsocktype, curl_sockaddr* address) -> curl_socket_t {
                const int made =
                    socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
                if (made >= 0) static_cast<Curl*>(curl)->Exchange(-1, made);
                return made;
            });
        Set(
            CURLOPT_CLOSESOCKETFUNCTION, +[](void* curl, curl_socket_t ended) {
                static_cast<Curl*>(curl)->Exchange(ended, -1);
                return close(ended);
            });
        Set(CURLOPT_OPENSOCKETDATA, this);
        Set(CURLOPT_CLOSESOCKETDATA, this);
    }
};

// One request to one member, and what came of it.
struct EtcdHttp::Attempt {
    const std::string& body;
    const OnLine* onLine = nullptr;
    const GoesOn* goesOn = nullptr;
    std::string reply = {};  // of a stream, what is behind its last whole line
    bool isEnough = false, isTooLarge = false, outOfMemory = false;
    int curlCode = 0;
    long httpStatus = 0;

    size_t Receive(const char* data, size_t size) {
        try {
            reply.append(data, size);
            isTooLarge = reply.size() > kMostReplyBytes;
            for (size_t end;
                 onLine != nullptr && !isEnough && (end = reply.find('\n')) != std::string::npos;) {
                isEnough = !(*onLine)(std::string_view(reply).substr(0, end));
                reply.erase(0, end + 1);
            }
        } catch (const std::bad_alloc&) {
            outOfMemory = true;  // C stands between here and who catches it
        }
        return isEnough || isTooLarge || outOfMemory ? 0 : size;
    }
};

EtcdHttp::EtcdHttp(std::shared_ptr<const EtcdSettings> settings)
    : settings_(std::move(settings)), member_(settings_->answering % settings_->endpoints.size()) {
    const CurlLibrary* const library = LoadCurl();
    if (library == nullptr) throw std::runtime_error("no libcurl");
    curl_ = std::make_unique<Curl>(*library);
    if (curl_->easy == nullptr || curl_->multi == nullptr) throw std::bad_alloc();
    curl_->RememberSockets();
    curl_->Set(CURLOPT_NOSIGNAL, 1L);
    curl_->Set(CURLOPT_PROXY, "");
    curl_->Set(CURLOPT_TCP_NODELAY, 1L);
    // A machine that is gone says nothing; a watch would wait for it forever.
    curl_->Set(CURLOPT_TCP_KEEPALIVE, 1L);
    curl_->Set(CURLOPT_TCP_KEEPIDLE, 20L);
    curl_->Set(CURLOPT_TCP_KEEPINTVL, 5L);
    curl_->Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(kConnecting.count()));
    curl_->Set(
        CURLOPT_WRITEFUNCTION, +[](const char* data, size_t one, size_t size, void* attempt) {
            return static_cast<Attempt*>(attempt)->Receive(data, one * size);
        });
    const auto name = [&](CURLoption option, const std::string& file) {
        if (!file.empty()) curl_->Set(option, file.c_str());
    };
    name(CURLOPT_CAINFO, settings_->caCertificate);
    name(CURLOPT_SSLCERT, settings_->certificate);
    name(CURLOPT_SSLKEY, settings_->key);
}

EtcdHttp::~EtcdHttp() = default;

void EtcdHttp::Interrupt() {
    interrupted_ = true;
    curl_->library.wakeUp(curl_->multi);
}

void EtcdHttp::CloseSockets() {
    for (auto& one : curl_->sockets)
        if (const int open = one.exchange(-1); open >= 0) close(open);
}

void EtcdHttp::Pause(Milliseconds time) {
    if (!interrupted_) curl_->Wait(time);
}

// False when it was interrupted or the time is over.
bool EtcdHttp::Perform(const Attempt& attempt, Clock::time_point until, int* result) {
    const NoPipeSignal noSignal;
    for (int running = 1; !interrupted_;) {
        if (curl_->library.perform(curl_->multi, &running) != CURLM_OK) return false;
        int left = 0;
        while (const CURLMsg* message = curl_->library.readInfo(curl_->multi, &left))
            if (message->msg == CURLMSG_DONE) {
                *result = message->data.result;
                return true;
            }
        const Milliseconds wait = Until(until);
        if (wait.count() == 0 || (attempt.goesOn != nullptr && !(*attempt.goesOn)())) return false;
        // A signal ends the wait at once, unless it came just before.
        curl_->Wait(std::min(wait, Milliseconds(attempt.goesOn != nullptr ? 250 : 1000)));
    }
    return false;
}

Outcome EtcdHttp::Send(const char* path, Attempt* attempt, Clock::time_point until) {
    const CurlLibrary& library = curl_->library;
    const std::string url =
        (settings_->UsesTls() ? "https://" : "http://") + settings_->endpoints[member_] + path;
    curl_->Set(CURLOPT_URL, url.c_str());
    curl_->SetHeaders(token_);
    curl_->Set(CURLOPT_POSTFIELDS, attempt->body.data());
    curl_->Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(attempt->body.size()));
    curl_->Set(CURLOPT_WRITEDATA, attempt);
    attempt->curlCode = CURLE_OPERATION_TIMEDOUT;
    if (library.addHandle(curl_->multi, curl_->easy) == CURLM_OK) {
        Perform(*attempt, until, &attempt->curlCode);
        library.getInfo(curl_->easy, CURLINFO_RESPONSE_CODE, &attempt->httpStatus);
        library.removeHandle(curl_->multi, curl_->easy);
    }
    if (attempt->outOfMemory) throw std::bad_alloc();
    if (attempt->isEnough) return Outcome::Answered;
    if (attempt->isTooLarge) return Outcome::TooLarge;
    if (interrupted_) return Outcome::Interrupted;
    if (attempt->curlCode == CURLE_OK) return Judge(*attempt);
    lastFailure_ = library.errorText(static_cast<CURLcode>(attempt->curlCode));
    lastFailure_ += WhatToLookAt(attempt->curlCode);
    switch (attempt->curlCode) {
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CACERT_BADFILE:
            return Outcome::Denied;
        default:
            return Outcome::Unanswered;
    }
}

// What a person has to look at who reads that a connection fails so.
std::string EtcdHttp::WhatToLookAt(int curlCode) const {
    switch (curlCode) {
        case CURLE_PEER_FAILED_VERIFICATION:
            return ": the certificate of the member is for another name, or not signed by the "
                   "authority that ZRFS_ETCD_CACERT names";
        case CURLE_SSL_CACERT_BADFILE:
            return ": ZRFS_ETCD_CACERT names " + settings_->caCertificate;
        case CURLE_SSL_CERTPROBLEM:
            return ": ZRFS_ETCD_CERT names \"" + settings_->certificate +
                   "\" and ZRFS_ETCD_KEY \"" + settings_->key + '"';
        case CURLE_SSL_CONNECT_ERROR:
            return ": does it speak TLS, which ZRFS_ETCD_CACERT and ZRFS_ETCD_CERT ask for?";
        case CURLE_GOT_NOTHING:
            if (!settings_->UsesTls())
                return ": does it speak TLS? ZRFS_ETCD_CACERT names its authority then";
            [[fallthrough]];
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return settings_->UsesTls() && settings_->certificate.empty()
                       ? ": does it want a certificate? ZRFS_ETCD_CERT and ZRFS_ETCD_KEY name it"
                       : "";
        default:
            return "";
    }
}

Outcome EtcdHttp::Judge(const Attempt& attempt) {
    if (attempt.httpStatus == 200) return Outcome::Answered;
    const Failure failure = ReadFailure(attempt.reply);
    const auto says = [&](const char* words) {
        return failure.message.find(words) != std::string::npos;
    };
    lastFailure_ =
        failure.message.empty() ? "HTTP " + std::to_string(attempt.httpStatus) : failure.message;
    if (says("CommonName of client")) {
        lastFailure_ +=
            ": where the cluster has users, the certificate that ZRFS_ETCD_CERT names must have no "
            "common name (CN)";
        return Outcome::Denied;
    }
    switch (failure.code) {
        case 4:   // it was given up on
        case 14:  // no leader, or it stops
            return Outcome::Unanswered;
        case 5:
            return says("lease") ? Outcome::NoSuchLease : Outcome::Refused;
        case 7:
        case 16:
            return Outcome::Denied;
        case 3:
            if (says("user name is empty")) return Outcome::Denied;
            return says("too large")                                    ? Outcome::TooLarge
                   : says("authentication failed") || says("user name") ? Outcome::Denied
                                                                        : Outcome::Refused;
        case 8:
            if (says("space exceeded")) return Outcome::NoSpace;
            return says("too many requests") ? Outcome::Unanswered : Outcome::TooLarge;
        case 11:
            return Outcome::Compacted;
        default:
            return attempt.httpStatus >= 500 ? Outcome::Unanswered : Outcome::Refused;
    }
}

Outcome EtcdHttp::Authenticate(Clock::time_point until) {
    token_.clear();
    const std::string body =
        json{{"name", settings_->user}, {"password", settings_->password}}.dump(
            -1, ' ', false, json::error_handler_t::replace);
    Attempt attempt{body};
    const Outcome outcome = Send("/v3/auth/authenticate", &attempt, until);
    if (outcome != Outcome::Answered) return outcome;
    const json reply = json::parse(attempt.reply, nullptr, false);
    if (!reply.is_object() || !reply.contains("token") || !reply["token"].is_string())
        return Outcome::Malformed;
    token_ = reply["token"].get<std::string>();
    return Outcome::Answered;
}

// So that each member has its turn.
Milliseconds EtcdHttp::LongestFor(Milliseconds patience) const {
    const auto turns =
        static_cast<int64_t>(std::clamp(settings_->endpoints.size(), size_t{2}, size_t{4}));
    return std::min(kOneMember, patience / turns);
}

void EtcdHttp::Tell(const char* path, Outcome outcome) const {
    if (outcome == Outcome::NoSpace) {
        ZRFS_LOG(kWarning, "EtcdHttp::Post",
                 "The space of the cluster at {} is used up, and nothing can be changed: give it "
                 "more (--quota-backend-bytes), or compact and defragment it, and then have "
                 "etcdctl disarm its alarm",
                 settings_->Endpoints());
        return;
    }
    ZRFS_LOG(kWarning, "EtcdHttp::Post", "The cluster at {} did not do {}: {}",
             settings_->Endpoints(), path, lastFailure_);
}

Outcome EtcdHttp::Post(const char* path, const std::string& body, Milliseconds patience,
                       std::string* reply, size_t* sent) {
    const auto until = Clock::now() + patience;
    bool mayAuthenticate = !settings_->user.empty();
    for (size_t tries = 1;; ++tries) {
        const auto limit = std::min(until, Clock::now() + LongestFor(patience));
        Outcome outcome = Outcome::Answered;
        if (sent != nullptr) *sent = tries;
        if (mayAuthenticate && token_.empty()) outcome = Authenticate(limit);
        Attempt attempt{body};
        if (outcome == Outcome::Answered) outcome = Send(path, &attempt, limit);
        if (outcome == Outcome::Answered) {
            settings_->answering = member_;
            *reply = std::move(attempt.reply);
            return outcome;
        }
        // A token lives for some minutes.
        if (outcome == Outcome::Denied && mayAuthenticate && !token_.empty()) {
            mayAuthenticate = false;
            if (Authenticate(limit) == Outcome::Answered) continue;
        }
        if (outcome == Outcome::Unanswered) {
            member_ = (member_ + 1) % settings_->endpoints.size();
            if (tries % settings_->endpoints.size() == 0)
                Pause(std::min(Milliseconds(20 * tries), Milliseconds(300)));
            if (Clock::now() < until && !interrupted_) continue;
        }
        if (interrupted_) return Outcome::Interrupted;
        Tell(path, outcome);
        return outcome;
    }
}

Outcome EtcdHttp::Stream(const char* path, const std::string& body, Milliseconds patience,
                         const OnLine& onLine, const GoesOn& goesOn) {
    const auto until = Clock::now() + patience;
    for (bool again = !settings_->user.empty();; again = false) {
        Outcome outcome = Outcome::Answered;
        if (!settings_->user.empty() && token_.empty())
            outcome = Authenticate(std::min(until, Clock::now() + kOneMember));
        if (outcome != Outcome::Answered) return outcome;
        Attempt attempt{body, &onLine, goesOn ? &goesOn : nullptr};
        outcome = Send(path, &attempt, until);
        if (outcome == Outcome::Answered && !attempt.isEnough) outcome = Outcome::Unanswered;
        if (outcome == Outcome::Unanswered) member_ = (member_ + 1) % settings_->endpoints.size();
        if (outcome != Outcome::Denied || !again) return outcome;
        token_.clear();
    }
}

}  // namespace cluster
