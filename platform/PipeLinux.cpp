// SPDX-License-Identifier: MIT
#include "platform/Pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/ErrnoLinux.h"

namespace platform {
namespace {

constexpr int kBacklog = 128;
constexpr int kShortageMilliseconds = 100;

// A descriptor as a handle, shifted so that 0 is never one.
Handle ToHandle(int descriptor) {
    return reinterpret_cast<Handle>(static_cast<intptr_t>(descriptor) + 1);
}
int FromHandle(Handle handle) {
    return static_cast<int>(reinterpret_cast<intptr_t>(handle) - 1);
}

std::string RuntimeFolder() {
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    if (folder != nullptr && folder[0] == '/') return std::string(folder) + "/zrfs";
    return "/tmp/zrfs-" + std::to_string(geteuid());
}

// A folder of the user's own pipes, which nobody else may enter. Somebody else may have laid it.
bool IsOwnFolder(const std::string& folder) {
    struct stat state;
    if (lstat(folder.c_str(), &state) != 0) return false;
    errno = EACCES;
    return S_ISDIR(state.st_mode) && state.st_uid == geteuid() && (state.st_mode & 077) == 0;
}

bool EnsureRuntimeFolder(const std::string& folder) {
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
    return IsOwnFolder(folder);
}

bool IsInRuntimeFolder(const std::string& path) {
    const std::string folder = RuntimeFolder();
    return path.starts_with(folder + "/") && path.find('/', folder.size() + 1) == path.npos;
}

// Who may write in the folder that a path stands in, if that is one user alone; the system's own
// user, who may write anywhere, does not count.
bool OnlyWriterBeside(const std::string& path, uid_t* writer) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
    struct stat state;
    if (stat(folder.c_str(), &state) != 0) return false;
    *writer = state.st_uid;
    return (state.st_mode & 022) == 0;
}

// Requests go to a server of the caller's or the system's own user. To another's only where the
// caller names a path in a folder of that user's, in which nobody else can have laid the socket.
bool MayBeAsked(int server, const std::string& path) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(server, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    errno = EACCES;
    if (peer.uid == geteuid() || peer.uid == 0) return true;
    uid_t writer = 0;
    return !IsInRuntimeFolder(path) && OnlyWriterBeside(path, &writer) && writer == peer.uid;
}

bool FillAddress(const WChar* name, sockaddr_un* address) {
    const std::string path = PipePath(name);
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) {
        SetLastError(kErrorFilenameTooLong);
        return false;
    }
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

Error ConnectError(int number) {
    if (number == ECONNREFUSED || number == ENOENT) return kErrorFileNotFound;
    return number == EAGAIN ? kErrorPipeBusy : FromErrno(number);
}

Error TransferError(int number) {
    return number == EPIPE || number == ECONNRESET ? kErrorBrokenPipe : FromErrno(number);
}

}  // namespace

std::string PipePath(const WChar* name) {
    std::string text = ToUtf8(name);
    if (text.find('/') != std::string::npos) return text;
    return RuntimeFolder() + "/" + text;
}

Handle OpenPipe(const WChar* name, Disclosure) noexcept {
    sockaddr_un address;
    if (!FillAddress(name, &address)) return nullptr;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        SetLastError(FromErrno(errno));
        return nullptr;
    }
    const std::string path = address.sun_path;
    if (IsInRuntimeFolder(path) && !IsOwnFolder(RuntimeFolder())) {
        SetLastError(ConnectError(errno));
        close(descriptor);
        return nullptr;
    }
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        !MayBeAsked(descriptor, path)) {
        SetLastError(ConnectError(errno));
        close(descriptor);
        return nullptr;
    }
    return ToHandle(descriptor);
}

