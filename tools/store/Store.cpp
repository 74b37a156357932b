// SPDX-License-Identifier: MIT
#include "tools/store/Store.h"

#include <fmt/format.h>

#include "tools/console/Interrupt.h"
#include "tools/console/Rehearsal.h"
#include "tools/format/Text.h"
#include "tools/store/Kind.h"
#include "tools/store/Session.h"
#include "tools/store/Status.h"
#include "tools/store/TextStore.h"
#include "tools/store/Waiting.h"

namespace fbr {
namespace {

constexpr WChar kRootName[] = {'\\', 0};
constexpr uint32_t kLockForWriting = 1;
constexpr uint32_t kLockForReading = 3;
// What a server opens a container by.
constexpr auto kMethodRemoteContainer = static_cast<FBR_METHOD>(4);

std::vector<std::string_view> Tokens(std::string_view path) {
    std::vector<std::string_view> tokens;
    while (!path.empty()) {
        const size_t end = std::min(path.find('|'), path.size());
        if (end != 0) tokens.push_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return tokens;
}

bool IsRemote(const StoreName& name) {
    const auto tokens = Tokens(name.path);
    return name.method != FS_VR_METHOD_TARN && tokens.size() > 1 && tokens[0] != "!REMOTE";
}

WString RootedPath(WStringView path) {
    return kRootName + WString(path);
}

}  // namespace

// Follows the path grammar of FBR_InitialiseEx, which stays the judge of what is right.
std::optional<std::filesystem::path> FileOf(const StoreName& name) {
    const auto tokens = Tokens(name.path);
    if (tokens.empty() || name.method == FS_VR_METHOD_NATIVE) return std::nullopt;
    if (IsRemote(name)) return std::nullopt;
    std::string_view file = tokens.size() == 1 ? tokens[0] : tokens[1];
    if (name.method == FS_VR_METHOD_HIVE) file = file.substr(0, file.find('!'));
    return FilePath(file);
}

WString NormalKeyPath(WStringView path) {
    if (!path.empty() && path.front() == '\\') path.remove_prefix(1);
    if (!path.empty() && path.back() == '\\') path.remove_suffix(1);
    return WString(path);
}

std::string ShowKey(WStringView path) {
    return Printable(RootedPath(path));
}

Store::Store(StoreName name, IfMissing ifMissing) : name_(std::move(name)) {
    EndOfRehearsal();
    const std::string what = fmt::format("cannot open store {}", name_.path);
    const auto fail = [&](FBR_STATUS status) {
        const std::string why =
            ifMissing == IfMissing::kCreate ? WhyItIsNotMade(name_) : WhyItDoesNotOpen(name_);
        throw StoreError(fmt::format("{}: {}{}", what, StatusText(status), why), status);
    };
    Session* const session = name_.isText ? nullptr : Session::Current();
    kept_ = session != nullptr;
    if (kept_ && (handle_ = session->Find(name_)) != nullptr) return;
    if (ifMissing == IfMissing::kFail && !IsThere()) fail(FSSTATUS_NOT_FOUND);
    WString path;
    if (!FromStrictUtf8(name_.path, path)) ThrowStatus(what, FSSTATUS_INVALID_NAME, name_.method);
    if (name_.isText) {
        text_ = std::make_unique<TextStore>(name_);
        path = text_->Container();
    }
    NextWaitIsFor(name_.path);
    const FBR_STATUS status = FBR_InitialiseEx(path.c_str(), &handle_, name_.method);
    if (text_) text_->Opened();
    if (status == FSSTATUS_FAILED) fail(status);
    if (status != FSSTATUS_SUCCESS) ThrowStatus(what, status, name_.method);
    if (kept_) session->Keep(name_, handle_);
}

// A live key that is opened comes into being, but for one that is asked for by its path alone.
bool Store::IsThere() const {
    std::error_code error;
    if (const auto file = FileOf(name_)) return std::filesystem::exists(*file, error) || error;
    const bool live = name_.method == FS_VR_METHOD_NATIVE && Tokens(name_.path).size() == 1;
    if (!live) return true;
    WString path;
    FBR_STORE byPath = nullptr;
    if (!FromStrictUtf8("!REMOTE|" + name_.path, path) ||
        FBR_InitialiseEx(path.c_str(), &byPath, name_.method) != FSSTATUS_SUCCESS) {
        return true;  // opening the store itself will tell why
    }
    FBR_KEY root = 0;
    const FBR_STATUS status = FBR_OpenDirEx(0, kRootName, &root, byPath);
    if (status == FSSTATUS_SUCCESS) FBR_CloseDirEx(root, byPath);
    FBR_DeInitialiseEx(byPath);
    return status != FSSTATUS_NOT_FOUND;
}

Store::~Store() {
    if (handle_ != nullptr && !kept_) FBR_DeInitialiseEx(handle_);
}

void Store::ExpectNoText() const {
    if (!IsText()) return;
    throw std::runtime_error(
        fmt::format("cannot change {}: it is {}; fbr import STORE {} makes a store of it", Name(),
                    KindInWords(name_), Name()));
}

void Store::Close() {
    const FBR_STORE handle = std::exchange(handle_, nullptr);
    if (kept_) return;
    const FBR_STATUS status = FBR_DeInitialiseEx(handle);
    if (status != FSSTATUS_SUCCESS) {
        ThrowFailed(fmt::format("cannot close store {}", name_.path), status);
    }
}

void Store::ThrowFailed(const std::string& what, FBR_STATUS status) const {
    if (status != FSSTATUS_FAILED || IsText()) ThrowStatus(what, status, name_.method);
    throw StoreError(fmt::format("{}: {}{}", what, StatusText(status), WhyItFailed(name_)), status);
}

Key Store::OpenKey(WStringView path) const {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_OpenDirEx(0, RootedPath(path).c_str(), &key, handle_);
    if (status != FSSTATUS_SUCCESS) {
        ThrowStatus(fmt::format("cannot open key {} in {}", ShowKey(path), Name()), status,
                    name_.method);
    }
    return Key(*this, WString(path), key);
}

bool Store::HasKey(WStringView path) const {
    FBR_KEY key = 0;
    if (FBR_OpenDirEx(0, RootedPath(path).c_str(), &key, handle_) != FSSTATUS_SUCCESS) return false;
    FBR_CloseDirEx(key, handle_);
    return true;
}

Key Store::CreateKey(WStringView path) const {
    FBR_KEY key = 0;
    const FBR_STATUS status = MakeKey(0, RootedPath(path), &key);
    if (status != FSSTATUS_SUCCESS) {
        ThrowFailed(fmt::format("cannot make key {} in {}", ShowKey(path), Name()), status);
    }
    return Key(*this, WString(path), key);
}

FBR_STATUS Store::MakeKey(FBR_KEY parent, WStringView path, FBR_KEY* key) const {
    const auto make = [&](WStringView part) {
        const FBR_STATUS status =
            FBR_CreateDirEx(parent, WString(part).c_str(), FSCREATEOPTIONS_NONE, key, handle_);
        return status == FSSTATUS_ALREADY_EXISTS ? FSSTATUS_SUCCESS : status;
    };
    const size_t last = path.rfind('\\');
    const bool isFar = last != WStringView::npos && last != 0;
    const bool hasWay = isFar && FBR_OpenDirEx(parent, WString(path.substr(0, last)).c_str(), key,
                                               handle_) == FSSTATUS_SUCCESS;
    if (hasWay) FBR_CloseDirEx(*key, handle_);
    if (!isFar || hasWay) return make(path);
    for (size_t end = path.find('\\', 1); end != WStringView::npos;
         end = path.find('\\', end + 1)) {
        const FBR_STATUS status = make(path.substr(0, end));
        if (status != FSSTATUS_SUCCESS) return status;
        FBR_CloseDirEx(*key, handle_);
    }
    return make(path);
}

bool Store::DeleteTree(WStringView path) const {
    if (!HasKey(path)) return false;
    const FBR_STATUS status = FBR_DeleteDirNamedEx(RootedPath(path).c_str(), handle_);
    if (status != FSSTATUS_SUCCESS) {
        ThrowFailed(fmt::format("cannot remove key {} in {}", ShowKey(path), Name()), status);
    }
    return true;
}

uint64_t Store::BytesHeld() const {
    std::error_code error;
    if (IsText()) return UINT64_MAX;
    const auto file = FileOf(name_);
    const uint64_t size = file ? std::filesystem::file_size(*file, error) : UINT64_MAX;
    return error ? UINT64_MAX : size;
}

bool Store::KeepsUnnamedApart() const {
    const bool container = IsRemote(name_) ? name_.method == kMethodRemoteContainer
                                           : name_.method == FS_VR_METHOD_TARN;
    return !container;
}

WriteLock::WriteLock(const Store& store) : StoreLock(store, kLockForWriting) {}
ReadLock::ReadLock(const Store& store) : StoreLock(store, kLockForReading) {}

// What is open in the place of text nobody else knows, and it may have no name any more.
StoreLock::StoreLock(const Store& store, uint32_t type) : store_(store), type_(type) {
    if (store.IsText() && type == kLockForReading) return;
    store.ExpectNoText();
    NextWaitIsFor(store.Name());
    const FBR_STATUS status = store.IsKept() ? Session::Current()->Lock(store.Handle(), type_)
                                             : FBR_GetLockEx(type_, store.Handle());
    if (status == FSSTATUS_LOCK_FAILED) {
        StopIfInterrupted();
        throw StoreError(
            fmt::format("cannot lock store {}: {}{}, or wait longer with --wait", store.Name(),
                        StatusText(status), Advice(status, FS_VR_METHOD_TARN)),
            status);
    }
    if (status != FSSTATUS_SUCCESS) {
        ThrowStatus(fmt::format("cannot lock store {}", store.Name()), status, FS_VR_METHOD_TARN);
    }
}

StoreLock::~StoreLock() {
    if (!store_.IsText() && !store_.IsKept()) FBR_ReleaseLockEx(type_, store_.Handle());
}

}  // namespace fbr
