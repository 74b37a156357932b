// SPDX-License-Identifier: MIT
#include "W32Utils/RegistryUtil.h"

#include <vector>

#include "Shared/services/ServicesCollection.h"

namespace registry_util {

namespace {

std::shared_ptr<RegistryInterface> Registry() {
    return Services::ServicesCollection::Instance()->Registry();
}

// A key handle that is closed with the object.
struct OpenKey {
    HKEY key = nullptr;
    ~OpenKey() { Close(); }
    void Close() {
        if (key != nullptr) Registry()->RegCloseKey(key);
        key = nullptr;
    }
};

DWORD ReadText(HKEY key, const std::wstring& name, std::wstring& text) {
    DWORD type = 0;
    DWORD bytes = 0;
    DWORD error = Registry()->RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &bytes);
    if (error != ERROR_SUCCESS) return error;
    // A simple test on purpose: it lets REG_SZ, REG_EXPAND_SZ, REG_BINARY and REG_MULTI_SZ pass.
    if (type != 0 && (type & 3) == 0) return ERROR_BAD_FORMAT;
    if (bytes < sizeof(wchar_t)) return ERROR_SUCCESS;
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t));
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    error = Registry()->RegQueryValueExW(key, name.c_str(), nullptr, &type,
                                         reinterpret_cast<BYTE*>(buffer.data()), &bytes);
    if (error != ERROR_SUCCESS) return error;
    text.assign(buffer.begin(), buffer.end());
    text.erase(text.find_last_not_of(L'\0') + 1);
    return ERROR_SUCCESS;
}

constexpr REGSAM kSetAccess = KEY_SET_VALUE | KEY_WOW64_64KEY;
constexpr REGSAM kCreateAccess = KEY_WRITE | KEY_WOW64_64KEY;

DWORD Create(HKEY parent, const std::wstring& subkey, HKEY* key) {
    return Registry()->RegCreateKeyExW(parent, subkey.c_str(), 0, nullptr, 0, kCreateAccess,
                                       nullptr, key, nullptr);
}

// For paths longer than one call takes: each part becomes the root of the next.
DWORD CreateByParts(HKEY root, const std::wstring& subkey) {
    OpenKey parent;
    HKEY from = root;
    for (size_t begin = 0; begin < subkey.size();) {
        const size_t end = std::min(subkey.find(L'\\', begin), subkey.size());
        const std::wstring part = subkey.substr(begin, end - begin);
        begin = end + 1;
        if (part.empty()) continue;
        OpenKey next;
        const DWORD error = Create(from, part, &next.key);
        if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) return error;
        std::swap(parent.key, next.key);
        from = parent.key;
    }
    return ERROR_SUCCESS;
}

DWORD CreatePath(HKEY root, const std::wstring& subkey) {
    OpenKey created;
    const DWORD error = Create(root, subkey, &created.key);
    return error == ERROR_FILENAME_EXCED_RANGE ? CreateByParts(root, subkey) : error;
}

DWORD OpenForSet(HKEY root, const std::wstring& subkey, OpenKey& opened) {
    return Registry()->RegOpenKeyExW(root, subkey.c_str(), 0, kSetAccess, &opened.key);
}

}  // namespace

std::wstring read_wstring(const std::wstring& subkey, const std::wstring& name, DWORD* error) {
    std::wstring text;
    OpenKey opened;
    DWORD result = Registry()->RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0,
                                             KEY_READ | KEY_WOW64_64KEY, &opened.key);
    if (result == ERROR_SUCCESS) result = ReadText(opened.key, name, text);
    if (error != nullptr) *error = result;
    return text;
}

DWORD write_dword(HKEY root, const std::wstring& subkey, const std::wstring& name, DWORD value) {
    OpenKey opened;
    DWORD error = OpenForSet(root, subkey, opened);
    if (error == ERROR_FILE_NOT_FOUND) {
        error = CreatePath(root, subkey);
        if (error == ERROR_SUCCESS) error = OpenForSet(root, subkey, opened);
    }
    if (error != ERROR_SUCCESS) return error;
    return Registry()->RegSetValueExW(opened.key, name.c_str(), 0, REG_DWORD,
                                      reinterpret_cast<const BYTE*>(&value), sizeof value);
}

}  // namespace registry_util
