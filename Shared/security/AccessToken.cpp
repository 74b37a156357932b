// SPDX-License-Identifier: MIT
#include "Shared/security/AccessToken.h"

#include <sddl.h>

#include "Shared/services/ServicesCollection.h"

namespace w32utils {

bool CSid::Assign(PSID sid) {
    bytes_.clear();
    if (sid == nullptr || !::IsValidSid(sid)) return false;
    const auto* first = static_cast<const BYTE*>(sid);
    bytes_.assign(first, first + ::GetLengthSid(sid));
    return true;
}

PSID CSid::Get() const {
    return bytes_.empty() ? nullptr : const_cast<BYTE*>(bytes_.data());
}

std::wstring CSid::ToString() const {
    LPWSTR text = nullptr;
    if (bytes_.empty() || !::ConvertSidToStringSidW(Get(), &text)) return {};
    std::wstring result(text);
    ::LocalFree(text);
    return result;
}

CAccessToken& CAccessToken::operator=(CAccessToken&& other) noexcept {
    if (this != &other) Attach(other.Detach());
    return *this;
}

void CAccessToken::Attach(HANDLE token) {
    Close();
    if (IsHandle(token)) handle_ = token;
}

HANDLE CAccessToken::Detach() noexcept {
    HANDLE token = handle_;
    handle_ = nullptr;
    return token;
}

void CAccessToken::Close() noexcept {
    if (handle_ == nullptr) return;
    const DWORD error = ::GetLastError();
    ::CloseHandle(Detach());
    ::SetLastError(error);
}

bool CAccessToken::OpenThreadToken(DWORD access) {
    Close();
    return ::OpenThreadToken(::GetCurrentThread(), access, TRUE, &handle_) != FALSE;
}

bool CAccessToken::OpenProcessToken(DWORD access) {
    Close();
    const auto process = Services::ServicesCollection::Instance()->Process();
    return process->OpenProcessToken(::GetCurrentProcess(), access, &handle_) != FALSE;
}

bool CAccessToken::GetUser(CSid& sid) const {
    sid.Clear();
    TokenInformation information;
    return information.Query(handle_, TokenUser) &&
           sid.Assign(information.As<TOKEN_USER>().User.Sid);
}

bool CAccessToken::GetPrimaryGroup(CSid& sid) const {
    sid.Clear();
    TokenInformation information;
    return information.Query(handle_, TokenPrimaryGroup) &&
           sid.Assign(information.As<TOKEN_PRIMARY_GROUP>().PrimaryGroup);
}

bool TokenInformation::Query(HANDLE token, TOKEN_INFORMATION_CLASS kind) {
    DWORD bytes = 0;
    if (::GetTokenInformation(token, kind, nullptr, 0, &bytes) ||
        ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return false;
    }
    large_.clear();
    if (bytes > kInlineBytes) large_.resize(bytes);
    void* room = large_.empty() ? inline_ : large_.data();
    return ::GetTokenInformation(token, kind, room, bytes, &bytes) != FALSE;
}

}  // namespace w32utils
