// SPDX-License-Identifier: MIT
// The two small security classes that the identity classes stand on: a copied SID and an owned
// access token.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace w32utils {

// A security identifier by value; empty until one is copied into it.
class CSid {
  public:
    CSid() = default;
    // Copies a SID of the system's. One that is null or not valid leaves this object empty and
    // gives false.
    bool Assign(PSID sid);
    void Clear() { bytes_.clear(); }
    bool IsEmpty() const { return bytes_.empty(); }
    // The SID for platform calls; null when empty. Lives as long as this object is unchanged.
    PSID Get() const;
    // The form "S-1-...", empty when there is no SID.
    std::wstring ToString() const;

  private:
    std::vector<BYTE> bytes_;
};

// An access token that is closed with the object. Not to be copied; moving empties the source.
class CAccessToken {
  public:
    CAccessToken() = default;
    ~CAccessToken() { Close(); }
    CAccessToken(CAccessToken&& other) noexcept : handle_(other.Detach()) {}
    CAccessToken& operator=(CAccessToken&& other) noexcept;

    // True for a handle that can be one: neither null nor -1.
    static bool IsHandle(HANDLE token) { return token != nullptr && token != INVALID_HANDLE_VALUE; }

    // Takes over an open token, closing the one held. One that IsHandle refuses leaves none.
    void Attach(HANDLE token);
    // Gives the token up to the caller, null when there is none.
    HANDLE Detach() noexcept;
    // Leaves the thread's last error as it was.
    void Close() noexcept;
    // The open token, null when there is none; still owned by this object.
    HANDLE Get() const { return handle_; }
    bool IsOpen() const { return handle_ != nullptr; }

    // Open the calling thread's or the process's token in place of the one held. The thread's is
    // asked for as the process itself. False leaves the reason in GetLastError and no token.
    bool OpenThreadToken(DWORD access);
    bool OpenProcessToken(DWORD access);

    // Copy the token's user or primary group. False leaves the reason in GetLastError and `sid`
    // empty.
    bool GetUser(CSid& sid) const;
    bool GetPrimaryGroup(CSid& sid) const;

  private:
    HANDLE handle_ = nullptr;
};

// Room for one answer of GetTokenInformation: small ones lie in the object itself.
class TokenInformation {
  public:
    // Asks `token` for the information of `kind`, first for its size and then for its content.
    // False leaves the reason in GetLastError.
    bool Query(HANDLE token, TOKEN_INFORMATION_CLASS kind);
    template <class T>
    const T& As() const {
        return *reinterpret_cast<const T*>(Data());
    }

  private:
    static constexpr DWORD kInlineBytes = 1024;
    const void* Data() const { return large_.empty() ? inline_ : large_.data(); }

    alignas(16) BYTE inline_[kInlineBytes];
    std::vector<BYTE> large_;
};

}  // namespace w32utils
