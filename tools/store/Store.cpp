// SPDX-License-Identifier: MIT
#include "tools/store/Store.h"

#include <fmt/format.h>

#include "FS_Library_DLL/IFSInterface.h"
#include "FS_Library_DLL/SharedStore.h"
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
    if (tokens.empty() || name.method == FS_VR_METHOD_NATIVE || name.method == FS_VR_METHOD_CLUSTER)
        return std::nullopt;
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

std::string StoreName::Shown() const {
    if (method != FS_VR_METHOD_CLUSTER) return path;
    const size_t bar = path.rfind('|');
    const size_t at = bar == std::string::npos ? 0 : bar + 1;
    return path.substr(0, at) + "etcd://" + path.substr(at);
}

Store::Store(StoreName name, IfMissing ifMissing) : name_(std::move(name)), shown_(name_.Shown()) {
    EndOfRehearsal();
    const std::string what = fmt::format("cannot open store {}", shown_);
    const auto fail = [&](FBR_STATUS status) {
        const std::string why =
            ifMissing == IfMissing::kCreate ? WhyItIsNotMade(name_) : WhyItDoesNotOpen(name_);
        throw StoreError(fmt::format("{}: {}", what, StatusText(status, why)), status);
    };
    Session* const session = name_.isText ? nullptr : Session::Current();
    kept_ = session != nullptr;
    if (kept_ && (open_ = session->Find(name_)) != nullptr) return;
    if (ifMissing == IfMissing::kFail && !IsThere()) fail(FSSTATUS_NOT_FOUND);
    WString path;
    if (!FromStrictUtf8(name_.path, path)) ThrowStatus(what, FSSTATUS_INVALID_NAME, name_.method);
    if (name_.isText) {
        text_ = std::make_unique<TextStore>(name_);
        path = text_->Container();
    }
    NextWaitIsFor(shown_);
    FBR_STATUS status = FSSTATUS_SUCCESS;
    try {
        open_ = std::make_shared<zrfs::Store>(path, name_.method);
    } catch (const std::system_error& error) {
        status = zrfs::status_of(error.code());
    }
    if (text_) text_->Opened();
    if (status == FSSTATUS_FAILED) fail(status);
    if (status != FSSTATUS_SUCCESS)
        throw StoreError(what + ": " + StatusText(status) + WhyItDoesNotOpen(name_, status),
                         status);
    // The system opens a store of any name, and no key in one that is not its own.
    if (name_.method == FS_VR_METHOD_NATIVE &&
        !IsLivePath(std::string(Tokens(name_.path).back()) + "\\key")) {
        open_.reset();
        fail(FSSTATUS_INVALID_NAME);
    }
    if (ifMissing == IfMissing::kFail && Shared() != nullptr && !Shared()->IsMade()) {
        open_.reset();
        throw StoreError(what + ": " + StatusText(FSSTATUS_NOT_FOUND) +
                             WhyItDoesNotOpen(name_, FSSTATUS_NOT_FOUND),
                         FSSTATUS_NOT_FOUND);
    }
    if (kept_) session->Keep(name_, open_);
}

SharedStore* Store::Shared() const {
    return dynamic_cast<SharedStore*>(Handle());
}

// A live key that is opened comes into being, but for one that is asked for by its path alone.
bool Store::IsThere() const {
    std::error_code error;
    if (const auto file = FileOf(name_)) return std::filesystem::exists(*file, error) || error;
    const bool live = name_.method == FS_VR_METHOD_NATIVE && Tokens(name_.path).size() == 1;
    if (!live) return true;
    try {
        return zrfs::Store("!REMOTE|" + name_.path, name_.method).find(kRootName).has_value();
    } catch (const std::system_error&) {
        return true;  // opening the store itself will tell why
    }
}

Store::~Store() {
    const auto saving = WhileItCloses(name_);
    open_.reset();
}

std::unique_ptr<UnbrokenGuard> WhileItCloses(const StoreName& name) {
    const bool saves = name.method == FS_VR_METHOD_OFFLINE && FileOf(name);
    return saves ? std::make_unique<UnbrokenGuard>() : nullptr;
}

void Store::ExpectNoText() const {
    if (!IsText()) return;
    const bool folder = KindOf(*FileOf(name_)) == Kind::kExportFolder;
    throw std::runtime_error(fmt::format(
        "cannot change {}: it is {}; fbr {} makes a store of it", Name(), KindInWords(name_),
        folder ? "copy " + Name() + " --to STORE" : "import STORE " + Name()));
}

