// SPDX-License-Identifier: MIT
// The NT statuses that the backends over the native functions tell apart.
#pragma once

#include <windows.h>
#include <winternl.h>

namespace nt {

inline constexpr NTSTATUS Status(ULONG value) {
    return static_cast<NTSTATUS>(value);
}

inline constexpr NTSTATUS kSuccess = 0;
inline constexpr NTSTATUS kBufferOverflow = Status(0x80000005);
inline constexpr NTSTATUS kNoMoreFiles = Status(0x80000006);
inline constexpr NTSTATUS kUnsuccessful = Status(0xc0000001);
inline constexpr NTSTATUS kInfoLengthMismatch = Status(0xc0000004);
inline constexpr NTSTATUS kInvalidParameter = Status(0xc000000d);
inline constexpr NTSTATUS kNoMemory = Status(0xc0000017);
inline constexpr NTSTATUS kAccessDenied = Status(0xc0000022);
inline constexpr NTSTATUS kObjectNameNotFound = Status(0xc0000034);
inline constexpr NTSTATUS kEntryPointNotFound = Status(0xc0000139);
inline constexpr NTSTATUS kKeyDeleted = Status(0xc000017c);

// Calls an entry of the table of native functions, which may be null.
template <class Function, class... Arguments>
NTSTATUS Call(Function* function, Arguments... arguments) {
    return function == nullptr ? kEntryPointNotFound : function(arguments...);
}

}  // namespace nt
