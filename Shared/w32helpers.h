// SPDX-License-Identifier: MIT
// The session of a process and the privileges of this process.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace w32utils {

inline constexpr DWORD kNoSession = static_cast<DWORD>(-1);

// The session number of a process, kNoSession when it cannot be found out. `token` is used when
// the process may not be asked; with none (null) the process's or the calling thread's own is
// opened for it.
DWORD SessionId(DWORD process, HANDLE token);
// The second way of SessionId: by the token alone.
DWORD SessionIdByToken(DWORD process, HANDLE token);
// The session number that a token carries, kNoSession when it cannot be read.
DWORD SessionIdFromToken(HANDLE token);

// A scope object: turns a privilege of the process on (or off) and at its end puts back the
// state that it found. The state belongs to the whole process: two scopes of one privilege on two
// threads can take it away from each other.
class ProcessPrivilege {
  public:
    // Gets each privilege that the process's token holds; false ends the walk.
    using Visitor = std::function<bool(const LUID_AND_ATTRIBUTES&)>;

    explicit ProcessPrivilege(const wchar_t* name, bool wanted = true);
    ~ProcessPrivilege();
    ProcessPrivilege(const ProcessPrivilege&) = delete;
    ProcessPrivilege& operator=(const ProcessPrivilege&) = delete;

    // 0 when the privilege is in the wanted state, else the Win32 error; 1300 for a privilege
    // that the process does not hold.
    DWORD Error() const { return error_; }

    // 1 when the process holds the privilege and it is on, else 0.
    static BOOL IsProcessPrivilegeEnabled(const wchar_t* name);
    // Walks the privileges of the process. 0 or a Win32 error.
    static DWORD GetProcessPrivileges(const Visitor& visitor);

  private:
    static DWORD SetState(const std::wstring& name, bool on);

    std::wstring name_;
    bool wanted_;
    bool restore_ = false;
    DWORD error_ = 0;
};

}  // namespace w32utils
