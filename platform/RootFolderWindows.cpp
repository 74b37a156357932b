// SPDX-License-Identifier: MIT
#include "platform/RootFolder.h"

#include <windows.h>

#include <new>

#include "platform/HostPath.h"

namespace platform {
namespace {

// The name of what is open, as paths are written; empty on failure.
WString FinalName(HANDLE file) {
    WString name(kLongestPath, 0);
    const DWORD length = GetFinalPathNameByHandleW(file, name.data(), kLongestPath, 0);
    name.resize(length < kLongestPath ? length : 0);
    constexpr WStringView kPrefix = L"\\\\?\\";
    constexpr WStringView kShare = L"\\\\?\\UNC\\";
    if (name.starts_with(kShare)) return L"\\\\" + name.substr(kShare.size());
    return name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
}

// Sharing no deletion keeps the folder, and every one that it stands in, where it is.
HANDLE OpenFolder(const WString& path) {
    return CreateFileW(path.c_str(), FILE_TRAVERSE | FILE_READ_ATTRIBUTES,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

bool IsBelow(const RootFolder& root, const WString& name) {
    const size_t length = root.Path().size();
    return name.size() > length &&
           CompareFolded(WStringView(name).substr(0, length), root.Path()) == 0;
}

}  // namespace

std::unique_ptr<RootFolder> RootFolder::Open(const WString& path) {
    const HANDLE folder = OpenFolder(path);
    if (folder == INVALID_HANDLE_VALUE) return nullptr;
    WString name = FinalName(folder);
    BY_HANDLE_FILE_INFORMATION info{};
    const bool isFolder = GetFileInformationByHandle(folder, &info) &&
                          (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!isFolder || name.empty()) {
        CloseHandle(folder);
        SetLastError(kErrorDirectory);
        return nullptr;
    }
    if (name.back() != L'\\') name.push_back(L'\\');
    return std::unique_ptr<RootFolder>(new RootFolder(folder, std::move(name)));
}

RootFolder::~RootFolder() {
    CloseHandle(folder_);
}

HeldFolder::HeldFolder(const WChar* path) noexcept : root_(CurrentRoot()) {
    if (root_ == nullptr) return;
    status_ = kErrorAccessDenied;
    try {
        const WString whole(path);
        const size_t end = whole.find_last_of(L"\\/");
        // Not below the root by its words: nothing there is so much as looked at.
        if (end == WString::npos || !IsBelow(*root_, whole)) return;
        folder_ = OpenFolder(whole.substr(0, end + 1));
        if (folder_ == INVALID_HANDLE_VALUE) {
            const DWORD error = ::GetLastError();
            status_ = error == ERROR_FILE_NOT_FOUND ? kErrorPathNotFound : error;
            return;
        }
        WString name = FinalName(folder_);
        if (!name.empty() && name.back() != L'\\') name.push_back(L'\\');
        if (CompareFolded(name, root_->Path()) == 0 || IsBelow(*root_, name))
            status_ = kErrorSuccess;
    } catch (const std::bad_alloc&) {
        status_ = kErrorOutOfMemory;
    }
}

HeldFolder::~HeldFolder() {
    if (IsValid(folder_)) CloseHandle(folder_);
}

Error HeldFolder::Verify(Handle file) const noexcept {
    if (root_ == nullptr) return kErrorSuccess;
    try {
        return IsBelow(*root_, FinalName(file)) ? kErrorSuccess : kErrorAccessDenied;
    } catch (const std::bad_alloc&) {
        return kErrorOutOfMemory;
    }
}

}  // namespace platform
