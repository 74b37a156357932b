// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/hive/HivePrivileges.h"

#include <mutex>
#include <optional>

#include "Shared/w32helpers.h"
#include "W32Utils/UnImpersonator.h"

namespace {

struct Privileges {
    const w32utils::ProcessPrivilege backup{SE_BACKUP_NAME};
    const w32utils::ProcessPrivilege restore{SE_RESTORE_NAME};
    bool Had() const { return backup.Error() == 0 && restore.Error() == 0; }
};

// The privileges are the process's: the first of several threads turns them on and the last one
// turns them off, so that none takes them from another in the middle of its work.
class SharedPrivileges {
  public:
    SharedPrivileges() : shared_(Instance()) {
        const std::lock_guard guard(shared_.lock);
        if (shared_.users++ == 0) shared_.privileges.emplace();
        had_ = shared_.privileges->Had();
    }
    ~SharedPrivileges() {
        const std::lock_guard guard(shared_.lock);
        if (--shared_.users == 0) shared_.privileges.reset();
    }
    SharedPrivileges(const SharedPrivileges&) = delete;
    SharedPrivileges& operator=(const SharedPrivileges&) = delete;
    bool Had() const { return had_; }

  private:
    struct State {
        std::mutex lock;
        int users = 0;
        std::optional<Privileges> privileges;
    };
    static State& Instance() {
        static State& state = *new State;  // never destroyed, for threads outlive exit handlers
        return state;
    }

    State& shared_;
    bool had_ = false;
};

}  // namespace

FBR_STATUS RunWithHivePrivileges(const std::function<FBR_STATUS()>& function) {
    const UnImpersonator asProcess;
    if (asProcess.Error() != 0) return FSSTATUS_ACCESS_DENIED;
    const SharedPrivileges privileges;
    return privileges.Had() ? function() : FSSTATUS_ACCESS_DENIED;
}
