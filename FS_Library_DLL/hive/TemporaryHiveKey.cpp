// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/hive/TemporaryHiveKey.h"

#include <objbase.h>

#include "Shared/Impersonator.h"
#include "Shared/services/ServicesCollection.h"
#include "W32Utils/RegistryUtil.h"
#include "W32Utils/W32Exceptions.h"

namespace {

constexpr wchar_t kVersionValue[] = L"FBRVersion";
constexpr DWORD kVersion = 2;

std::shared_ptr<RegistryInterface> Registry() {
    return Services::ServicesCollection::Instance()->Registry();
}

std::wstring NewName() {
    GUID guid;
    const HRESULT result = ::CoCreateGuid(&guid);
    if (FAILED(result)) {
        throw w32utils::basic_w32_runtime_error(static_cast<uint32_t>(result),
                                                "No name for a temporary key: CoCreateGuid failed");
    }
    wchar_t text[40];
    ::StringFromGUID2(guid, text, ARRAYSIZE(text));
    return text;
}

}  // namespace

TemporaryHiveKey::TemporaryHiveKey(const std::wstring& sid, const CUserIdentity& identity)
    : parent_(sid), name_(NewName()) {
    const Impersonator asUser(identity.Token());
    status_ = Registry()->RegCreateKeyExW(HKEY_USERS, Subkey().c_str(), 0, nullptr, 0,
                                          KEY_ALL_ACCESS, nullptr, &key_, nullptr);
    registry_util::write_dword(HKEY_USERS, Subkey(), kVersionValue, kVersion);
}

TemporaryHiveKey::~TemporaryHiveKey() {
    // The third argument is a registry view. An access mask stands in its place, which has no bit
    // of a view, so that the key goes from the process's own one.
    Registry()->RegDeleteKeyExW(HKEY_USERS, Subkey().c_str(), KEY_ALL_ACCESS, 0);
    if (key_ != nullptr) Registry()->RegCloseKey(key_);
}
