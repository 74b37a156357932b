#include "tools/store/Store.h"

#include <fmt/format.h>

#include "FS_Library_DLL/IFSInterface.h"
#include "tools/format/Text.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

constexpr WChar kRootName[] = {'\\', 0};
constexpr uint32_t kLockForWriting = 1;
constexpr uint32_t kLockForReading = 3;
// What a server opens a container by.
constexpr auto kMethodRemoteContainer = static_cast<FBR_METHOD>(4);
constexpr size_t kFirstBuffer = 1024;  // holds the data of most values

// Why a store of that method cannot be opened here.
std::string MissingMethod(FBR_METHOD method) {
    switch (method) {
        case FS_VR_METHOD_NATIVE:
            return "; the live registry is a part of Windows, and this system has none";
        case FS_VR_METHOD_HIVE:
            return "; only Windows can mount a hive: open the file with --method offline";
        case FS_VR_METHOD_VARNHOLD_TARN:
            return "; the method is reserved";
        default:
            return "";
    }
}

// What a bare status would leave a person to guess.
std::string Advice(FBR_STATUS status, FBR_METHOD method) {
    switch (status) {
        case FSSTATUS_NOT_IMPLEMENTED:
            return MissingMethod(method);
        case FSSTATUS_LOCK_FAILED:
            return "; another process holds the store: try again when it ends";
        case FSSTATUS_FILE_CORRUPT:
            return "; the file is damaged or is no store of this kind";
        case FSSTATUS_VERSION_MISMATCH:
            return "; the store was made by another version";
        case FSSTATUS_DIR_NOT_EMPTY:
            return "; it has subkeys";
        default:
            return "";
    }
}

[[noreturn]] void Throw(const std::string& what, FBR_STATUS status, FBR_METHOD method) {
    throw StoreError(fmt::format("{}: {}{}", what, StatusText(status), Advice(status, method)),
                     status);
}

std::vector<std::string_view> Tokens(std::string_view path) {
    std::vector<std::string_view> tokens;
    while (!path.empty()) {
        const size_t end = std::min(path.find('|'), path.size());
        if (end != 0) tokens.push_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return tokens;
}

std::filesystem::path Utf8Path(std::string_view text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
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
    return Utf8Path(file);
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
    const std::string what = fmt::format("cannot open store {}", name_.path);
    if (ifMissing == IfMissing::kFail && !IsThere()) {
        Throw(what, FSSTATUS_NOT_FOUND, name_.method);
    }
    WString path;
    if (!FromStrictUtf8(name_.path, path)) Throw(what, FSSTATUS_INVALID_NAME, name_.method);
    const FBR_STATUS status = FBR_InitialiseEx(path.c_str(), &handle_, name_.method);
    if (status != FSSTATUS_SUCCESS) Throw(what, status, name_.method);
}

// A live key that is opened comes into being, but for one that is asked for by its path alone.
bool Store::IsThere() const {
    std::error_code error;
    if (const auto file = FileOf(name_)) return std::filesystem::exists(*file, error);
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
    if (handle_ != nullptr) FBR_DeInitialiseEx(handle_);
}

void Store::Close() {
    const FBR_STORE handle = std::exchange(handle_, nullptr);
    const FBR_STATUS status = FBR_DeInitialiseEx(handle);
    if (status != FSSTATUS_SUCCESS) {
        Throw(fmt::format("cannot close store {}", name_.path), status, name_.method);
    }
}

Key Store::OpenKey(WStringView path) const {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_OpenDirEx(0, RootedPath(path).c_str(), &key, handle_);
    if (status != FSSTATUS_SUCCESS) {
        Throw(fmt::format("cannot open key {} in {}", ShowKey(path), Name()), status, name_.method);
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
    const FBR_STATUS status =
        FBR_CreateDirEx(0, RootedPath(path).c_str(), FSCREATEOPTIONS_NONE, &key, handle_);
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_ALREADY_EXISTS) {
        Throw(fmt::format("cannot make key {} in {}", ShowKey(path), Name()), status, name_.method);
    }
    return Key(*this, WString(path), key);
}

bool Store::DeleteTree(WStringView path) const {
    if (!HasKey(path)) return false;
    const FBR_STATUS status = FBR_DeleteDirNamedEx(RootedPath(path).c_str(), handle_);
    if (status != FSSTATUS_SUCCESS) {
        Throw(fmt::format("cannot remove key {} in {}", ShowKey(path), Name()), status,
              name_.method);
    }
    return true;
}

bool Store::KeepsUnnamedApart() const {
    const bool container = IsRemote(name_) ? name_.method == kMethodRemoteContainer
                                           : name_.method == FS_VR_METHOD_TARN;
    return !container;
}

WriteLock::WriteLock(const Store& store) : StoreLock(store, kLockForWriting) {}
ReadLock::ReadLock(const Store& store) : StoreLock(store, kLockForReading) {}

StoreLock::StoreLock(const Store& store, uint32_t type) : store_(store), type_(type) {
    const FBR_STATUS status = FBR_GetLockEx(type_, store.Handle());
    if (status != FSSTATUS_SUCCESS) {
        Throw(fmt::format("cannot lock store {}", store.Name()), status, FS_VR_METHOD_TARN);
    }
}

StoreLock::~StoreLock() {
    FBR_ReleaseLockEx(type_, store_.Handle());
}

Key& Key::operator=(Key&& other) noexcept {
    if (this != &other) {
        Close();
        store_ = other.store_;
        path_ = std::move(other.path_);
        handle_ = std::exchange(other.handle_, 0);
    }
    return *this;
}

void Key::Close() noexcept {
    if (handle_ != 0) FBR_CloseDirEx(std::exchange(handle_, 0), store_->Handle());
}

WString Key::Below(WStringView name) const {
    WString path = path_;
    if (!path.empty()) path += '\\';
    return path += name;
}

std::string Key::ShowValue(WStringView name) const {
    return fmt::format("value \"{}\" of key {} in {}", Printable(name), ShowKey(path_),
                       store_->Name());
}

void Key::Fail(const std::string& what, FBR_STATUS status) const {
    Throw(what, status, FS_VR_METHOD_TARN);
}

Key Key::OpenSubkey(WStringView name) const {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_OpenDirEx(handle_, WString(name).c_str(), &key, store_->Handle());
    if (status != FSSTATUS_SUCCESS) {
        Fail(fmt::format("cannot open key {} in {}", ShowKey(Below(name)), store_->Name()), status);
    }
    return Key(*store_, Below(name), key);
}

Key Key::CreateSubkey(WStringView name) const {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_CreateDirEx(handle_, WString(name).c_str(), FSCREATEOPTIONS_NONE,
                                              &key, store_->Handle());
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_ALREADY_EXISTS) {
        Fail(fmt::format("cannot make key {} in {}", ShowKey(Below(name)), store_->Name()), status);
    }
    return Key(*store_, Below(name), key);
}

