// SPDX-License-Identifier: MIT
// One client's requests and the server's answers; the store and the keys behind them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "Shared/ipc/Wire.h"
#include "include/ZrFsLibrary.h"
#include "platform/RootFolder.h"
#include "platform/SharedLock.h"
#include "server/PathGuard.h"

namespace server {

// One for each store. Requests share it; the opening of the store has it alone, for it reads and
// may stamp the store before any lock of the store's own can be had.
using Gate = platform::SharedLock;

// Shared by the sessions of one server.
class SessionRules {
  public:
    explicit SessionRules(PathGuard pathGuard) : guard(std::move(pathGuard)) {}

    const PathGuard guard;
    // Once set, nobody waits for a store's lock any more.
    std::atomic<bool> stopping{false};
    // The one of the store that lies there.
    std::shared_ptr<Gate> GateOf(const platform::WString& path);

  private:
    platform::SharedLock lock_;
    std::unordered_map<platform::WString, std::weak_ptr<Gate>> gates_;
};

// Answers the requests of one connection, one after another, from one thread at a time.
//
// A key value that goes to the client is a number of the session's own. Of a container, every
// request runs under its lock: the write lock for those that change it and for the end, the read
// lock for the others; so clients of this server, of another, and local callers can share it.
// While the thread works for the client it reaches no file but those below the server's root.
class Session {
  public:
    explicit Session(SessionRules* rules) : rules_(rules) {}
    ~Session() { Close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The reply's payload, or nothing when the request is malformed and the connection is to end.
    std::optional<std::vector<uint8_t>> Answer(std::span<const uint8_t> request);
    // Closes the store, if one is open.
    void Close();
    // Leaves the store as it is, for a client that the server can no longer act for.
    void Abandon();

  private:
    using Reply = ipc::WireWriter;
    class Locked;

    std::optional<std::vector<uint8_t>> Carry(std::span<const uint8_t> request);
    void Dispatch(ipc::Request code, ipc::WireReader& request, Reply& reply);
    void Open(ipc::WireReader& request, Reply& reply);
    FBR_STATUS OpenStore(const StoreRequest& request);
    FBR_STATUS End();
    template <class Call>
    FBR_STATUS Patiently(Call call) const;
    void NumberRequest(ipc::Request code, Reply& reply);
    void ValueRequest(ipc::Request code, ipc::WireReader& request, Reply& reply);
    void Query(int64_t key, const platform::WString& name, uint32_t room, Reply& reply);
    void NewKeyRequest(ipc::Request code, ipc::WireReader& request, Reply& reply);
    void KeyRequest(ipc::Request code, ipc::WireReader& request, Reply& reply);
    void NameRequest(ipc::Request code, ipc::WireReader& request, Reply& reply);
    void TimesRequest(ipc::WireReader& request, Reply& reply);
    void NamesRequest(ipc::Request code, ipc::WireReader& request, Reply& reply);

    // The store's key behind a client's number; false for a number that is not the session's.
    bool Find(uint64_t number, int64_t* key) const;
    uint64_t Enter(int64_t key);

    SessionRules* rules_;
    std::shared_ptr<Gate> gate_;  // of the open store
    std::unique_ptr<platform::HeldFolder> folder_;
    FBR_STORE store_ = nullptr;
    bool lockable_ = false;
    std::unordered_map<uint64_t, int64_t> keys_;
    uint64_t lastKey_ = 0;
};

}  // namespace server
