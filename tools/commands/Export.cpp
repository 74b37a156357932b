// SPDX-License-Identifier: MIT
// export: a key and all below it as text.
#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <utility>

#include "tools/commands/Cli.h"
#include "tools/commands/Files.h"
#include "tools/commands/StoresOwn.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Console.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegWriter.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

struct ExportArguments {
    std::string store, key, format, prefix, file, encoding;
    bool regedit4 = false, sort = false, all = false;
};

RegForm FormOf(const ExportArguments& args) {
    if (args.format == "jsonl" && (args.regedit4 || !args.encoding.empty()))
        throw UsageError("expected no --regedit4 and no --encoding with --format jsonl");
    if (args.regedit4 && !args.encoding.empty())
        throw UsageError("expected no --encoding with --regedit4, which has one of its own");
    if (args.regedit4) return RegForm::kRegedit4;
    return args.encoding == "utf-8" ? RegForm::kUtf8 : RegForm::kUtf16;
}

// Keeps from the file what its form has no room for, and tells of it.
class Carried : public RecordSink {
  public:
    Carried(RegWriter& writer, const Store& store, OnLoss onLoss)
        : writer_(writer), store_(store), onLoss_(std::move(onLoss)) {}

    void Key(WStringView path) override {
        key_ = path;
        carries_ = writer_.CarriesKey(path);
        if (carries_) return writer_.Key(path);
        onLoss_(fmt::format("key {} in {} is left out: this form of file has no room for its name",
                            ShowKey(path), store_.Name()));
    }
    void Value(WStringView name, uint32_t type, const Bytes& data) override {
        if (!carries_) return;
        if (writer_.CarriesValue(name, type, data)) return writer_.Value(name, type, data);
        onLoss_(
            fmt::format("value \"{}\" of key {} in {} is left out: this form of file has no "
                        "room for it",
                        Printable(name), ShowKey(key_), store_.Name()));
    }

  private:
    RegWriter& writer_;
    const Store& store_;
    const OnLoss onLoss_;
    WString key_;
    bool carries_ = true;
};

void Write(const ExportArguments& args, const Place& from, RecordSink& sink,
           TreeProgress& progress) {
    WithoutStoresOwn content({from.store, {}}, sink);
    SteppedValues stepped(args.all ? sink : content, progress);
    ReadTree(from.store, from.key, stepped, progress.OnKey(), progress.OnLoss(),
             args.sort ? Order::kByName : Order::kStores);
}

void WriteTree(Cli& cli, const ExportArguments& args, const Place& from, std::ostream& out) {
    // Not between the lines of the text.
    const bool between = args.file.empty() && OutputIsTerminal();
    TreeProgress progress(cli, "Exporting:", between ? 0 : EntriesToShow(from));
    if (between) progress.HideThis();
    const WString prefix = KeyArgument(args.prefix);
    if (args.format == "jsonl") {
        JsonLinesWriter writer(out, prefix);
        return Write(args, from, writer, progress);
    }
    RegWriter writer(out, prefix, FormOf(args));
    Carried carried(writer, from.store, progress.OnLoss());
    Write(args, from, carried, progress);
    writer.Finish();
}

void Export(Cli& cli, const StoreName& name, const ExportArguments& args) {
    FormOf(args);  // before anything is made
    const Store store(name, Store::IfMissing::kFail);
    const Place from{store, KeyArgument(args.key)};
    const ReadLock lock(store);
    if (args.file.empty()) return WriteTree(cli, args, from, std::cout);
    OutputFile file(args.file, {name.path});
    WriteTree(cli, args, from, file.Stream());
    file.Finish();
}

}  // namespace

void AddExportCommand(Cli& cli) {
    const auto args = std::make_shared<ExportArguments>();
    cli.Add("export", "Write a key and all below it as text")
        .Example("fbr export settings.fbr -o settings.reg")
        .Example("fbr export settings.fbr Software --sort --encoding utf-8")
        .StoreAndKey(args->store, args->key)
        .Choice("--format", args->format, {"reg", "jsonl"}, "reg (the default) or jsonl")
        .Choice("--encoding", args->encoding, {"utf-16", "utf-8"},
                "of a .reg file: utf-16 (the default) or utf-8")
        .Flag("--regedit4", args->regedit4,
              "a .reg file of the old kind, in the Western code page; what that cannot carry is "
              "left out, and told")
        .Flag("--sort", args->sort, "keys and values by name, not in the store's order")
        .Flag("--all", args->all, "FBRVersion of the root, too, which is the store's own")
        .Text("--prefix KEY", args->prefix, Need::kOptional, "a key to put in front of every key")
        .Text("-o,--output FILE", args->file, Need::kOptional,
              "the file; standard output if not given")
        .Does([&cli, args] { Export(cli, cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
