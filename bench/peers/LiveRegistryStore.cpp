// SPDX-License-Identifier: MIT
#include <windows.h>

#include "bench/peers/Store.h"

namespace bench {
namespace {

constexpr const wchar_t* kRoot = L"Software\\ZrFsBench";

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS)
        throw std::runtime_error(std::string(what) + " gave error " + std::to_string(status));
}

HKEY Key(Store::Handle handle) {
    return reinterpret_cast<HKEY>(static_cast<intptr_t>(handle));
}

// A key of the system's own registry, by the system's own calls. To open the store is to open that
// key; what is in it stays in the memory of the server that keeps the registry.
class LiveRegistryStore : public Store {
  public:
    LiveRegistryStore() { RegDeleteTreeW(HKEY_CURRENT_USER, kRoot); }
    ~LiveRegistryStore() override {
        RegCloseKey(root_);
        RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
    }

    void Open() override {
        Check(RegCreateKeyExW(HKEY_CURRENT_USER, kRoot, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &root_, nullptr),
              "RegCreateKeyEx");
    }
    void Close() override { RegCloseKey(root_); }

    Handle MakeKey(const KeyData& key) override {
        HKEY made = nullptr;
        Check(RegCreateKeyExW(root_, key.path.c_str() + 1, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &made, nullptr),
              "RegCreateKeyEx");
        return reinterpret_cast<intptr_t>(made);
    }
    Handle OpenKey(const KeyData& key) override {
        HKEY opened = nullptr;
        const LSTATUS status =
            RegOpenKeyExW(root_, key.path.c_str() + 1, 0, KEY_ALL_ACCESS, &opened);
        if (status == ERROR_FILE_NOT_FOUND) return 0;
        Check(status, "RegOpenKeyEx");
        return reinterpret_cast<intptr_t>(opened);
    }
    void CloseKey(Handle handle) override { RegCloseKey(Key(handle)); }
    void DeleteKey(Handle handle, const KeyData& key) override {
        RegCloseKey(Key(handle));
        Check(RegDeleteKeyW(root_, key.path.c_str() + 1), "RegDeleteKey");
    }

    void Set(Handle handle, const ValueData& value) override {
        Check(RegSetValueExW(Key(handle), value.name.c_str(), 0, value.type, value.data.data(),
                             static_cast<DWORD>(value.data.size())),
              "RegSetValueEx");
    }
    Answer Get(Handle handle, const ValueData& value) override {
        Answer answer;
        DWORD size = sizeof buffer_, type = 0;
        Check(RegQueryValueExW(Key(handle), value.name.c_str(), nullptr, &type, buffer_, &size),
              "RegQueryValueEx");
        answer.type = type;
        answer.data = buffer_;
        answer.size = size;
        return answer;
    }
    void Enumerate(Handle handle, Visitor visit, void* context) override {
        for (DWORD i = 0;; ++i) {
            DWORD length = ARRAYSIZE(name_), size = sizeof buffer_, type = 0;
            const LSTATUS status =
                RegEnumValueW(Key(handle), i, name_, &length, nullptr, &type, buffer_, &size);
            if (status == ERROR_NO_MORE_ITEMS) return;
            Check(status, "RegEnumValue");
            Answer answer;
            answer.name = {name_, length};
            answer.type = type;
            answer.data = buffer_;
            answer.size = size;
            visit(context, answer);
        }
    }

  private:
    HKEY root_ = nullptr;
    wchar_t name_[256];
    BYTE buffer_[16384];
};

}  // namespace

std::unique_ptr<Store> MakeLiveRegistry() {
    return std::make_unique<LiveRegistryStore>();
}

std::vector<Maker> PeerMakers() {
    return {{"the live registry", [](const auto&) { return MakeLiveRegistry(); }}};
}

}  // namespace bench
