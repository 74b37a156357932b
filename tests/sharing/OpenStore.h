// A store in few words, what it holds as its users see it, and as its bytes tell.
#pragma once

#include <map>
#include <string>

#include "include/ZrFsLibrary.h"
#include "tests/support/ContainerReader.h"

namespace sharing {

using support::Bytes;
using support::container::Key;
using support::container::Value;
using Text = std::basic_string<FBR_WCHAR>;

Text Wide(const std::string& ascii);

// A store that is open, and closed at the end.
class Store {
  public:
    explicit Store(const std::string& path);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    FBR_STATUS Close();
    FBR_STATUS Lock(uint32_t type = 1) { return FBR_GetLockEx(type, handle); }
    FBR_STATUS Unlock() { return FBR_ReleaseLockEx(1, handle); }
    // By the path of a key, which is made if need be.
    FBR_STATUS Set(const std::string& key, const std::string& name, const Bytes& data);
    FBR_STATUS Get(const std::string& key, const std::string& name, Bytes* data);
    FBR_STATUS Get(FBR_KEY key, const std::string& name, Bytes* data);

    FBR_STORE handle = nullptr;
    FBR_STATUS status;
};

// All that a store holds but its version, by enumeration and queries.
FBR_STATUS ReadAll(FBR_STORE store, Key* root);

// ---- The file ----

struct Findings {
    FBR_STATUS status = FSSTATUS_FAILED;
    std::map<uint32_t, uint32_t> codes;  // without those of progress
    std::string Line() const;
    bool Sound() const { return status == FSSTATUS_SUCCESS && codes.empty(); }
    // Sound but for pages that are in use and that nothing refers to.
    bool OnlyLostPages() const;
};
Findings CheckFile(const std::string& path);

// Sound to the check and to an independent reader: no id twice, no mark of damage.
void ExpectSound(const std::string& path);
// The same, but for lost pages.
void ExpectOnlyLostPages(const std::string& path);

}  // namespace sharing
