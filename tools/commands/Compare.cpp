// SPDX-License-Identifier: MIT
// Commands that have two stores before them: copy, diff.
#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <optional>

#include "tools/commands/Cli.h"
#include "tools/commands/DifferenceReports.h"
#include "tools/commands/Files.h"
#include "tools/console/Console.h"
#include "tools/console/Progress.h"
#include "tools/page/Page.h"
#include "tools/store/TreeCopy.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct Arguments {
    std::string store, key, toMethod, format, prefix, file;
    std::vector<std::string> to;
};

// One end as the command line names it.
struct End {
    StoreName store;
    WString key;
};

End ToEnd(const Arguments& args) {
    return {Cli::StoreAt(args.to[0], args.toMethod),
            KeyArgument(args.to.size() > 1 ? args.to[1] : "")};
}

bool IsSameStore(const StoreName& a, const StoreName& b) {
    if (a.method != b.method) return false;
    if (a.path == b.path) return true;
    const auto first = FileOf(a), second = FileOf(b);
    std::error_code error;
    return first && second && std::filesystem::equivalent(*first, *second, error);
}

// Stores of the live registry are keys of one and the same store.
WString LivePath(const End& end) {
    return JoinKeys(NormalKeyPath(Wide(end.store.path)), end.key);
}

bool LeadsIntoItself(const End& from, const End& to) {
    const bool live =
        from.store.method == FS_VR_METHOD_NATIVE && to.store.method == from.store.method;
    if (live) return IsAtOrBelow(LivePath(to), LivePath(from));
    return IsSameStore(from.store, to.store) && IsAtOrBelow(to.key, from.key);
}

// Two stores, or one for both ends.
class StorePair {
  public:
    // The key at `from` must be there, or nothing is made at `to`.
    StorePair(const End& from, const End& to, Store::IfMissing ifMissing)
        : from_(from.store, Store::IfMissing::kFail) {
        from_.OpenKey(from.key);
        if (!IsSameStore(from.store, to.store)) to_.emplace(to.store, ifMissing);
    }
    const Store& From() const { return from_; }
    const Store& To() const { return to_ ? *to_ : from_; }
    void Close() {
        if (to_) to_->Close();
        from_.Close();
    }

  private:
    Store from_;
    std::optional<Store> to_;
};

// Keeps others from changing either end. Every process takes its locks in the same order, so that
// two of them never wait for each other.
template <class LockOfTo>
class BothLocks {
  public:
    explicit BothLocks(const StorePair& stores) {
        const bool two = &stores.From() != &stores.To();
        const bool fromFirst = two && stores.From().Name() < stores.To().Name();
        if (fromFirst) from_.emplace(stores.From());
        to_.emplace(stores.To());
        if (two && !fromFirst) from_.emplace(stores.From());
    }

  private:
    std::optional<ReadLock> from_;
    std::optional<LockOfTo> to_;
};

// The bar needs to know how many keys there are, which nobody asks for who does not see it.
uint64_t KeysToShow(const Place& place) {
    return ErrorIsTerminal() ? CountKeys(place.store, place.key) : 0;
}

void Copy(Cli& cli, const End& from, const End& to) {
    if (LeadsIntoItself(from, to)) {
        throw UsageError(
            fmt::format("expected a key outside of {} to copy it to", ShowKey(from.key)));
    }
    StorePair stores(from, to, Store::IfMissing::kCreate);
    {
        const BothLocks<WriteLock> locks(stores);
        const Place source{stores.From(), from.key}, target{stores.To(), to.key};
        Progress progress("Copying keys:", KeysToShow(source));
        const InterruptGuard guard;
        CopyTree(
            source, target,
            [&progress] {
                StopIfInterrupted();
                progress.Step();
            },
            [&](const std::string& loss) {
                progress.Clear();
                cli.TellLoss(loss);
            });
    }
    stores.Close();
}

// What a comparison's report needs to know besides the differences: whether there were any, and
// that the bar is out of the way.
class Watcher : public DifferenceSink {
  public:
    Watcher(DifferenceSink& report, Progress& progress) : report_(report), progress_(progress) {}
    uint64_t Seen() const { return seen_; }

    void KeyOnlyHere(WStringView path) override { Report().KeyOnlyHere(path); }
    void KeyOnlyThere(WStringView path) override { Report().KeyOnlyThere(path); }
    void ValueDiffers(WStringView path, const WString& name, const fbr::Value* here,
                      const fbr::Value* there) override {
        Report().ValueDiffers(path, name, here, there);
    }

