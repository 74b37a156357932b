// The roles of a store's users: each runs in a process of its own for a time, and tallies what it
// did and what it was told that is not true.
#include <atomic>
#include <random>
#include <thread>

#include "tests/sharing/Content.h"
#include "tests/sharing/ToolExport.h"
#include "tests/support/RunProcess.h"

namespace sharing {
namespace {

using support::ChildRole;

// Until the time that the role was given is over.
class Clock {
  public:
    explicit Clock(const std::string& milliseconds) : end_(NowMs() + std::stoll(milliseconds)) {}
    bool Runs() const { return NowMs() < end_; }

  private:
    int64_t end_;
};

void WaitUntil(const std::string& moment) {
    while (NowMs() < std::stoll(moment)) std::this_thread::yield();
}

void Pause(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// STORE MILLISECONDS WRITER: keeps the store open, and takes the lock for each change.
void Write(const Words& words, Tally* tally) {
    Store store(words[0]);
    const uint32_t writer = static_cast<uint32_t>(std::stoul(words[2]));
    for (const Clock clock(words[1]); clock.Runs();) {
        if (!tally->Went(store.Lock(), "lock")) continue;
        const uint32_t sequence = kOwnValues + static_cast<uint32_t>(tally->done);
        if (!tally->Did(ChangeShared(&store, writer, sequence), "change")) return;
        if (!tally->Went(store.Unlock(), "release")) return;
    }
    tally->Went(store.Close(), "close");
}
const ChildRole kWrite("sharing-write", Role<Write>);

// The same, with an opening and a close around each change.
void OpenWrite(const Words& words, Tally* tally) {
    const uint32_t writer = static_cast<uint32_t>(std::stoul(words[2]));
    for (const Clock clock(words[1]); clock.Runs();) {
        Store store(words[0]);
        if (!tally->Went(store.status, "open")) continue;
        if (!tally->Went(store.Lock(), "lock")) continue;
        const uint32_t sequence = kOwnValues + static_cast<uint32_t>(tally->done);
        if (!tally->Did(ChangeShared(&store, writer, sequence), "change")) return;
        if (!tally->Went(store.Unlock(), "release")) return;
        tally->Went(store.Close(), "close");
    }
}
const ChildRole kOpenWrite("sharing-open-write", Role<OpenWrite>);

// Gets without a lock. What is read once may not be older later.
class Reader {
  public:
    Reader(uint32_t writers, Tally* tally) : writers_(writers), tally_(tally) {}

    void Step(Store* store) {
        const uint32_t roll = static_cast<uint32_t>(random_());
        const uint32_t pick = random_() % (writers_ + 1);
        if (pick == writers_) {
            GetOne(store, PairKey(roll % kPairs), roll % 8 < 4 ? "a" : "b");
        } else if (roll % 16 == 0) {
            Names(store, OwnKey(pick));
        } else {
            GetOne(store, OwnKey(pick), OwnName(roll));
        }
    }

  private:
    void GetOne(Store* store, const std::string& key, const std::string& name) {
        Bytes data;
        if (!tally_->Did(store->Get(key, name, &data), "get " + key + " " + name)) return;
        std::string wrong;
        const std::optional<Seal> seal = ReadSeal(data, key, name, &wrong);
        if (!seal) return tally_->Wrong(wrong);
        uint32_t& seen = seen_[key + " " + name];
        if (key.starts_with("\\writer") && seal->sequence < seen)
            tally_->Wrong(key + " " + name + " is older than it was");
        seen = seal->sequence;
    }

    void Names(Store* store, const std::string& path) {
        FBR_KEY key = 0;
        if (!tally_->Went(FBR_OpenDirEx(0, Wide(path).c_str(), &key, store->handle), "open key"))
            return;
        std::vector<Text> names;
        const FBR_STATUS status = FBR_EnumerateAllValues(key, names, store->handle);
        FBR_CloseDirEx(key, store->handle);
        if (!tally_->Did(status == FSSTATUS_NO_MORE_ENTRIES ? FSSTATUS_SUCCESS : status, "list"))
            return;
        std::sort(names.begin(), names.end());
        const bool once = std::unique(names.begin(), names.end()) == names.end();
        if (names.size() != kOwnValues || !once)
            tally_->Wrong(path + " lists " + std::to_string(names.size()) + " values");
    }

    const uint32_t writers_;
    Tally* tally_;
    std::mt19937 random_{static_cast<uint32_t>(NowMs())};
    std::map<std::string, uint32_t> seen_;
};

// STORE MILLISECONDS WRITERS: reads on one store that stays open.
void Read(const Words& words, Tally* tally) {
    Store store(words[0]);
    Reader reader(static_cast<uint32_t>(std::stoul(words[2])), tally);
    for (const Clock clock(words[1]); clock.Runs();) reader.Step(&store);
    tally->Went(store.Close(), "close");
}
const ChildRole kRead("sharing-read", Role<Read>);

// The same, while another thread of the store waits for its lock, takes it and gives it up.
void ReadBesideWaiting(const Words& words, Tally* tally) {
    Store store(words[0]);
    if (!tally->Went(store.status, "open")) return;
    std::atomic<bool> ends{false};
    Tally others;
    std::thread waiting([&] {
        while (!ends)
            if (others.Went(store.Lock(3), "lock")) others.Went(store.Unlock(), "release");
    });
    Reader reader(static_cast<uint32_t>(std::stoul(words[2])), tally);
    for (const Clock clock(words[1]); clock.Runs();) reader.Step(&store);
    ends = true;
    waiting.join();
    tally->Add(others);
    tally->Went(store.Close(), "close");
}
const ChildRole kReadBesideWaiting("sharing-read-beside-waiting", Role<ReadBesideWaiting>);

// The same, and opens the store for each few reads.
void OpenRead(const Words& words, Tally* tally) {
    Reader reader(static_cast<uint32_t>(std::stoul(words[2])), tally);
    for (const Clock clock(words[1]); clock.Runs();) {
        Store store(words[0]);
        if (!tally->Went(store.status, "open")) continue;
        for (int i = 0; i < 5; ++i) reader.Step(&store);
        tally->Went(store.Close(), "close");
    }
}
const ChildRole kOpenRead("sharing-open-read", Role<OpenRead>);

// STORE MILLISECONDS: reads all of the store under a lock of type 3.
void Export(const Words& words, Tally* tally) {
    for (const Clock clock(words[1]); clock.Runs();) {
        Store store(words[0]);
        if (!tally->Went(store.status, "open")) continue;
        if (!tally->Went(store.Lock(3), "lock")) continue;
        Key root;
        if (tally->Did(ReadAll(store.handle, &root), "walk")) JudgeShared(root, tally);
        tally->Went(store.Unlock(), "release");
        tally->Went(store.Close(), "close");
    }
}
const ChildRole kExport("sharing-export", Role<Export>);

// Runs the tool; an answer that the store is in use is none of its failures.
support::ProcessResult Tool(const Words& words, Tally* tally) {
    const auto result = support::RunProcess(support::ProgramNamed("fbr"), words);
    const bool busy = result.err.find("(7)") != std::string::npos ||
                      result.err.find("in use") != std::string::npos;
    tally->Did(result.status == 0           ? FSSTATUS_SUCCESS
               : busy && result.status == 1 ? FSSTATUS_LOCK_FAILED
                                            : FSSTATUS_FAILED,
               "fbr " + words[0] + " ends with " + std::to_string(result.status) + ": " +
                   result.err.substr(0, 200));
    return result;
}

// STORE MILLISECONDS: the same by the tool.
void ToolExport(const Words& words, Tally* tally) {
    for (const Clock clock(words[1]); clock.Runs();) {
        const auto result = Tool({"export", words[0], "--format", "jsonl"}, tally);
        if (result.status == 0) JudgeShared(ReadExport(result.out), tally);
    }
}
const ChildRole kToolExport("sharing-tool-export", Role<ToolExport>);

// STORE MILLISECONDS: checks the file.
void Check(const Words& words, Tally* tally) {
    for (const Clock clock(words[1]); clock.Runs(); Pause(5)) {
        const Findings findings = CheckFile(words[0]);
        const bool busy = findings.status == FSSTATUS_SHARING_VIOLATION;
        if (tally->Did(busy ? FSSTATUS_LOCK_FAILED : findings.status, "check") && !findings.Sound())
            tally->Wrong("the check finds " + findings.Line());
    }
}
const ChildRole kCheck("sharing-check", Role<Check>);

// COMMAND STORE MILLISECONDS: any command of the tool, again and again.
void ToolLoop(const Words& words, Tally* tally) {
    for (const Clock clock(words[2]); clock.Runs(); Pause(5)) Tool({words[0], words[1]}, tally);
}
const ChildRole kToolLoop("sharing-tool", Role<ToolLoop>);

// STORE MILLISECONDS: compacts under the lock.
void Compact(const Words& words, Tally* tally) {
    Store store(words[0]);
    for (const Clock clock(words[1]); clock.Runs(); Pause(20)) {
        if (!tally->Went(store.Lock(), "lock")) continue;
        uint32_t done = 0;
        tally->Did(FBR_Compact(store.handle, &done), "compact");
        tally->Went(store.Unlock(), "release");
    }
}
const ChildRole kCompact("sharing-compact", Role<Compact>);

// STORE NUMBER MOMENT: opens a store that may be missing at a moment, and sets a value in it.
void Make(const Words& words, Tally* tally) {
    WaitUntil(words[2]);
    Store store(words[0]);
    if (!tally->Went(store.status, "open") || !tally->Went(store.Lock(), "lock")) return;
    const Bytes data = Sealed("\\made", words[1], {}, 100);
    tally->Did(store.Set("\\made", words[1], data), "set");
    tally->Went(store.Unlock(), "release");
    tally->Went(store.Close(), "close");
}
const ChildRole kMake("sharing-make", Role<Make>);

// FOLDER STORE NUMBER COUNT MOMENT: sets that many values from a moment on, with an opening each,
// from a folder.
void SetFrom(const Words& words, Tally* tally) {
    std::filesystem::current_path(words[0]);
    WaitUntil(words[4]);
    for (int i = 0; i < std::stoi(words[3]); ++i) {
        const std::string name = words[2] + "-" + std::to_string(i);
        const std::string key = FromKey(static_cast<uint32_t>(i));
        Store store(words[1]);
        if (!tally->Went(store.status, "open") || !tally->Went(store.Lock(), "lock")) return;
        tally->Did(store.Set(key, name, Sealed(key, name, {}, 300)), "set");
        tally->Went(store.Unlock(), "release");
        tally->Went(store.Close(), "close");
    }
}
const ChildRole kSetFrom("sharing-set-from", Role<SetFrom>);

// STORE TYPE READY: holds a lock until it is killed.
void Hold(const Words& words, Tally* tally) {
    Store store(words[0]);
    if (!tally->Went(store.Lock(static_cast<uint32_t>(std::stoul(words[1]))), "lock")) return;
    std::ofstream(words[2]) << "held";
    for (;;) Pause(1000);
}
const ChildRole kHold("sharing-hold", Role<Hold>);

}  // namespace
}  // namespace sharing
