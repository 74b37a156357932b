// SPDX-License-Identifier: MIT
#include "server/Session.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
#include "platform/Clock.h"
#include "platform/LockWaitLimit.h"
#include "platform/RealPath.h"

namespace server {

using ipc::Request;
using ipc::WireReader;
using platform::WChar;
using platform::WString;

namespace {

constexpr uint32_t kWriteLock = 1;
constexpr uint32_t kReadLock = 3;
// How long a request waits for the store's lock, and how much of that at a time: a stop is noticed
// in between.
constexpr uint32_t kLockWait = 60000;  // milliseconds
constexpr uint32_t kLockTurn = 200;
// What is left of a payload for a value's data behind the code, its type, length and count, and
// before the status; and for a list's strings behind the code and their count.
constexpr uint32_t kLargestData = ipc::kLargestPayload - 5 * sizeof(uint32_t);
constexpr uint32_t kLargestList = ipc::kLargestPayload - 3 * sizeof(uint32_t);

bool Changes(Request code) {
    switch (code) {
        case Request::DeInitialiseEx:
        case Request::Compact:
        case Request::DeleteValue:
        case Request::SetValue:
        case Request::CreateDirEx:
        case Request::DeleteDirEx:
        case Request::DeleteDirNamedEx:
        case Request::RenameDirEx:
            return true;
        default:
            return false;
    }
}

// A string of the library's, given back at the end.
class OwnedName {
  public:
    ~OwnedName() { FBR_Release(text_); }
    WChar** Out() { return &text_; }
    platform::WStringView View() const {
        return text_ == nullptr ? platform::WStringView() : platform::WStringView(text_);
    }

