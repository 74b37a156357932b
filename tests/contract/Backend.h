// The kinds of stores that the contract's tests run against, and where they differ by design.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "include/ZrFsLibrary.h"
#include "platform/Text.h"

namespace contract {

using platform::WString;

// Where one store lies, gone with the object. It may be opened and closed any number of times.
class Place {
  public:
    virtual ~Place() = default;
    // The path string and the method for FBR_InitialiseEx.
    virtual WString Path() const = 0;
    virtual FBR_METHOD Method() const = 0;
    // Called after each opening and before each closing, for what the test system does not do by
    // itself.
    virtual void Opened(FBR_STORE) {}
    virtual void Closing(FBR_STORE) {}
};

// What is allowed to differ. docs/backends.md has the same table in words.
struct Differences {
    bool writesNeedLock;       // without a write lock they answer FSSTATUS_LOCK_FAILED
    bool rootHasVersion;       // a new root holds the value "FBRVersion"
    bool emptyNameIsDefault;   // FBR_DeleteValue takes "" for "(Default)", too
    bool shortBufferSucceeds;  // a query into a short buffer is a success that tells its length
    bool handleOutlivesKey;    // a handle of a deleted key is still the caller's to close
    bool
        refusedDeleteTakesValues;  // FBR_DeleteDirEx of a key with subkeys removes its values first
    bool unknownParentIsRoot;      // a closed parent stands for the root
    bool volatileEndsWithStore;    // a volatile key is gone when the store is opened again
    bool keepsSecurity;            // security strings are implemented
    bool listsReplace;             // names gathered take the place of what the vector holds
    uint32_t compactDone;          // what FBR_Compact writes, once it was possible
    bool endHasName;               // past the end an enumeration gives an empty name, not none
    const FBR_WCHAR* rootFullName;  // what FBR_GetFullName_DirEx says of the root
    bool rootIsNamed;               // FBR_GetName_DirEx of the root is not empty
    FBR_STATUS deleteBelowMissing;  // FBR_DeleteDirNamedEx of a key whose parent is missing
    FBR_STATUS volatileCreate;      // what the making of a volatile key answers
    bool renameTripsOverDeleted;    // a rename above a key once renamed and since deleted takes
                                    // effect, and answers FSSTATUS_NOT_FOUND
    bool renameInPlaceDuplicates;   // Wine: a key renamed to a name that sorts right behind its own
                                    // is listed twice, and the sibling that follows not at all
    std::vector<FBR_STATUS> deleteWithSubkeys;  // what FBR_DeleteDirEx may answer then
};

struct Backend {
    // The kind's name in failures.
    friend void PrintTo(const Backend& backend, std::ostream* out) { *out << backend.name; }

    std::string name;
    std::unique_ptr<Place> (*makePlace)();
    Differences differences;
    // Threads of its own may meet at locks of the run-time library, which then open something
    // for good.
    bool leavesNoHandle = true;
};

// What a test must leave as it found it, as text: the number of open handles and, where there are
// such things, the thread's token and the privileges that are on.
std::string ProcessState();

// The kinds that this system has. A new one needs an entry there and nothing else.
const std::vector<Backend>& AllBackends();

}  // namespace contract