std::vector<WString> Key::SubkeyNames() const {
    std::vector<WString> names;
    const FBR_STATUS status = FBR_EnumerateAllKeys(handle_, names, store_->Handle());
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_NO_MORE_ENTRIES) {
        Fail(fmt::format("cannot list the subkeys of {} in {}", ShowKey(path_), store_->Name()),
             status);
    }
    return names;
}

std::vector<WString> Key::ValueNames() const {
    std::vector<WString> names;
    const FBR_STATUS status = FBR_EnumerateAllValues(handle_, names, store_->Handle());
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_NO_MORE_ENTRIES) {
        Fail(fmt::format("cannot list the values of {} in {}", ShowKey(path_), store_->Name()),
             status);
    }
    if (!store_->KeepsUnnamedApart()) {
        for (WString& name : names) {
            if (platform::CompareFolded(name, WTEXT("(Default)")) == 0) name.clear();
        }
    }
    return names;
}

bool Key::HasSubkeys() const {
    FBR_WCHAR* name = nullptr;
    const FBR_STATUS status = FBR_EnumIntDirEx(handle_, 0, &name, store_->Handle());
    FBR_Release(name);
    return status == FSSTATUS_SUCCESS;
}

// Values are asked for at the store itself, for the exported functions call the unnamed value
// "(Default)" before the store sees the name, and most stores take that for a name like any other.
//
// One call does for a small value. A store may fill a short buffer and say nothing of the rest,
// so data that fills the buffer is asked for again by its size.
Value Key::Get(const WString& name) const {
    Value value;
    value.data.resize(kFirstBuffer);
    uint64_t size = 0;
    FBR_STATUS status = store_->Handle()->FBR_QueryValue(handle_, name.c_str(), value.data.data(),
                                                         value.data.size(), &size, &value.type);
    const bool whole = status == FSSTATUS_SUCCESS && size < value.data.size();
    if (!whole && (status == FSSTATUS_SUCCESS || status == FSSTATUS_BUFFER_OVERFLOW)) {
        status =
            store_->Handle()->FBR_QueryValue(handle_, name.c_str(), nullptr, 0, &size, &value.type);
        if (status == FSSTATUS_BUFFER_OVERFLOW) {
            value.data.resize(size);
            status = store_->Handle()->FBR_QueryValue(handle_, name.c_str(), value.data.data(),
                                                      value.data.size(), &size, &value.type);
        }
    }
    if (status != FSSTATUS_SUCCESS) Fail("cannot read " + ShowValue(name), status);
    value.data.resize(std::min<uint64_t>(size, value.data.size()));
    return value;
}

void Key::Set(const WString& name, uint32_t type, const Bytes& data) const {
    const FBR_STATUS status =
        store_->Handle()->FBR_SetValue(handle_, name.c_str(), type, data.data(), data.size());
    if (status != FSSTATUS_SUCCESS) Fail("cannot set " + ShowValue(name), status);
}

bool Key::DeleteValue(const WString& name) const {
    const FBR_STATUS status = FBR_DeleteValue(handle_, name.c_str(), store_->Handle());
    if (status == FSSTATUS_NOT_FOUND) return false;
    if (status != FSSTATUS_SUCCESS) Fail("cannot remove " + ShowValue(name), status);
    return true;
}

void Key::Delete() const {
    const FBR_STATUS status = FBR_DeleteDirEx(handle_, store_->Handle());
    if (status != FSSTATUS_SUCCESS) {
        Fail(fmt::format("cannot remove key {} in {}", ShowKey(path_), store_->Name()), status);
    }
}

void Key::Rename(const WString& name) const {
    const FBR_STATUS status = FBR_RenameDirEx(handle_, name.c_str(), store_->Handle());
    if (status != FSSTATUS_SUCCESS) {
        Fail(fmt::format("cannot rename key {} to {} in {}", ShowKey(path_), Printable(name),
                         store_->Name()),
             status);
    }
}

}  // namespace fbr