  private:
    WChar* text_ = nullptr;
};

}  // namespace

// Makes a call that may have to wait for the store's lock, again and again while the wait is all
// that it fails for.
template <class Call>
FBR_STATUS Session::Patiently(Call call) const {
    const uint32_t start = platform::TickCount();
    for (;;) {
        const uint32_t turn = platform::TickCount();
        const FBR_STATUS status = call();
        const uint32_t now = platform::TickCount();
        const bool waited = status == FSSTATUS_LOCK_FAILED && now - turn > kLockTurn / 2;
        if (!waited || now - start >= kLockWait || rules_->stopping) return status;
    }
}

// The store's lock for the time of one request. Reads of a store that shows one state without it
// keep nobody else from it.
class Session::Locked {
  public:
    Locked(const Session& session, Request code)
        : store_(session.lockable_ ? session.store_ : nullptr),
          type_(Changes(code) ? kWriteLock : kReadLock) {
        if (type_ == kReadLock) snapshot_ = dynamic_cast<SharedStore*>(store_);
        if (snapshot_ != nullptr)
            snapshot_->Snapshot(true);
        else if (store_ != nullptr)
            status_ = session.Patiently([this] { return FBR_GetLockEx(type_, store_); });
    }
    ~Locked() {
        if (store_ == nullptr || status_ != FSSTATUS_SUCCESS) return;
        if (snapshot_ != nullptr)
            snapshot_->Snapshot(false);
        else
            FBR_ReleaseLockEx(type_, store_);
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

    bool Held() const { return status_ == FSSTATUS_SUCCESS; }
    FBR_STATUS Status() const { return status_; }
    // The store is gone, and its lock with it.
    void Forget() { store_ = nullptr; }

  private:
    FBR_STORE store_;
    SharedStore* snapshot_ = nullptr;
    uint32_t type_;
    FBR_STATUS status_ = FSSTATUS_SUCCESS;
};

std::shared_ptr<Gate> SessionRules::GateOf(const WString& path) {
    WString name;
    if (platform::RealPath(path, &name) != 0) name = path;
    for (WChar& unit : name) unit = platform::Fold(unit);
    const std::lock_guard held(lock_);
    std::erase_if(gates_, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<Gate>& entry = gates_[name];
    std::shared_ptr<Gate> gate = entry.lock();
    if (gate == nullptr) entry = gate = std::make_shared<Gate>();
    return gate;
}

bool Session::Find(uint64_t number, int64_t* key) const {
    const auto found = keys_.find(number);
    if (found == keys_.end()) return false;
    *key = found->second;
    return true;
}

uint64_t Session::Enter(int64_t key) {
    keys_.emplace(++lastKey_, key);
    return lastKey_;
}

std::optional<std::vector<uint8_t>> Session::Answer(std::span<const uint8_t> bytes) {
    const platform::WithinRoot within(rules_->guard.Root());
    const platform::LockWaitLimit limit(kLockTurn);
    return Carry(bytes);
}

std::optional<std::vector<uint8_t>> Session::Carry(std::span<const uint8_t> bytes) {
    WireReader request(bytes);
    const uint32_t code = request.U32();
    if (!request.Good() || code >= ipc::kRequestCount) return std::nullopt;
    Reply reply(code + 1);
    if (static_cast<Request>(code) == Request::InitialiseEx) {
        Open(request, reply);
    } else {
        const auto gate = gate_;  // for as long as it is shared
        std::shared_lock<Gate> together;
        if (gate != nullptr) together = std::shared_lock(*gate);
        Dispatch(static_cast<Request>(code), request, reply);
    }
    if (!request.AtEnd() || reply.Payload().size() > ipc::kLargestPayload) return std::nullopt;
    return std::move(reply.Payload());
}

// A request with bytes left over is malformed, and must not be carried out.
void Session::Dispatch(Request code, WireReader& request, Reply& reply) {
    switch (code) {
        case Request::DeInitialiseEx:
            if (!request.AtEnd()) return;
            reply.U32(static_cast<uint32_t>(store_ == nullptr ? FSSTATUS_INVALID_HANDLE : End()));
            break;
        case Request::CheckFile:
        case Request::IsCorrupted:
        case Request::Compact:
            if (request.AtEnd()) NumberRequest(code, reply);
            break;
        case Request::DeleteValue:
        case Request::SetValue:
        case Request::QueryValue:
            ValueRequest(code, request, reply);
            break;
        case Request::CreateDirEx:
        case Request::OpenDirEx:
        case Request::DuplicateDirHandleEx:
            NewKeyRequest(code, request, reply);
            break;
        case Request::DeleteDirEx:
        case Request::DeleteDirNamedEx:
        case Request::RenameDirEx:
        case Request::CloseDirEx:
            KeyRequest(code, request, reply);
            break;
        case Request::GetDirTimesEx:
            TimesRequest(request, reply);
            break;
        case Request::EnumerateAllValues:
        case Request::EnumerateAllKeys:
            NamesRequest(code, request, reply);
            break;
        default:
            NameRequest(code, request, reply);
            break;
    }
}

void Session::Open(WireReader& request, Reply& reply) {
    const WString path = request.String();
    const uint32_t method = request.U32();
    if (!request.AtEnd()) return;
    Close();
    const std::optional<StoreRequest> admitted = rules_->guard.Admit(method, path);
    FBR_STATUS status = FSSTATUS_INVALID_PARAMETER;
    if (admitted) status = OpenStore(*admitted);
    reply.U32(static_cast<uint32_t>(status));
}

FBR_STATUS Session::OpenStore(const StoreRequest& request) {
    lockable_ = request.method == FS_VR_METHOD_TARN || request.method == FS_VR_METHOD_CLUSTER;
    auto folder = std::make_unique<platform::HeldFolder>(request.path.c_str());
    const platform::Error error = folder->Status();
    // Those that open files by themselves get no path that somebody could still lay elsewhere.
    if (error == platform::kErrorPathNotFound && !lockable_) return FSSTATUS_NOT_FOUND;
    if (error != 0 && error != platform::kErrorPathNotFound) return FSSTATUS_INVALID_PARAMETER;
    auto gate = rules_->GateOf(request.path);
    const std::lock_guard alone(*gate);
    const FBR_STATUS status =
        Patiently([&] { return FBR_InitialiseEx(request.path.c_str(), &store_, request.method); });
    if (status != FSSTATUS_SUCCESS) return status;
    gate_ = std::move(gate);
    folder_ = std::move(folder);
    return status;
}

void Session::Abandon() {
    store_ = nullptr;
    keys_.clear();
    gate_.reset();
    folder_.reset();
}

void Session::Close() {
    if (store_ == nullptr) return;
    const platform::WithinRoot within(rules_->guard.Root());
    const platform::LockWaitLimit limit(kLockTurn);
    const auto gate = gate_;
    const std::shared_lock together(*gate);
    End();
}

// The gate is shared.
FBR_STATUS Session::End() {
    if (store_ == nullptr) return FSSTATUS_SUCCESS;
    // Under the write lock, so that volatile keys go with the store.
    Locked lock(*this, Request::DeInitialiseEx);
    // Keys may be more than the store knows of, and may hold it open.
    for (const auto& [number, key] : keys_) FBR_CloseDirEx(key, store_);
    keys_.clear();
    const FBR_STATUS status = FBR_DeInitialiseEx(store_);
    lock.Forget();
    Abandon();
    return status;
}

void Session::NumberRequest(Request code, Reply& reply) {
    uint32_t number = 0;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && code == Request::CheckFile) {
        // It takes the lock itself, for an opening of its own.
        status = Patiently([this] { return FBR_CheckFile(store_); });
    } else if (store_ != nullptr) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else {
            status = code == Request::Compact ? FBR_Compact(store_, &number)
                                              : FBR_IsCorrupted(store_, &number);
        }
    }
    if (code != Request::CheckFile) reply.U32(number);
    reply.U32(static_cast<uint32_t>(status));
}

// A name goes to the store as the client gave it: the exported functions would make another one of
// the empty name, and so did those that the client called.
void Session::ValueRequest(Request code, WireReader& request, Reply& reply) {
    const uint64_t number = request.U64();
    const WString name = request.String();
    const uint32_t type = code == Request::SetValue ? request.U32() : 0;
    const uint32_t size = code == Request::DeleteValue ? 0 : request.U32();
    const auto data = code == Request::SetValue ? request.Bytes(size) : request.Bytes(0);
    if (!request.AtEnd()) return;
    int64_t key = 0;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && Find(number, &key)) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else if (code == Request::QueryValue) {
            return Query(key, name, size, reply);
        } else {
            status = code == Request::SetValue
                         ? store_->FBR_SetValue(key, name.c_str(), type, data.data(), size)
                         : store_->FBR_DeleteValue(key, name.c_str());
        }
    }
    if (code == Request::QueryValue) reply.U32(0).U32(0).U32(0);
    reply.U32(static_cast<uint32_t>(status));
}