void Store::Close() {
    const auto open = std::exchange(open_, nullptr);
    const auto saving = WhileItCloses(name_);
    if (!kept_) Told([&] { return "cannot close store " + shown_; }, [&] { open->close(); });
}

void Store::ThrowFailed(const std::string& what, FBR_STATUS status) const {
    if (IsText()) ThrowStatus(what, status, name_.method);
    ThrowFailedAt(name_, what, status);
}

void ThrowFailedAt(const StoreName& name, const std::string& what, FBR_STATUS status) {
    if (status != FSSTATUS_FAILED) ThrowStatus(what, status, name.method);
    throw StoreError(fmt::format("{}: {}", what, StatusText(status, WhyItFailed(name))), status);
}

Key Store::OpenKey(WStringView path) const {
    const auto what = [&] {
        return fmt::format("cannot open key {} in {}", ShowKey(path), Name());
    };
    return Key(*this, WString(path), Told(what, [&] { return open_->open(RootedPath(path)); }));
}

bool Store::HasKey(WStringView path) const {
    const auto what = [&] {
        return fmt::format("cannot look for key {} in {}", ShowKey(path), Name());
    };
    try {
        return open_->find(RootedPath(path)).has_value();
    } catch (const std::system_error& error) {
        const FBR_STATUS status = zrfs::status_of(error.code());
        if (status != FSSTATUS_INVALID_NAME) ThrowFailed(what(), status);
        return false;  // nor can there be one
    }
}

Key Store::CreateKey(WStringView path) const {
    const auto what = [&] {
        return fmt::format("cannot make key {} in {}", ShowKey(path), Name());
    };
    return Key(*this, WString(path), Told(what, [&] { return open_->create(RootedPath(path)); }));
}

bool Store::DeleteTree(WStringView path) const {
    if (!HasKey(path)) return false;
    const auto what = [&] {
        return fmt::format("cannot remove key {} in {}", ShowKey(path), Name());
    };
    // The root, too, which remove_tree refuses.
    const FBR_STATUS status = FBR_DeleteDirNamedEx(RootedPath(path).c_str(), Handle());
    if (status != FSSTATUS_SUCCESS) ThrowFailed(what(), status);
    return true;
}

uint64_t Store::BytesHeld() const {
    std::error_code error;
    if (IsText()) return UINT64_MAX;
    const auto file = FileOf(name_);
    const uint64_t size = file ? std::filesystem::file_size(*file, error) : UINT64_MAX;
    return error ? UINT64_MAX : size;
}

bool KeepsUnnamedApart(const StoreName& name) {
    const bool container = IsRemote(name) ? name.method == FS_VR_METHOD_REMOTE_CONTAINER
                                          : name.method == FS_VR_METHOD_TARN;
    return !container && name.method != FS_VR_METHOD_CLUSTER;
}

WriteLock::WriteLock(const Store& store) : StoreLock(store, FBR_LOCK_WRITE) {}
ReadLock::ReadLock(const Store& store) : StoreLock(store, FBR_LOCK_READ) {}

// What is open in the place of text nobody else knows, and it may have no name any more. A session
// keeps one lock for all that it does; where it may only read, it sees one state a command.
StoreLock::StoreLock(const Store& store, FBR_LOCK_TYPE type) {
    if (store.IsText() && type == FBR_LOCK_READ) return;
    store.ExpectNoText();
    NextWaitIsFor(store.Name());
    SharedStore* const shared = store.Shared();
    const auto show = [&] {
        snapshot_ = shared;
        snapshot_->Snapshot(true);
    };
    const bool canShow = type == FBR_LOCK_READ && shared != nullptr;
    try {
        if (canShow && !store.IsKept())
            show();
        else if (store.IsKept())
            Session::Current()->Lock(store.Open(), type);
        else
            lock_.emplace(store.Open(), type);
    } catch (const std::system_error& error) {
        StopIfInterrupted();
        const FBR_STATUS status = zrfs::status_of(error.code());
        const bool busy = status == FSSTATUS_LOCK_FAILED;
        if (canShow && !busy) {
            show();
            return;
        }
        const std::string what = "cannot lock store " + store.Name();
        if (shared != nullptr && !busy) store.ThrowFailed(what, status);
        throw StoreError(
            fmt::format("{}: {}{}{}", what, StatusText(status), Advice(status, FS_VR_METHOD_TARN),
                        busy ? ", or wait longer with --wait" : ""),
            status);
    }
}

StoreLock::~StoreLock() {
    if (snapshot_ != nullptr) snapshot_->Snapshot(false);
}

}  // namespace fbr
