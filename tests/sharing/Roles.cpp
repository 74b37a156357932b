// SPDX-License-Identifier: MIT
// The roles of a store's users: each runs in a process of its own, and tallies what it did and what
// it was told that is not true.
#include <atomic>

#include "tests/sharing/Content.h"
#include "tests/support/RunProcess.h"

namespace sharing {
namespace {

// Most roles are told STORE MILLISECONDS NUMBER COMMAND: the number of a writer, or how many of
// them there are; and "anew" where a store is opened for each step.
struct Told {
    explicit Told(const Words& words)
        : store(words[0]),
          end(NowMs() + std::stoll(words[1])),
          number(static_cast<uint32_t>(std::stoul(words[2]))) {}
    bool Runs() const { return NowMs() < end; }

    const std::string store;
    const int64_t end;
    const uint32_t number;
};

// Steps at a store that stays open until the time is over or one says no, or at one opened anew for
// each.
template <class Step>
void Work(const Words& words, Tally* tally, bool reopens, Step step) {
    const Told told(words);
    bool goesOn = true;
    while (goesOn && told.Runs()) {
        Store store(told.store);
        if (!tally->Went(store.status, "open")) continue;
        do goesOn = step(&store, told.number);
        while (!reopens && goesOn && told.Runs());
        if (goesOn) tally->Went(store.Close(), "close");
    }
}

const Role kWrite("write", [](const Words& words, Tally* tally) {
    Work(words, tally, words[3] == "anew",
         [tally](Store* store, uint32_t writer) { return ChangeUnderLock(store, writer, tally); });
});

const Role kRead("read", [](const Words& words, Tally* tally) {
    Reader reader(Told(words).number, tally);
    OpenKeys keys;
    uint32_t steps = 0;
    Work(words, tally, words[3] == "anew", [&](Store* store, uint32_t writers) {
        if (words[3] == "anew" || steps++ == 0) keys = OpenShared(store, writers);
        for (int i = 0; i < 5; ++i) reader.Step(store, keys);
        return true;
    });
});

// Reads while another thread of the store waits for its lock, takes it and gives it up.
const Role kReadBesideWaiting("read-beside-waiting", [](const Words& words, Tally* tally) {
    const Told told(words);
    Store store(told.store);
    if (!tally->Went(store.status, "open")) return;
    std::atomic<bool> ends{false};
    Tally others;
    std::thread waiting([&] {
        while (!ends)
            if (others.Went(store.Lock(3), "lock")) others.Went(store.Unlock(), "release");
    });
    Reader reader(told.number, tally);
    const OpenKeys keys = OpenShared(&store, told.number);
    while (told.Runs()) reader.Step(&store, keys);
    ends = true;
    waiting.join();
    tally->Add(others);
    tally->Went(store.Close(), "close");
});

// Reads all of the store under a lock of type 3.
const Role kExport("export", [](const Words& words, Tally* tally) {
    Work(words, tally, true, [tally](Store* store, uint32_t) {
        if (!tally->Went(store->Lock(3), "lock")) return true;
        Key root;
        if (tally->Did(ReadAll(store->handle, &root), "walk")) JudgeShared(root, tally);
        return tally->Went(store->Unlock(), "release");
    });
});

// Runs the tool; an answer that the store is in use is none of its failures.
bool Tool(const Words& words, Tally* tally) {
    const auto result = support::RunProcess(support::ProgramNamed("fbr"), words);
    const bool busy = result.err.find("(7)") != std::string::npos ||
                      result.err.find("in use") != std::string::npos;
    return tally->Did(result.status == 0           ? FSSTATUS_SUCCESS
                      : busy && result.status == 1 ? FSSTATUS_LOCK_FAILED
                                                   : FSSTATUS_FAILED,
                      "fbr " + words[0] + " ends with " + std::to_string(result.status) + ": " +
                          result.err.substr(0, 200));
}

// Any command of the tool, again and again; what "copy" copies is one state.
const Role kTool("tool", [](const Words& words, Tally* tally) {
    const support::TempDir dir;
    const std::string& command = words[3];
    for (const Told told(words); told.Runs(); Pause(5)) {
        if (command != "copy") {
            Tool({command, told.store}, tally);
            continue;
        }
        const std::string copy = (dir / std::to_string(tally->done + tally->busy)).string();
        if (!Tool({command, told.store, "--to", copy}, tally)) continue;
        Key root;
        tally->Went(ReadAll(Store(copy).handle, &root), "walk");
        JudgeShared(root, tally);
    }
});

// Compacts under the lock.
const Role kCompact("compact", [](const Words& words, Tally* tally) {
    Work(words, tally, false, [tally](Store* store, uint32_t) {
        Pause(20);
        if (!tally->Went(store->Lock(), "lock")) return true;
        uint32_t done = 0;
        tally->Did(FBR_Compact(store->handle, &done), "compact");
        return tally->Went(store->Unlock(), "release");
    });
});

// FOLDER STORE USER COUNT MOMENT: sets that many values from a moment on, with an opening each,
// from a folder.
const Role kSetFrom("set-from", [](const Words& words, Tally* tally) {
    std::filesystem::current_path(words[0]);
    while (NowMs() < std::stoll(words[4])) std::this_thread::yield();
    for (int i = 0; i < std::stoi(words[3]); ++i)
        if (!SetNumbered(words[1], words[2], i, tally)) return;
});

// STORE TYPE READY: holds a lock until it is killed.
const Role kHold("hold", [](const Words& words, Tally* tally) {
    Store store(words[0]);
    if (!tally->Went(store.Lock(static_cast<uint32_t>(std::stoul(words[1]))), "lock")) return;
    std::ofstream(words[2]) << "held";
    for (;;) Pause(1000);
});

}  // namespace
}  // namespace sharing