Error ReadPipe(Handle pipe, void* buffer, uint32_t bytes, uint32_t* done) noexcept {
    *done = 0;
    while (*done < bytes) {
        const ssize_t got =
            recv(FromHandle(pipe), static_cast<char*>(buffer) + *done, bytes - *done, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return Leave(TransferError(errno));
        if (got == 0) break;
        *done += static_cast<uint32_t>(got);
    }
    return *done == 0 && bytes != 0 ? Leave(kErrorBrokenPipe) : kErrorSuccess;
}

Error WritePipe(Handle pipe, const void* buffer, uint32_t bytes) noexcept {
    for (uint32_t done = 0; done < bytes;) {
        const ssize_t put = send(FromHandle(pipe), static_cast<const char*>(buffer) + done,
                                 bytes - done, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return Leave(TransferError(errno));
        done += static_cast<uint32_t>(put);
    }
    return kErrorSuccess;
}

void ClosePipe(Handle pipe) noexcept {
    if (IsValid(pipe)) close(FromHandle(pipe));
}

void SleepMilliseconds(uint32_t milliseconds) noexcept {
    timespec rest{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

namespace {

class EventStop final : public StopSignal {
  public:
    explicit EventStop(int descriptor) : descriptor_(descriptor) {}
    ~EventStop() override { close(descriptor_); }
    void Signal() noexcept override {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t put = write(descriptor_, &one, sizeof one);
    }
    int Descriptor() const { return descriptor_; }

  private:
    int descriptor_;
};

// Waits until the descriptor is ready for `events` or the server is stopped.
Error WaitReady(int descriptor, short events, int stop, uint32_t milliseconds) {
    pollfd waits[2] = {{descriptor, events, 0}, {stop, POLLIN, 0}};
    const int limit = milliseconds == kForever ? -1 : static_cast<int>(milliseconds);
    int ready = 0;
    do {
        ready = poll(waits, 2, limit);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return Leave(FromErrno(errno));
    if (ready == 0) return Leave(kErrorWaitTimeout);
    return waits[1].revents != 0 ? Leave(kErrorOperationAborted) : kErrorSuccess;
}

class SocketConnection final : public PipeConnection {
  public:
    SocketConnection(int descriptor, int stop) : descriptor_(descriptor), stop_(stop) {}
    ~SocketConnection() override { close(descriptor_); }

    Error Read(void* buffer, uint32_t bytes, uint32_t milliseconds) override {
        for (uint32_t done = 0; done < bytes;) {
            const Error error = WaitReady(descriptor_, POLLIN, stop_, milliseconds);
            if (error != kErrorSuccess) return error;
            const ssize_t got =
                recv(descriptor_, static_cast<char*>(buffer) + done, bytes - done, MSG_DONTWAIT);
            if (got == 0) return Leave(kErrorBrokenPipe);
            if (got > 0) done += static_cast<uint32_t>(got);
            if (got < 0 && errno != EINTR && errno != EAGAIN) return Leave(TransferError(errno));
        }
        return kErrorSuccess;
    }

    Error Write(const void* buffer, uint32_t bytes, uint32_t milliseconds) override {
        for (uint32_t done = 0; done < bytes;) {
            const Error error = WaitReady(descriptor_, POLLOUT, stop_, milliseconds);
            if (error != kErrorSuccess) return error;
            const ssize_t put = send(descriptor_, static_cast<const char*>(buffer) + done,
                                     bytes - done, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (put > 0) done += static_cast<uint32_t>(put);
            if (put < 0 && errno != EINTR && errno != EAGAIN) return Leave(TransferError(errno));
        }
        return kErrorSuccess;
    }

    Error Impersonate() override { return kErrorSuccess; }
    Error EndImpersonation() override { return kErrorSuccess; }

  private:
    int descriptor_;
    int stop_;
};

bool IsSameFile(int descriptor, const std::string& path) {
    struct stat open, named;
    return fstat(descriptor, &open) == 0 && lstat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// What only one server of a name can have: the lock of a file beside its socket. It ends with its
// holder, whatever becomes of that one.
class NameLock {
  public:
    explicit NameLock(const std::string& socketPath) : path_(socketPath + ".lock") {}
    ~NameLock() {
        if (descriptor_ < 0) return;
        unlink(path_.c_str());  // while it is held, so that nobody else holds one of that name
        close(descriptor_);
    }
    NameLock(const NameLock&) = delete;
    NameLock& operator=(const NameLock&) = delete;

    Error Take() {
        for (;;) {
            const int file =
                open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
            if (file < 0) return FromErrno(errno);
            const int failed = flock(file, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
            if (failed == 0 && IsSameFile(file, path_)) {
                descriptor_ = file;
                return kErrorSuccess;
            }
            close(file);
            if (failed == EWOULDBLOCK) return kErrorPipeBusy;
            if (failed != 0 && failed != EINTR) return FromErrno(failed);
            // The one who had it took the file away in between: there is a new one, or none.
        }
    }

  private:
    std::string path_;
    int descriptor_ = -1;
};

class SocketListener final : public PipeListener {
  public:
    SocketListener(int descriptor, std::unique_ptr<NameLock> lock, std::string path, bool anyUser,
                   int stop)
        : lock_(std::move(lock)),
          descriptor_(descriptor),
          path_(std::move(path)),
          anyUser_(anyUser),
          stop_(stop) {}
    ~SocketListener() override {
        unlink(path_.c_str());
        close(descriptor_);
    }

    std::unique_ptr<PipeConnection> Accept() override {
        for (;;) {
            if (WaitReady(descriptor_, POLLIN, stop_, kForever) != kErrorSuccess) return nullptr;
            const int client = accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0 && MayEnter(client))
                return std::make_unique<SocketConnection>(client, stop_);
            const int number = errno;
            if (client >= 0) close(client);
            if (client >= 0 || number == EINTR || number == EAGAIN || number == ECONNABORTED)
                continue;
            if (!IsShortage(number)) {
                SetLastError(FromErrno(number));
                return nullptr;
            }
            // The client stays in the queue until others have left.
            pollfd stopped{stop_, POLLIN, 0};
            poll(&stopped, 1, kShortageMilliseconds);
        }
    }

  private:
    static bool IsShortage(int number) {
        return number == EMFILE || number == ENFILE || number == ENOBUFS || number == ENOMEM;
    }
    bool MayEnter(int client) const {
        ucred peer{};
        socklen_t size = sizeof peer;
        return anyUser_ || (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
                            peer.uid == geteuid());
    }

    std::unique_ptr<NameLock> lock_;  // let go last
    int descriptor_;
    std::string path_;
    bool anyUser_;
    int stop_;
};

// A socket file that nobody listens on any more is in the way of a new server. The caller holds
// the name's lock.
bool RemoveDeadSocket(const sockaddr_un& address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) {
        SetLastError(FromErrno(errno));
        return false;
    }
    const auto* general = reinterpret_cast<const sockaddr*>(&address);
    const bool answered = connect(probe, general, sizeof address) == 0 || errno == EAGAIN;
    close(probe);
    struct stat state;
    if (!answered && lstat(address.sun_path, &state) == 0 && S_ISSOCK(state.st_mode))
        unlink(address.sun_path);
    if (answered) SetLastError(kErrorPipeBusy);
    return !answered;
}

}  // namespace

std::unique_ptr<StopSignal> StopSignal::Create() {
    const int descriptor = eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0) return nullptr;
    return std::make_unique<EventStop>(descriptor);
}

std::unique_ptr<PipeListener> PipeListener::Listen(const WChar* name, bool anyUser,
                                                   StopSignal* stop) {
    sockaddr_un address;
    if (!FillAddress(name, &address)) return nullptr;
    const std::string path = address.sun_path;
    if (IsInRuntimeFolder(path) && !EnsureRuntimeFolder(RuntimeFolder())) {
        SetLastError(FromErrno(errno));
        return nullptr;
    }
    auto lock = std::make_unique<NameLock>(path);
    const Error taken = lock->Take();
    if (taken != kErrorSuccess) {
        SetLastError(taken);
        return nullptr;
    }
    if (!RemoveDeadSocket(address)) return nullptr;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0 ||
        bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        chmod(address.sun_path, anyUser ? 0666 : 0600) != 0 || listen(descriptor, kBacklog) != 0) {
        SetLastError(FromErrno(errno));
        if (descriptor >= 0) close(descriptor);
        return nullptr;
    }
    return std::make_unique<SocketListener>(descriptor, std::move(lock), path, anyUser,
                                            static_cast<EventStop*>(stop)->Descriptor());
}

}  // namespace platform
