// SPDX-License-Identifier: MIT
// Roles that need the system's own means: other users, strangers, disks that are full.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "tests/faults/Registry.h"
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

// From here on a file that grows beyond `bytes` is a disk that is full.
void LimitFiles(uint64_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes == 0 ? limit.rlim_max : bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

// Does steps until `failures` of them fail, each of which must leave the content before it.
void StepUntilFull(Store* store, uint32_t seed, int failures, Key* content, Tally* tally) {
    while (failures > 0 && tally->Good()) {
        faults::Steps steps(++seed, *content);
        const faults::Step step = steps.Next();
        if (Apply(step, store) == FSSTATUS_SUCCESS) {
            *content = steps.Content();
            ++tally->done;
            continue;
        }
        --failures;
        Key found;
        if (!tally->Went(ReadAll(store->handle, &found), "walk after a failure")) return;
        const std::string wrong = faults::JudgeCut(*content, step, found);
        if (!wrong.empty()) tally->Wrong("after a failure: " + wrong);
        if (found == steps.Content() && found != *content) tally->Wrong("a failure was done");
        *content = found;
    }
}

// STORE SEED: works on a disk that becomes full.
const Role kFill("fill", [](const Words& words, Tally* tally) {
    Key content, found;
    {
        Store store(words[0]);
        if (!tally->Went(store.Lock(), "lock")) return;
        if (!tally->Went(ReadAll(store.handle, &content), "walk")) return;
        LimitFiles(std::filesystem::file_size(words[0]) + 20000);
        StepUntilFull(&store, static_cast<uint32_t>(std::stoul(words[1])), 25, &content, tally);
        tally->Went(store.Unlock(), "release");
        tally->Went(ReadAll(store.handle, &found), "walk without a lock");
        if (!(found == content)) tally->Wrong("without a lock another content is read");
        tally->Went(store.Close(), "close");
    }
    LimitFiles(0);
    Store again(words[0]);
    tally->Went(ReadAll(again.handle, &found), "walk after all");
    if (!(found == content)) tally->Wrong("the file holds another content");
});

// STORE READY GO: a change fails; then, with the lock given up, it reads and closes.
const Role kFailAndClose("fail-and-close", [](const Words& words, Tally* tally) {
    Store store(words[0]);
    Key content;
    if (!tally->Went(store.Lock(), "lock") || !tally->Went(ReadAll(store.handle, &content), "walk"))
        return;
    LimitFiles(std::filesystem::file_size(words[0]) + 4000);
    StepUntilFull(&store, 7, 1, &content, tally);
    LimitFiles(0);
    tally->Went(store.Unlock(), "release");
    std::ofstream(words[1]) << "ready";
    if (!WaitForFile(words[2])) return tally->Wrong("nobody wrote");
    tally->Did(ReadAll(store.handle, &content), "walk without a lock");
    tally->Went(store.Close(), "close");
});

}  // namespace
}  // namespace sharing
