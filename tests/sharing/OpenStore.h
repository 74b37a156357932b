// A store in few words, what it holds as its users see it, and as its bytes tell.
#pragma once

#include <map>
#include <set>

#include "tests/support/Store.h"

namespace sharing {

using support::Bytes;
using support::ReadAll;
using support::container::Key;
using support::container::Value;
using Text = platform::WString;

Text Wide(const std::string& ascii);

// By the path of a key, which is made if need be; nothing here fails a test.
class Store : public support::Store {
  public:
    explicit Store(const std::string& path) : support::Store(path) {}

    FBR_STATUS Set(const std::string& key, const std::string& name, const Bytes& data);
    FBR_STATUS Get(const std::string& key, const std::string& name, Bytes* data);
    FBR_STATUS Get(FBR_KEY key, const std::string& name, Bytes* data);
};

// ---- The file ----

struct Findings {
    FBR_STATUS status = FSSTATUS_FAILED;
    std::map<uint32_t, uint32_t> codes;  // without those of progress
    std::set<uint32_t> bad, lost;        // the pages that codes 8 and 9 told of
    std::string Line() const;
    bool Sound() const { return status == FSSTATUS_SUCCESS && codes.empty(); }
    // Sound but for pages that are in use and that nothing refers to; what they themselves refer to
    // need not refer back.
    bool OnlyLostPages() const;
};
Findings CheckFile(const std::string& path);

// Sound to the check and to an independent reader: no id twice, no mark of damage.
void ExpectSound(const std::string& path);
// The same, but for lost pages.
void ExpectOnlyLostPages(const std::string& path);

}  // namespace sharing