  private:
    DifferenceSink& Report() {
        ++seen_;
        progress_.Clear();
        return report_;
    }

    DifferenceSink& report_;
    Progress& progress_;
    uint64_t seen_ = 0;
};

// How many differences there are.
uint64_t WriteDifferences(Cli& cli, const Place& here, const Place& there, const Arguments& args,
                          std::ostream& out) {
    Progress progress("Comparing keys:", KeysToShow(here));
    const OnLoss onLoss = [&](const std::string& loss) {
        progress.Clear();
        cli.TellLoss(loss);
    };
    const auto compare = [&](DifferenceSink& report) {
        Watcher watcher(report, progress);
        CompareTrees(
            here, there, watcher,
            [&progress] {
                StopIfInterrupted();
                progress.Step();
            },
            onLoss);
        return watcher.Seen();
    };
    if (cli.Json()) {
        DifferenceJson json(out, here.key);
        return compare(json);
    }
    if (args.format == "html") {
        DifferencePage page(out, here.store.Name(), there.store.Name());
        const uint64_t differences = compare(page);
        page.Finish();
        return differences;
    }
    if (args.format != "reg") {
        DifferenceLines lines(out, here.key, args.file.empty() && cli.Colored());
        return compare(lines);
    }
    DifferenceReg reg(out, JoinKeys(KeyArgument(args.prefix), here.key), there, onLoss);
    const uint64_t differences = compare(reg);
    reg.Finish();
    return differences;
}

void Diff(Cli& cli, const End& from, const End& to, const Arguments& args) {
    if (cli.Json() && (args.format == "reg" || args.format == "html"))
        throw UsageError("expected either --json or --format " + args.format);
    const StorePair stores(from, to, Store::IfMissing::kFail);
    const BothLocks<ReadLock> locks(stores);
    const Place here{stores.From(), from.key}, there{stores.To(), to.key};
    const auto write = [&](std::ostream& out) {
        const uint64_t differences = WriteDifferences(cli, here, there, args, out);
        if (differences != 0) cli.SetExitStatus(kExitNo);
        if (!cli.Json()) return;
        JsonObject end(JsonObject::Place::kLine);
        end.Number("differences", differences);
        out << end.Number("status", static_cast<uint64_t>(cli.Status())).Done() << '\n';
    };
    if (args.file.empty()) return write(std::cout);
    OutputFile file(args.file);
    write(file.Stream());
    file.Finish();
}

Command AddTwoStores(Cli& cli, const char* name, const char* description,
                     const std::shared_ptr<Arguments>& args) {
    Command command = cli.Add(name, description);
    command.Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kOptional, "the key; the root if not given")
        .Pair("--to", args->to, "STORE [KEY]", "the other store, and the key there")
        .Text("--to-method METHOD", args->toMethod, Need::kOptional,
              "how the other store is kept, as for --method");
    return command;
}

}  // namespace

void AddCompareCommands(Cli& cli) {
    const auto args = std::make_shared<Arguments>();
    const auto from = [&cli, args] {
        return End{cli.StoreAt(args->store), KeyArgument(args->key)};
    };

    AddTwoStores(cli, "copy", "Copy a key and all below it to a store of any kind, made if missing",
                 args)
        .Example("fbr copy settings.fbr --to settings.hiv --to-method offline")
        .Example("fbr copy one.fbr 'Software\\Hello' --to two.fbr Greetings")
        .Does([=, &cli] { Copy(cli, from(), ToEnd(*args)); });

    AddTwoStores(cli, "diff", "Compare a key and all below it with another; 0 same, 3 different",
                 args)
        .Tells()
        .No("they differ")
        .Example("fbr diff before.fbr --to after.fbr")
        .Example("fbr diff one.fbr Software --to two.fbr Software --format reg -o change.reg")
        .Choice("--format", args->format, {"lines", "reg", "html"},
                "lines (the default); reg: a file to import into STORE, which makes it the same; "
                "html: a page for a browser")
        .Text("--prefix KEY", args->prefix, Need::kOptional,
              "reg: a key to put in front of every key")
        .Text("-o,--output FILE", args->file, Need::kOptional,
              "the file; standard output if not given")
        .Does([=, &cli] { Diff(cli, from(), ToEnd(*args), *args); });
}

}  // namespace fbr
