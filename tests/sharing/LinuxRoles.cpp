// SPDX-License-Identifier: MIT
// Roles that need the system's own means: other users, and strangers.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/sharing/Content.h"

namespace sharing {
namespace {

// USER ROLE ...: plays a role as another user.
const support::ChildRole kAs("as", [](const Words& arguments) {
    const auto user = static_cast<uid_t>(std::stoul(arguments[0]));
    if (setgid(user) != 0 || setuid(user) != 0) return 2;
    return support::ChildRole::Play(Words(arguments.begin() + 1, arguments.end()));
});

// READY FILE: keeps what locks it can on a file that it may only read.
const Role kLockForReading("lock-for-reading", [](const Words& words, Tally*) {
    const int file = open(words[1].c_str(), O_RDONLY | O_CLOEXEC);
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    fcntl(file, F_OFD_SETLK, &lock);
    flock(file, LOCK_EX | LOCK_NB);
    std::ofstream(words[0]) << "ready";
    for (;;) Pause(1000);
});

// STORE READY GO: keeps a lock of type 3 while another user changes the store, which it is told.
const Role kKeepReadLock("keep-read-lock", [](const Words& words, Tally* tally) {
    Store store(words[0]);
    Key before, after;
    if (!tally->Went(store.Lock(3), "lock") || !tally->Went(ReadAll(store.handle, &before), "walk"))
        return;
    std::ofstream(words[1]) << "ready";
    if (!WaitForFile(words[2])) return tally->Wrong("nobody wrote");
    if (ReadAll(store.handle, &after) != FSSTATUS_LOCK_FAILED)
        tally->Wrong("a lock of type 3 that did not hold does not tell");
    tally->Went(store.Unlock(), "release");
    tally->Went(store.Lock(3), "lock again");
    tally->Did(ReadAll(store.handle, &after), "walk again");
    if (before == after) tally->Wrong("the new content is not seen");
});

}  // namespace
}  // namespace sharing
