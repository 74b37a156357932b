// SPDX-License-Identifier: MIT
// Commands that take one value or key from place to place: cp, mv.
#include <fmt/format.h>

#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Ends.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/store/NewKeys.h"
#include "tools/store/TreeCopy.h"

namespace fbr {
namespace {

struct MoveArguments {
    std::string store, key, toMethod;
    std::optional<std::string> name;
    std::vector<std::string> to;
};

// From where to where; with a name it is a value that goes.
struct Way {
    End from, to;
    std::optional<WString> name, newName;
};

Way WayOf(const Cli& cli, const MoveArguments& args) {
    Way way;
    way.from = {cli.StoreAt(args.store), KeyArgument(args.key)};
    way.to = {Cli::StoreToMake(args.to[0], args.toMethod), KeyArgument(args.to[1])};
    if (args.name) way.name = way.newName = Wide(*args.name);
    if (args.to.size() < 3) return way;
    if (!way.name) throw UsageError("expected a name behind KEY for the value that gets a new one");
    way.newName = Wide(args.to[2]);
    return way;
}

void TakeValue(const Way& way, const Place& from, const Place& to, bool move) {
    ExpectNotStoresOwn(from, *way.name);
    ExpectNotStoresOwn(to, *way.newName);
    const Key source = from.store.OpenKey(from.key);
    const Value value = source.Get(*way.name);
    NewKeys made(to.store, to.key);
    const Key target = to.store.CreateKey(to.key);
    const bool same = &from.store == &to.store && platform::CompareFolded(from.key, to.key) == 0 &&
                      platform::CompareFolded(*way.name, *way.newName) == 0;
    // A name that changes its case only is another one when it is made anew.
    if (same && move) source.DeleteValue(*way.name);
    target.Set(*way.newName, value.type, value.data);
    made.Stay();
    if (move && !same) source.DeleteValue(*way.name);
}

void TakeKey(Cli& cli, const Place& from, const Place& to, bool move) {
    TreeProgress progress(cli, move ? "Moving keys:" : "Copying keys:", 0);
    const InterruptGuard guard;
    CopyTree(from, to, progress.OnKey(), progress.OnLoss());
    if (!move) return;
    if (!progress.IsWhole())
        return cli.TellLoss("not all of it could be moved: what was there stays there");
    from.store.DeleteTree(from.key);
}

template <class LockOfFrom>
void Take(Cli& cli, const Way& way, bool move) {
    if (!way.name && LeadsIntoItself(way.from, way.to))
        throw UsageError(
            fmt::format("expected a key outside of {} to take it to", ShowKey(way.from.key)));
    // What comes together above could have the names of what is to go.
    if (move && !way.name && LeadsIntoItself(way.to, way.from))
        throw UsageError(fmt::format("expected a key that {} is not below to move it to",
                                     ShowKey(way.from.key)));
    StorePair stores(way.from, way.to, Store::IfMissing::kCreate);
    DoAndClose(stores, [&] {
        const BothLocks<LockOfFrom, WriteLock> locks(stores);
        const Place from{stores.From(), way.from.key}, to{stores.To(), way.to.key};
        way.name ? TakeValue(way, from, to, move) : TakeKey(cli, from, to, move);
    });
}

void Rename(const StoreName& name, const MoveArguments& args) {
    const WString path = KeyArgument(args.key), newName = Wide(args.name.value_or(""));
    if (!args.name) throw UsageError("expected the key's new name behind KEY, or --to and a place");
    if (newName.empty() || newName.find('\\') != WString::npos) {
        throw UsageError("expected a name without a backslash for NEWNAME");
    }
    if (path.empty()) throw UsageError("expected a key below the root: the root has no name");
    Store store(name, Store::IfMissing::kFail);
    {
        const WriteLock lock(store);
        store.OpenKey(path).Rename(newName);
    }
    store.Close();
}

}  // namespace

void AddMoveCommands(Cli& cli) {
    const auto args = std::make_shared<MoveArguments>();
    constexpr const char* kTo =
        "where to: a store, made if missing, a key, and for a value the name there";
    constexpr const char* kMethod = "how the other store is kept, as for --method";

    cli.Add("cp", "Copy a value, or a key with all below it, to another place")
        .Example("fbr cp settings.fbr 'Software\\Hello' Count --to settings.fbr Backup")
        .Example("fbr cp settings.reg 'Software\\Hello' --to other.fbr 'Software\\Hello'")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional, "the value; the key itself if not given")
        .Words("--to", args->to, "STORE KEY [NAME]", {2, 3}, Need::kRequired, kTo)
        .Text("--to-method METHOD", args->toMethod, Need::kOptional, kMethod)
        .Does([&cli, args] { Take<ReadLock>(cli, WayOf(cli, *args), false); });

    cli.Add("mv", "Rename a key, or move a key or a value to another place")
        .Example("fbr mv settings.fbr 'Software\\Hello' Greeting")
        .Example("fbr mv settings.fbr 'Software\\Hello' Count --to settings.fbr Software Number")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional,
              "without --to the key's new name, in the same place; with it the value that moves, "
              "the key itself if not given")
        .Words("--to", args->to, "STORE KEY [NAME]", {2, 3}, Need::kOptional, kTo)
        .Text("--to-method METHOD", args->toMethod, Need::kOptional, kMethod)
        .Does([&cli, args] {
            if (args->to.empty()) return Rename(cli.StoreAt(args->store), *args);
            Take<WriteLock>(cli, WayOf(cli, *args), true);
        });
}

}  // namespace fbr
