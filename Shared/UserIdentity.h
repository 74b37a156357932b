// SPDX-License-Identifier: MIT
// Who a token stands for: user, primary group and session.
#pragma once

#include <string>

#include "Shared/security/AccessToken.h"

class IUserIdentity {
  public:
    virtual ~IUserIdentity() = default;
    // The user's SID as "S-1-...", empty when it could not be read.
    virtual std::wstring GetUserSid() const = 0;
    // True for the account of the system itself.
    virtual bool IsSystem() const = 0;
    virtual DWORD GetSessionId() const = 0;
};

class CUserIdentity : public IUserIdentity {
  public:
    // Session numbers that mean the session of the current process.
    static constexpr DWORD kCurrentSession = static_cast<DWORD>(-1);
    static constexpr DWORD kCurrentSessionToo = static_cast<DWORD>(-2);

    // As Attach.
    CUserIdentity(DWORD session, HANDLE token);
    ~CUserIdentity() override;

    // Takes on the identity of `token`, which is owned and closed by this object from then on.
    // With no token (null or -1) it is the calling thread's or, when the thread has none, the
    // process's. What cannot be read is logged and stays empty.
    void Attach(DWORD session, HANDLE token);

    std::wstring GetUserSid() const override { return user_.ToString(); }
    bool IsSystem() const override { return GetUserSid() == L"S-1-5-18"; }
    DWORD GetSessionId() const override { return session_; }
    const w32utils::CSid& PrimaryGroup() const { return group_; }
    // The token held, null when there is none; owned by this object.
    HANDLE Token() const { return token_.Get(); }

  private:
    void HoldCallersToken();

    DWORD session_ = 0;
    w32utils::CSid user_;
    w32utils::CSid group_;
    w32utils::CAccessToken token_;
};
