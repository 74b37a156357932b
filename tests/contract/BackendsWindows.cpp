// SPDX-License-Identifier: MIT
#include <windows.h>

#include <atomic>
#include <deque>

#include "Shared/w32helpers.h"
#include "tests/contract/FilePlaces.h"
#include "tests/hive/HiveFixture.h"

namespace contract {

namespace {

// A name that no other place of this or another process has.
std::wstring UniqueName() {
    static std::atomic<int> counter{0};
    return L"ZrFsContract-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(++counter);
}

// Entries of the table of native functions with something else in them.
class TakenFunctions {
  public:
    TakenFunctions() = default;
    TakenFunctions(const TakenFunctions&) = delete;
    TakenFunctions& operator=(const TakenFunctions&) = delete;
    ~TakenFunctions() { GiveBack(); }
    void Take(const std::vector<std::string>& words) {
        GiveBack();
        answers_.clear();
        for (const std::string& word : words)
            if (word[0] != 'Z' && word[0] != 'R')
                answers_.push_back(static_cast<NTSTATUS>(std::stoul(word, nullptr, 16)));
        const auto other =
            reinterpret_cast<FARPROC>(answers_.empty() ? nullptr : reinterpret_cast<void*>(Answer));
        for (size_t i = 0; i + answers_.size() < words.size(); ++i) {
            const FARPROC own =
                ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), words[i].c_str());
            auto* entry = reinterpret_cast<FARPROC*>(GetNtDllFunctions());
            while (*entry != own) ++entry;
            taken_.emplace_back(entry, std::exchange(*entry, other));
        }
    }

  private:
    static void GiveBack() {
        for (const auto& [entry, own] : taken_) *entry = own;
        taken_.clear();
    }
    // Stands for functions of any arguments: on this system the caller takes them away.
    static NTSTATUS NTAPI Answer() {
        const NTSTATUS answer = answers_.front();
        answers_.pop_front();
        if (answers_.empty()) GiveBack();
        return answer;
    }
    static inline std::vector<std::pair<FARPROC*, FARPROC>> taken_;
    static inline std::deque<NTSTATUS> answers_;
};

// A key of the user's own hive, reached with a handle of the root or by paths alone.
template <bool pathOnly>
class LivePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<LivePlace>(); }
    LivePlace() {
        // The root that is not held comes into being by the user's hand.
        HKEY key = nullptr;
        if (pathOnly && ::RegCreateKeyW(HKEY_CURRENT_USER, name_.c_str(), &key) == 0) {
            ::RegCloseKey(key);
        }
    }
    ~LivePlace() override { Drop(); }
    bool There(const std::string& name) const override {
        HKEY key = nullptr;
        const std::wstring path = name_ + L"\\" + platform::FromUtf8(name);
        if (::RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != 0) return false;
        return ::RegCloseKey(key) == 0;
    }
    void Take(const std::vector<std::string>& words) override { functions_.Take(words); }
    void Drop() final { ::RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str()); }
    WString Path() const override {
        // .Default is there on every system, and every user's hive is beside it.
        return (pathOnly ? L"!REMOTE|" : L"") + UserPath() + L"\\" + name_;
    }
    FBR_METHOD Method() const override { return FS_VR_METHOD_NATIVE; }

  private:
    // The kernel's path of HKEY_CURRENT_USER: the one hive whose name begins a user's SID.
    static std::wstring UserPath() {
        wchar_t name[256];
        for (DWORD i = 0; ::RegEnumKeyW(HKEY_USERS, i, name, 256) == 0; ++i) {
            const std::wstring sid = name;
            if (sid.rfind(L"S-1-5-21-", 0) == 0 && sid.find(L'_') == std::wstring::npos) {
                return L"\\registry\\user\\" + sid;
            }
        }
        return L"\\registry\\user\\.Default";
    }
    std::wstring name_ = UniqueName();
    TakenFunctions functions_;
};

// A hive file that is mounted while the store is open.
class HivePlace : public Place {
  public:
    static std::unique_ptr<Place> Make() { return std::make_unique<HivePlace>(); }
    WString Path() const override { return File().wstring() + L"!" + mount_; }
    FBR_METHOD Method() const override { return FS_VR_METHOD_HIVE; }
    std::filesystem::path File() const override { return folder_ / "user.dat"; }
    void Take(const std::vector<std::string>& words) override { functions_.Take(words); }

    // Wine keeps no list of mounted hives, and writes none of their changes back: both are done
    // here, and do no harm where the system does them too.
    void Opened(FBR_STORE) override { hive::ListHive(mount_, File().wstring()); }
    void Closing(FBR_STORE) override {
        const w32utils::ProcessPrivilege backup(SE_BACKUP_NAME);
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_USERS, mount_.c_str(), 0, KEY_READ, &key) != 0) return;
        ::RegSaveKeyW(key, File().c_str(), nullptr);
        ::RegCloseKey(key);
    }
    ~HivePlace() override { hive::UnlistHive(mount_); }

  private:
    support::TempDir folder_;
    std::wstring mount_ = UniqueName();
    TakenFunctions functions_;
};

}  // namespace

std::string ProcessState() {
    const support::ProcessState now = support::ProcessState::Now();
    return std::to_string(now.handles) + " handles, " + (now.threadHasToken ? "a" : "no") +
           " token, privileges " + now.privileges;
}

namespace {

template <class Near>
Backend BehindHere(Backend backend) {
    backend.leavesNoHandle = false;
    return Behind<Near>(std::move(backend));
}

}  // namespace

const std::vector<Backend>& AllBackends() {
    // What Wine does: a key renamed to a name that sorts right behind its own is listed twice, and
    // the sibling that follows not at all.
    const Backend live{"Live",
                       LivePlace<false>::Make,
                       {"registry", "live", "near", "handleOutlivesKey", "rootIsNamed",
                        "renameInPlaceDuplicates"}};
    Backend byPath = live, hive = live;
    byPath.name = "LiveByPath";
    byPath.makePlace = LivePlace<true>::Make;
    byPath.traits.insert("byPath");
    hive.name = "Hive";
    hive.makePlace = HivePlace::Make;
    hive.traits.erase("live");
    hive.traits.insert({"hive", "rootHasVersion", "volatileEndsWithStore"});
    // Its provider is a library with a log of its own.
    Backend offline = OfflineBackend();
    offline.traits.insert("apart");
    static const std::vector<Backend> all{
        ContainerBackend(),
        GivenEngineBackend(),
        offline,
        live,
        byPath,
        hive,
        BehindHere<FilePlace<FS_VR_METHOD_TARN>>(ContainerBackend()),
        BehindHere<FilePlace<FS_VR_METHOD_OFFLINE>>(OfflineBackend()),
        BehindHere<LivePlace<false>>(live),
        BehindHere<HivePlace>(hive)};
    return all;
}

}  // namespace contract