// A buffer size of 0 asks for the size alone. The answer to that is the same of every store, of
// which some call the size without the data a success.
void Session::Query(int64_t key, const WString& name, uint32_t room, Reply& reply) {
    uint64_t size = 0;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    const auto ask = [&](void* to, uint64_t bytes) {
        return store_->FBR_QueryValue(key, name.c_str(), to, bytes, &size, &type);
    };
    FBR_STATUS status = ask(nullptr, 0);
    const bool isThere = status == FSSTATUS_SUCCESS || status == FSSTATUS_BUFFER_OVERFLOW;
    if (isThere && size != 0) status = FSSTATUS_BUFFER_OVERFLOW;
    // What nobody locks may grow between two questions.
    while (isThere && data.size() < std::min<uint64_t>(room, size)) {
        // No larger than what is there: the client's number is only a limit.
        const uint64_t bytes = std::min<uint64_t>(room, size);
        if (bytes > kLargestData) {
            status = FSSTATUS_FAILED;
            break;
        }
        data.resize(static_cast<size_t>(bytes));
        status = ask(data.data(), bytes);
        if (status != FSSTATUS_BUFFER_OVERFLOW) break;
    }
    if (status != FSSTATUS_SUCCESS) data.clear();
    if (size < data.size()) data.resize(static_cast<size_t>(size));
    const auto told = static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX));
    reply.U32(type).U32(told).U32(static_cast<uint32_t>(data.size()));
    reply.Bytes(data.data(), data.size()).U32(static_cast<uint32_t>(status));
}

