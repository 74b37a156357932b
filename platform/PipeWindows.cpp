// SPDX-License-Identifier: MIT
#include "platform/Pipe.h"

#include <windows.h>

#include <aclapi.h>

namespace platform {
namespace {

constexpr DWORD kPipeBuffer = 65536;

WString FullName(const WChar* name) {
    return L"\\\\.\\pipe\\" + WString(name);
}

// The system would take some names for paths that lead away from the pipes: those with a part of
// dots and blanks alone, an empty part, a slash or a drive's colon.
bool IsPipeName(WStringView name) {
    if (name.find_first_of(L"/:") != WStringView::npos) return false;
    for (;;) {
        const size_t end = name.find(L'\\');
        if (name.substr(0, end).find_first_not_of(L". ") == WStringView::npos) return false;
        if (end == WStringView::npos) return true;
        name.remove_prefix(end + 1);
    }
}

bool IsUserOf(HANDLE token, PSID user) {
    BYTE buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD bytes = 0;
    return GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &bytes) &&
           EqualSid(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, user);
}

bool IsCaller(PSID user) {
    HANDLE token = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) &&
        !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    const bool is = IsUserOf(token, user);
    CloseHandle(token);
    return is;
}

// Anybody may make a pipe of a name that is free, and wait for whoever asks there. Only a system
// that keeps no owners of pipes gives none.
bool MayBeAsked(HANDLE pipe) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                        nullptr, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const bool may = owner == nullptr || IsCaller(owner) ||
                     IsWellKnownSid(owner, WinLocalSystemSid) ||
                     IsWellKnownSid(owner, WinBuiltinAdministratorsSid);
    LocalFree(descriptor);
    return may;
}

}  // namespace

std::string PipePath(const WChar* name) {
    return ToUtf8(FullName(name));
}

