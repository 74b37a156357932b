// SPDX-License-Identifier: MIT
// Commands that have two stores before them: copy, diff.
#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <optional>

#include "tools/commands/Cli.h"
#include "tools/commands/DifferenceReports.h"
#include "tools/commands/Ends.h"
#include "tools/commands/Files.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Console.h"
#include "tools/console/Progress.h"
#include "tools/store/TreeCopy.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct CompareArguments {
    std::string store, key, toMethod, format, prefix, file;
    std::vector<std::string> to;
    bool html = false;
};

End ToEnd(const CompareArguments& args, StoreName store) {
    return {std::move(store), KeyArgument(args.to.size() > 1 ? args.to[1] : "")};
}

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
    DoAndClose(stores, [&] {
        const BothLocks<ReadLock, WriteLock> locks(stores);
        const Place source{stores.From(), from.key}, target{stores.To(), to.key};
        TreeProgress progress(cli, "Copying keys:", KeysToShow(source));
        const InterruptGuard guard;
        CopyTree(source, target, progress.OnKey(), progress.OnLoss());
    });
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
    void KeyInBoth(WStringView path, const Key& here, const Key& there) override {
        report_.KeyInBoth(path, here, there);
    }
    void ValueIsSame(const WString& name, const fbr::Value& value) override {
        report_.ValueIsSame(name, value);
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
uint64_t WriteDifferences(Cli& cli, const Place& here, const Place& there,
                          const CompareArguments& args, std::ostream& out) {
    TreeProgress progress(cli, "Comparing keys:", KeysToShow(here));
    const OnLoss onLoss = progress.OnLoss();
    const auto compareTo = [&](DifferenceSink& report, bool isNewInFull) {
        Watcher watcher(report, progress);
        NewInFull full(watcher, there, onLoss);
        DifferenceSink& sink = isNewInFull ? static_cast<DifferenceSink&>(full) : watcher;
        CompareTrees(here, there, sink, progress.OnKey(), onLoss);
        return watcher.Seen();
    };
    if (cli.Json()) {
        DifferenceJson json(out, here.key);
        return compareTo(json, true);
    }
    if (args.format == "html") {
        DifferencePage page(out, here, there, onLoss);
        const uint64_t differences = compareTo(page, false);
        page.Finish();
        return differences;
    }
    if (args.format != "reg") {
        DifferenceLines lines(out, here.key, args.file.empty() && cli.Colored());
        return compareTo(lines, true);
    }
    DifferenceReg reg(out, JoinKeys(KeyArgument(args.prefix), here.key), there, onLoss);
    const uint64_t differences = compareTo(reg, false);
    reg.Finish();
    return differences;
}

void Diff(Cli& cli, const End& from, const End& to, const CompareArguments& args) {
    if (cli.Json() && (args.format == "reg" || args.format == "html"))
        throw UsageError("expected either --json or --format " + args.format);
    const StorePair stores(from, to, Store::IfMissing::kFail);
    const BothLocks<ReadLock, ReadLock> locks(stores);
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
    OutputFile file(args.file, {from.store.path, to.store.path});
    write(file.Stream());
    file.Finish();
}

Command AddTwoStores(Cli& cli, const char* name, const char* description,
                     const std::shared_ptr<CompareArguments>& args) {
    Command command = cli.Add(name, description);
    command.StoreAndKey(args->store, args->key)
        .Words("--to", args->to, "STORE [KEY]", {1, 2}, Need::kRequired,
               "the other store, and the key there")
        .Text("--to-method METHOD", args->toMethod, Need::kOptional,
              "how the other store is kept, as for --method");
    return command;
}

}  // namespace

void AddCompareCommands(Cli& cli) {
    const auto args = std::make_shared<CompareArguments>();
    const auto from = [&cli, args] {
        return End{cli.StoreAt(args->store), KeyArgument(args->key)};
    };

    AddTwoStores(cli, "copy", "Copy a key and all below it to a store of any kind, made if missing",
                 args)
        .Example("fbr copy settings.fbr --to settings.hiv --to-method offline")
        .Example("fbr copy one.fbr 'Software\\Hello' --to two.fbr Greetings")
        .Does([=, &cli] {
            Copy(cli, from(), ToEnd(*args, Cli::StoreToMake(args->to[0], args->toMethod)));
        });

    AddTwoStores(cli, "diff", "Compare a key and all below it with another; 0 same, 3 different",
                 args)
        .Tells()
        .No("they differ")
        .Example("fbr diff before.fbr --to after.fbr")
        .Example("fbr diff one.fbr Software --to two.fbr Software --format reg -o change.reg")
        .Choice("--format", args->format, {"lines", "reg", "html"},
                "lines (the default); reg: a file to import into STORE, which makes it the same; "
                "html: a page of both stores for a browser")
        .Flag("--html", args->html, "the same as --format html")
        .Text("--prefix KEY", args->prefix, Need::kOptional,
              "reg: a key to put in front of every key")
        .Text("-o,--output FILE", args->file, Need::kOptional,
              "the file; standard output if not given")
        .Does([=, &cli] {
            if (args->html && !args->format.empty() && args->format != "html")
                throw UsageError("expected either --html or --format " + args->format);
            if (args->html) args->format = "html";
            Diff(cli, from(), ToEnd(*args, Cli::StoreAt(args->to[0], args->toMethod)), *args);
        });
}

}  // namespace fbr
