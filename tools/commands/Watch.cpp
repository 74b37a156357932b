// SPDX-License-Identifier: MIT
// Telling of changes as they are published: watch.
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "FS_Library_DLL/SharedStore.h"
#include "tools/commands/Cli.h"
#include "tools/commands/DifferenceReports.h"
#include "tools/console/Interrupt.h"
#include "tools/inspect/Image.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLook{100};          // between two looks at the stamp
constexpr milliseconds kWithoutFile{1000};  // between two readings of what has no stamp
constexpr int kPatience = 20;  // looks, with a file that is not to be had: somebody exchanges it

struct WatchArguments {
    std::string store, key;
    uint64_t count = UINT64_MAX;
};

struct Before {
    bool operator()(const WString& a, const WString& b) const {
        return platform::CompareFolded(a, b) < 0;
    }
};
using Values = std::map<WString, Value, Before>;
using Snapshot = std::map<WString, Values, Before>;  // by the paths of keys

// Changes with every change: the counter of a container, the state of what tells of its changes by
// itself, else the time and the size of the file.
struct Stamp {
    uint64_t number = 0, size = 0;
    bool operator==(const Stamp&) const = default;
};

class Watcher {
  public:
    Watcher(Cli& cli, const WatchArguments& args)
        : cli_(cli),
          args_(args),
          name_(cli.StoreAt(args.store)),
          key_(KeyArgument(args.key)),
          lines_(std::cout, {}, cli.Colored()),
          json_(std::cout, {}),
          sink_(cli.Json() ? static_cast<DifferenceSink&>(json_) : lines_) {
        if (name_.method == FS_VR_METHOD_CLUSTER) waits_.emplace(name_, Store::IfMissing::kFail);
    }
    void Run();

  private:
    SharedStore* Shared() const;
    Stamp StampNow() const;
    void WaitForChange(const Stamp& last) const;
    Snapshot Read(bool mustBeThere);
    bool Tell(const Snapshot& before, const Snapshot& now);
    bool TellValues(const WString& key, const Values& before, const Values& now);

    Cli& cli_;
    const WatchArguments& args_;
    const StoreName name_;
    const WString key_;
    std::optional<Store> waits_;  // what tells of its changes by itself
    DifferenceLines lines_;
    DifferenceJson json_;
    DifferenceSink& sink_;
    std::set<std::string> losses_;  // each is told once
};

SharedStore* Watcher::Shared() const {
    return waits_ ? waits_->Shared() : nullptr;
}

Stamp Watcher::StampNow() const {
    if (SharedStore* const shared = Shared()) {
        Stamp stamp;
        const FBR_STATUS status = shared->CurrentState(&stamp.number);
        if (status != FSSTATUS_SUCCESS)
            waits_->ThrowFailed("cannot watch " + name_.Shown(), status);
        return stamp;
    }
    const auto file = FileOf(name_);
    if (!file) return {};
    const uint64_t size = std::filesystem::is_regular_file(*file) ? file_size(*file) : 0;
    if (name_.method == FS_VR_METHOD_TARN && !name_.isText)
        return {Image(cli_.ContainerAt(name_.path), 0).ChangeCounter(), size};
    const auto time = last_write_time(*file).time_since_epoch().count();
    return {static_cast<uint64_t>(time), size};
}

void Watcher::WaitForChange(const Stamp& last) const {
    if (SharedStore* const shared = Shared()) {
        const FBR_STATUS status =
            shared->WaitForChange(last.number, [] { return !WasInterrupted(); });
        StopIfInterrupted();
        if (status != FSSTATUS_SUCCESS)
            waits_->ThrowFailed("cannot watch " + name_.Shown(), status);
        return;
    }
    const bool hasFile = FileOf(name_).has_value();
    const auto began = steady_clock::now();
    for (int failures = 0;;) {
        StopIfInterrupted();
        std::this_thread::sleep_for(kLook);
        StopIfInterrupted();
        if (!hasFile) {
            if (steady_clock::now() - began >= kWithoutFile) return;
            continue;
        }
        try {
            if (StampNow() != last) return;
            failures = 0;
        } catch (const std::exception&) {
            if (++failures == kPatience) throw;
        }
    }
}