void Session::NewKeyRequest(Request code, WireReader& request, Reply& reply) {
    const uint64_t number = request.U64();
    const uint32_t options = code == Request::CreateDirEx ? request.U32() : 0;
    const WString name = code == Request::DuplicateDirHandleEx ? WString() : request.String();
    if (!request.AtEnd()) return;
    int64_t key = 0;
    int64_t made = 0;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    // 0 is the root as a parent, and no key that could be duplicated.
    const bool known = Find(number, &key) || (number == 0 && code != Request::DuplicateDirHandleEx);
    if (store_ != nullptr && known) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else if (code == Request::CreateDirEx) {
            status = FBR_CreateDirEx(key, name.c_str(), static_cast<FBR_CREATEOPTIONS>(options),
                                     &made, store_);
        } else {
            status = code == Request::OpenDirEx ? FBR_OpenDirEx(key, name.c_str(), &made, store_)
                                                : FBR_DuplicateDirHandleEx(key, &made, store_);
        }
    }
    reply.U64(made == 0 ? 0 : Enter(made)).U32(static_cast<uint32_t>(status));
}

void Session::KeyRequest(Request code, WireReader& request, Reply& reply) {
    const bool named = code == Request::DeleteDirNamedEx;
    const uint64_t number = named ? 0 : request.U64();
    const WString name = named || code == Request::RenameDirEx ? request.String() : WString();
    if (!request.AtEnd()) return;
    int64_t key = 0;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && (named || Find(number, &key))) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else if (named) {
            status = FBR_DeleteDirNamedEx(name.c_str(), store_);
        } else if (code == Request::RenameDirEx) {
            status = FBR_RenameDirEx(key, name.c_str(), store_);
        } else if (code == Request::DeleteDirEx) {
            status = FBR_DeleteDirEx(key, store_);
        } else {
            status = FBR_CloseDirEx(key, store_);
            keys_.erase(number);
        }
    }
    reply.U32(static_cast<uint32_t>(status));
}

void Session::NameRequest(Request code, WireReader& request, Reply& reply) {
    const uint64_t number = request.U64();
    const bool indexed = code == Request::EnumIntFileEx || code == Request::EnumIntDirEx;
    const uint32_t index = indexed ? request.U32() : 0;
    if (!request.AtEnd()) return;
    int64_t key = 0;
    OwnedName name;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && Find(number, &key)) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else if (code == Request::EnumIntFileEx) {
            status = FBR_EnumIntFileEx(key, index, name.Out(), store_);
        } else if (code == Request::EnumIntDirEx) {
            status = FBR_EnumIntDirEx(key, index, name.Out(), store_);
        } else {
            status = code == Request::GetName_DirEx
                         ? FBR_GetName_DirEx(key, name.Out(), store_)
                         : FBR_GetFullName_DirEx(key, name.Out(), store_);
        }
    }
    reply.String(name.View()).U32(static_cast<uint32_t>(status));
}

void Session::TimesRequest(WireReader& request, Reply& reply) {
    const uint64_t number = request.U64();
    if (!request.AtEnd()) return;
    int64_t key = 0;
    FBR_SYSTEMTIME time{};
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && Find(number, &key)) {
        const Locked lock(*this, Request::GetDirTimesEx);
        status = lock.Held() ? FBR_GetDirTimesEx(key, &time, store_) : lock.Status();
    }
    // In the order of their names.
    for (const uint16_t field : {time.wDay, time.wDayOfWeek, time.wHour, time.wMilliseconds,
                                 time.wMinute, time.wMonth, time.wSecond, time.wYear})
        reply.U16(field);
    reply.U32(static_cast<uint32_t>(status));
}

void Session::NamesRequest(Request code, WireReader& request, Reply& reply) {
    const uint64_t number = request.U64();
    if (!request.AtEnd()) return;
    int64_t key = 0;
    std::vector<WString> names;
    FBR_STATUS status = FSSTATUS_INVALID_HANDLE;
    if (store_ != nullptr && Find(number, &key)) {
        const Locked lock(*this, code);
        if (!lock.Held()) {
            status = lock.Status();
        } else {
            status = code == Request::EnumerateAllValues
                         ? FBR_EnumerateAllValues(key, names, store_)
                         : FBR_EnumerateAllKeys(key, names, store_);
        }
    }
    size_t bytes = 0;
    for (const WString& name : names) bytes += sizeof(uint32_t) + (name.size() + 1) * 2;
    if (bytes > kLargestList) {  // one by one they can be had
        names.clear();
        status = FSSTATUS_FAILED;
    }
    reply.U32(static_cast<uint32_t>(names.size()));
    for (const WString& name : names) reply.String(name);
    reply.U32(static_cast<uint32_t>(status));
}

}  // namespace server