// Nothing has been sent when the owner is looked at, and before something is, no server can act
// for the client.
Handle OpenPipe(const WChar* name, Disclosure disclosure) noexcept {
    if (!IsPipeName(name)) {
        SetLastError(kErrorInvalidName);
        return nullptr;
    }
    const DWORD level =
        disclosure == Disclosure::Impersonate ? SECURITY_IMPERSONATION : SECURITY_IDENTIFICATION;
    const HANDLE pipe = CreateFileW(FullName(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                    nullptr, OPEN_EXISTING, SECURITY_SQOS_PRESENT | level, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) return nullptr;
    const bool isPipe = GetFileType(pipe) == FILE_TYPE_PIPE;
    if (isPipe && MayBeAsked(pipe)) return pipe;
    CloseHandle(pipe);
    SetLastError(isPipe ? kErrorAccessDenied : kErrorInvalidName);
    return nullptr;
}

Error ReadPipe(Handle pipe, void* buffer, uint32_t bytes, uint32_t* done) noexcept {
    DWORD got = 0;
    const BOOL read = ReadFile(pipe, buffer, bytes, &got, nullptr);
    *done = got;
    return read ? kErrorSuccess : GetLastError();
}

Error WritePipe(Handle pipe, const void* buffer, uint32_t bytes) noexcept {
    DWORD put = 0;
    if (WriteFile(pipe, buffer, bytes, &put, nullptr)) return kErrorSuccess;
    // A server that closed its end without disconnecting shows like this.
    return GetLastError() == ERROR_NO_DATA ? kErrorBrokenPipe : GetLastError();
}

void ClosePipe(Handle pipe) noexcept {
    if (IsValid(pipe)) CloseHandle(pipe);
}

void SleepMilliseconds(uint32_t milliseconds) noexcept {
    Sleep(milliseconds);
}

namespace {

class EventStop final : public StopSignal {
  public:
    explicit EventStop(HANDLE event) : event_(event) {}
    ~EventStop() override { CloseHandle(event_); }
    void Signal() noexcept override { SetEvent(event_); }
    HANDLE Event() const { return event_; }

  private:
    HANDLE event_;
};

// An overlapped operation on a pipe, waited for together with the stop event.
class Overlapped {
  public:
    Overlapped() { state_.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr); }
    ~Overlapped() {
        if (state_.hEvent != nullptr) CloseHandle(state_.hEvent);
    }
    Overlapped(const Overlapped&) = delete;
    Overlapped& operator=(const Overlapped&) = delete;

    OVERLAPPED* Start() {
        ResetEvent(state_.hEvent);
        return &state_;
    }
    // `started` is what the call that began the operation returned.
    Error Finish(HANDLE pipe, BOOL started, HANDLE stop, uint32_t milliseconds, DWORD* done) {
        const DWORD error = started ? ERROR_SUCCESS : GetLastError();
        if (error != ERROR_SUCCESS && error != ERROR_IO_PENDING) return Translate(error);
        if (error == ERROR_IO_PENDING) {
            const HANDLE events[] = {state_.hEvent, stop};
            const DWORD woken = WaitForMultipleObjects(2, events, FALSE, milliseconds);
            if (woken != WAIT_OBJECT_0) {
                CancelIo(pipe);
                GetOverlappedResult(pipe, &state_, done, TRUE);
                return woken == WAIT_TIMEOUT ? kErrorWaitTimeout : kErrorOperationAborted;
            }
        }
        if (GetOverlappedResult(pipe, &state_, done, TRUE)) return kErrorSuccess;
        return Translate(GetLastError());
    }

  private:
    static Error Translate(DWORD error) {
        return error == ERROR_PIPE_NOT_CONNECTED || error == ERROR_NO_DATA ? kErrorBrokenPipe
                                                                           : error;
    }
    OVERLAPPED state_{};
};

class ServerPipe final : public PipeConnection {
  public:
    ServerPipe(HANDLE pipe, HANDLE stop) : pipe_(pipe), stop_(stop) {}
    // Without disconnecting first, which would take the last reply from a client that has not
    // read it yet.
    ~ServerPipe() override { CloseHandle(pipe_); }

    Error Read(void* buffer, uint32_t bytes, uint32_t milliseconds) override {
        for (uint32_t done = 0; done < bytes;) {
            DWORD got = 0;
            const BOOL started = ReadFile(pipe_, static_cast<char*>(buffer) + done, bytes - done,
                                          nullptr, overlapped_.Start());
            const Error error = overlapped_.Finish(pipe_, started, stop_, milliseconds, &got);
            if (error != kErrorSuccess) return error;
            done += got;
        }
        return kErrorSuccess;
    }

    // One transfer, so that the client's one read gets it whole.
    Error Write(const void* buffer, uint32_t bytes, uint32_t milliseconds) override {
        DWORD put = 0;
        const BOOL started = WriteFile(pipe_, buffer, bytes, nullptr, overlapped_.Start());
        return overlapped_.Finish(pipe_, started, stop_, milliseconds, &put);
    }

    Error Impersonate() override {
        return ImpersonateNamedPipeClient(pipe_) ? kErrorSuccess : GetLastError();
    }
    Error EndImpersonation() override {
        return RevertToSelf() || SetThreadToken(nullptr, nullptr) ? kErrorSuccess : GetLastError();
    }

  private:
    HANDLE pipe_;
    HANDLE stop_;
    Overlapped overlapped_;
};

class ServerListener final : public PipeListener {
  public:
    ServerListener(WString name, HANDLE first, HANDLE stop)
        : name_(std::move(name)), next_(first), stop_(stop) {}
    ~ServerListener() override {
        if (next_ != INVALID_HANDLE_VALUE) CloseHandle(next_);
    }

    std::unique_ptr<PipeConnection> Accept() override {
        if (next_ == INVALID_HANDLE_VALUE) next_ = CreateInstance(name_, false);
        if (next_ == INVALID_HANDLE_VALUE) return nullptr;
        Error error = Connected();
        // The client came and went before it was looked for.
        for (; error == kErrorBrokenPipe; error = Connected()) DisconnectNamedPipe(next_);
        if (error != kErrorSuccess) {
            SetLastError(error);
            return nullptr;
        }
        auto connection = std::make_unique<ServerPipe>(next_, stop_);
        next_ = CreateInstance(name_, false);
        return connection;
    }

    static HANDLE CreateInstance(const WString& name, bool first) {
        const DWORD open =
            PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0);
        return CreateNamedPipeW(
            name.c_str(), open,
            PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
            PIPE_UNLIMITED_INSTANCES, kPipeBuffer, kPipeBuffer, 0, nullptr);
    }

  private:
    // Waits for a client of the next instance.
    Error Connected() {
        Overlapped overlapped;
        DWORD unused = 0;
        const BOOL connected = ConnectNamedPipe(next_, overlapped.Start());
        if (!connected && GetLastError() == ERROR_PIPE_CONNECTED) return kErrorSuccess;
        return overlapped.Finish(next_, connected, stop_, kForever, &unused);
    }

    WString name_;
    HANDLE next_;
    HANDLE stop_;
};

}  // namespace

std::unique_ptr<StopSignal> StopSignal::Create() {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) return nullptr;
    return std::make_unique<EventStop>(event);
}

// The default descriptor of a pipe lets its owner and administrators write; every request is
// answered under the client's own identity, whoever it is.
std::unique_ptr<PipeListener> PipeListener::Listen(const WChar* name, bool, StopSignal* stop) {
    if (!IsPipeName(name)) {
        SetLastError(kErrorInvalidName);
        return nullptr;
    }
    const WString full = FullName(name);
    const HANDLE first = ServerListener::CreateInstance(full, true);
    if (first == INVALID_HANDLE_VALUE) return nullptr;
    return std::make_unique<ServerListener>(full, first, static_cast<EventStop*>(stop)->Event());
}

}  // namespace platform
