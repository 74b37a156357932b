// SPDX-License-Identifier: MIT
// Named pipes: a client's end, and a server's. On Linux a pipe is a Unix domain socket: a name
// without a slash stands in the user's runtime folder (PipePath), any other is a path as it is.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/Errors.h"
#include "platform/Resources.h"
#include "platform/Text.h"

namespace platform {

inline constexpr Error kErrorBrokenPipe = 109;
inline constexpr Error kErrorPipeBusy = 231;
inline constexpr Error kErrorPipeNotConnected = 233;
inline constexpr Error kErrorWaitTimeout = 258;
inline constexpr Error kErrorOperationAborted = 995;

// What a server may do with the client's identity. On Linux it learns who the client is, and that
// is all.
enum class Disclosure {
    Identify,     // know it
    Impersonate,  // open files and keys in its name
};
// The client's end. One try; not valid on failure, and LastError tells why: kErrorFileNotFound
// when nobody listens under that name, kErrorPipeBusy when no instance is free,
// kErrorAccessDenied when the one who listens is not to be trusted with a request:
// - on Windows, when the pipe is owned by neither the caller's user, nor the system, nor its
//   administrators;
// - on Linux, when the server's user is neither the caller's nor root, unless `name` is a path in a
//   folder that nobody but the server's user may write; or when the user's runtime folder is not
//   the user's own.
// kErrorInvalidName for a name that is no pipe's.
Handle OpenPipe(const WChar* name, Disclosure disclosure) noexcept;
// One transfer. On Windows a read gives what one ReadFile gives; on Linux it goes on until
// `bytes` are there or the other side has gone. kErrorBrokenPipe when it has and nothing came.
Error ReadPipe(Handle pipe, void* buffer, uint32_t bytes, uint32_t* done) noexcept;
Error WritePipe(Handle pipe, const void* buffer, uint32_t bytes) noexcept;
void ClosePipe(Handle pipe) noexcept;
void SleepMilliseconds(uint32_t milliseconds) noexcept;

// Ends waits in other threads. Signal may be called from a signal or console handler.
class StopSignal {
  public:
    virtual ~StopSignal() = default;
    // Null when the system refuses one.
    static std::unique_ptr<StopSignal> Create();
    virtual void Signal() noexcept = 0;
};

// The server's end of one connection, for one thread at a time.
class PipeConnection {
  public:
    virtual ~PipeConnection() = default;

    // Reads exactly `bytes`, waiting at most `milliseconds` for each piece (kForever: without
    // limit). kErrorBrokenPipe, kErrorWaitTimeout, kErrorOperationAborted once stopped.
    virtual Error Read(void* buffer, uint32_t bytes, uint32_t milliseconds) = 0;
    virtual Error Write(const void* buffer, uint32_t bytes, uint32_t milliseconds) = 0;

    // The calling thread acts as the client until EndImpersonation. On Linux nothing changes:
    // who may connect was decided before.
    virtual Error Impersonate() = 0;
    // Where it fails, the thread must do nothing more that is not the client's.
    virtual Error EndImpersonation() = 0;
};
inline constexpr uint32_t kForever = 0xFFFFFFFF;

// Listens under a name.
class PipeListener {
  public:
    virtual ~PipeListener() = default;

    // Null on failure, with LastError: kErrorAccessDenied or kErrorPipeBusy when somebody listens
    // there already; of several that begin at once, one succeeds. `anyUser` lets in other users
    // than the one who runs the server.
    static std::unique_ptr<PipeListener> Listen(const WChar* name, bool anyUser, StopSignal* stop);
    // The next client; null once stopped, or on a failure that LastError tells.
    virtual std::unique_ptr<PipeConnection> Accept() = 0;
};

// Where a pipe of that name is, for a person: the full pipe name, or the socket's path.
std::string PipePath(const WChar* name);

}  // namespace platform
