// Roles that need the system's own means: other users, strangers, disks that are full.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tests/sharing/Victim.h"

namespace sharing {
namespace {

using support::ChildRole;

// USER ROLE ...: plays a role as another user.
const ChildRole kAs("sharing-as", [](const std::vector<std::string>& arguments) {
    const auto user = static_cast<uid_t>(std::stoul(arguments[0]));
    if (setgid(user) != 0 || setuid(user) != 0) return 2;
    std::vector<std::string> words = {"", "--child"};
    words.insert(words.end(), arguments.begin() + 1, arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    int exitCode = 2;
    support::PlayChildRole(static_cast<int>(argv.size()), argv.data(), &exitCode);
    return exitCode;
});

[[noreturn]] void StayWith(const std::string& ready) {
    std::ofstream(ready) << "ready";
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
}

// Locks all of a file as far as the system lets, for ever.
void LockAllOf(int file, short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    fcntl(file, F_OFD_SETLK, &lock);
    flock(file, LOCK_EX | LOCK_NB);
}

// READY FILE...: makes files that others might want to make, and keeps them locked.
void LayFiles(const Words& words, Tally*) {
    for (size_t i = 1; i < words.size(); ++i)
        LockAllOf(open(words[i].c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666), F_WRLCK);
    StayWith(words[0]);
}
const ChildRole kLayFiles("sharing-lay-files", Role<LayFiles>);

// READY FILE: keeps what locks it can on a file that it may only read.
void LockForReading(const Words& words, Tally*) {
    LockAllOf(open(words[1].c_str(), O_RDONLY | O_CLOEXEC), F_RDLCK);
    StayWith(words[0]);
}
const ChildRole kLockForReading("sharing-lock-for-reading", Role<LockForReading>);

// STORE READY GO: keeps a lock of type 3 while another user changes the store, which it is told.
void KeepReadLock(const Words& words, Tally* tally) {
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
}
const ChildRole kKeepReadLock("sharing-keep-read-lock", Role<KeepReadLock>);

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
        Steps steps(++seed, *content);
        const faults::Step step = steps.Next();
        if (Apply(step, store) == FSSTATUS_SUCCESS) {
            *content = steps.Content();
            ++tally->done;
            continue;
        }
        --failures;
        Key found;
        if (!tally->Went(ReadAll(store->handle, &found), "walk after a failure")) return;
        const std::string wrong = JudgeCut(*content, step, found);
        if (!wrong.empty()) tally->Wrong("after a failure: " + wrong);
        if (found == steps.Content() && found != *content) tally->Wrong("a failure was done");
        *content = found;
    }
}

// STORE SEED: works on a disk that becomes full.
void Fill(const Words& words, Tally* tally) {
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
}
const ChildRole kFill("sharing-fill", Role<Fill>);

// STORE READY GO: a change fails; then, with the lock given up, it reads and closes.
void FailAndClose(const Words& words, Tally* tally) {
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
}
const ChildRole kFailAndClose("sharing-fail-and-close", Role<FailAndClose>);

}  // namespace
}  // namespace sharing