// Opened anew each time: who exchanged the file is followed.
Snapshot Watcher::Read(bool mustBeThere) {
    Snapshot snapshot;
    const Store store(name_, Store::IfMissing::kFail);
    const ReadLock lock(store);
    if (!mustBeThere && !store.HasKey(key_)) return snapshot;
    const OnLoss onLoss = [this](const std::string& loss) {
        if (losses_.insert(loss).second) cli_.TellLoss(loss);
    };
    WalkKeys(store, key_, onLoss, [&](const Key& key) {
        StopIfInterrupted();
        Values& values = snapshot[key.Path()];
        for (const WString& name : ReachableValues(key, onLoss))
            if (auto value = TryGet(key, name, onLoss)) values.emplace(name, std::move(*value));
    });
    return snapshot;
}

bool Watcher::TellValues(const WString& key, const Values& before, const Values& now) {
    bool changed = false;
    const auto tell = [&](const WString& name, const Value* here, const Value* there) {
        sink_.ValueDiffers(key, name, here, there);
        changed = true;
    };
    for (const auto& [name, value] : before) {
        const auto other = now.find(name);
        if (other == now.end())
            tell(name, &value, nullptr);
        else if (!(other->second == value))
            tell(name, &value, &other->second);
    }
    for (const auto& [name, value] : now)
        if (!before.contains(name)) tell(name, nullptr, &value);
    return changed;
}

// A key that is gone stands for all that was below it.
bool Watcher::Tell(const Snapshot& before, const Snapshot& now) {
    bool changed = false;
    std::set<WString, Before> gone;
    for (const auto& [key, values] : before) {
        if (now.contains(key)) continue;
        const bool below = !key.empty() && gone.contains(key.substr(0, key.rfind('\\')));
        if (!below || key.find('\\') == key.npos) sink_.KeyOnlyHere(key);
        gone.insert(key);
        changed = true;
    }
    for (const auto& [key, values] : now) {
        const auto other = before.find(key);
        if (other == before.end()) sink_.KeyOnlyThere(key);
        if (TellValues(key, other == before.end() ? Values() : other->second, values) ||
            other == before.end())
            changed = true;
    }
    return changed;
}

// A large store is not read all the time, whatever changes in it.
void Watcher::Run() {
    const InterruptGuard guard;
    Stamp stamp = StampNow();
    Snapshot last = Read(true);
    uint64_t changes = 0;
    while (changes < args_.count) {
        WaitForChange(stamp);
        const auto began = steady_clock::now();
        stamp = StampNow();
        Snapshot now = Read(false);
        if (Tell(last, now)) ++changes;
        if (!std::cout.flush()) return;  // the end of a command tells that
        last = std::move(now);
        const auto took = steady_clock::now() - began;
        if (took > kLook && changes != args_.count) {
            StopIfInterrupted();
            std::this_thread::sleep_for(std::min<steady_clock::duration>(took, kWithoutFile));
        }
    }
    if (cli_.Json())
        std::cout << JsonObject(JsonObject::Place::kLine)
                         .Number("changes", changes)
                         .Number("status", static_cast<uint64_t>(cli_.Status()))
                         .Done()
                  << '\n';
}

}  // namespace

void AddWatchCommand(Cli& cli) {
    const auto args = std::make_shared<WatchArguments>();
    cli.Add("watch", "Tell of each change of a key and all below it, until Ctrl-C")
        .Tells()
        .Example("fbr watch settings.fbr")
        .Example("fbr watch settings.fbr Software --json --count 1")
        .StoreAndKey(args->store, args->key)
        .Number("--count", args->count, "end after this many changes")
        .Does([&cli, args] { Watcher(cli, *args).Run(); });
}

}  // namespace fbr
