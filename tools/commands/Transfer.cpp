// SPDX-License-Identifier: MIT
// Commands that carry a store's content out and in: export, import.
#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "tools/commands/Cli.h"
#include "tools/commands/Files.h"
#include "tools/commands/TreeProgress.h"
#include "tools/console/Progress.h"
#include "tools/console/ReadFile.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RecordReader.h"
#include "tools/format/RegWriter.h"
#include "tools/format/Text.h"
#include "tools/store/TreeReader.h"
#include "tools/store/TreeWriter.h"

namespace fbr {
namespace {

struct Arguments {
    std::string store, key, format, prefix, file;
};

void WriteTree(Cli& cli, const Store& store, const WString& key, const std::string& format,
               const WString& prefix, std::ostream& out) {
    TreeProgress progress(cli, "Exporting keys:", 0);
    const auto step = progress.OnKey();
    const auto onLoss = progress.OnLoss();
    if (format == "jsonl") {
        JsonLinesWriter writer(out, prefix);
        ReadTree(store, key, writer, step, onLoss);
    } else {
        RegWriter writer(out, prefix);
        ReadTree(store, key, writer, step, onLoss);
        writer.Finish();
    }
}

void Export(Cli& cli, const StoreName& name, const Arguments& args) {
    const WString key = KeyArgument(args.key), prefix = KeyArgument(args.prefix);
    const Store store(name, Store::IfMissing::kFail);
    const ReadLock lock(store);
    if (args.file.empty()) {
        WriteTree(cli, store, key, args.format, prefix, std::cout);
        return;
    }
    OutputFile file(args.file);
    WriteTree(cli, store, key, args.format, prefix, file.Stream());
    file.Finish();
}

[[noreturn]] void ThrowAtLine(const std::string& file, uint64_t line, const std::string& text) {
    throw std::runtime_error(fmt::format("{}:{}: {}", file, line, text));
}

// What an import takes in. A million records in memory are several times the file: they are read
// twice instead.
struct Input {
    std::string file;
    std::string bytes;
    std::string format;
    WString prefix;
    uint64_t records = 0;
};

// Does the path begin with the prefix, as a store compares names?
bool IsBelow(const WString& path, const WString& prefix) {
    const bool begins =
        path.size() >= prefix.size() &&
        platform::CompareFolded(WStringView(path).substr(0, prefix.size()), prefix) == 0;
    return prefix.empty() ||
           (begins && (path.size() == prefix.size() || path[prefix.size()] == '\\'));
}

// The path of each record without the prefix.
void CheckRecords(Input& input) {
    std::optional<std::pair<uint64_t, WString>> outside;
    const auto check = [&](const WString& key, Record& record) {
        ++input.records;
        if (!outside && !IsBelow(key, input.prefix)) outside.emplace(record.line, key);
    };
    try {
        ReadRecords(input.bytes, input.format, check);
    } catch (const FormatError& error) {
        ThrowAtLine(input.file, error.Line(), error.what());
    }
    if (outside) {
        ThrowAtLine(input.file, outside->first,
                    fmt::format("expected a key below {}, not {}", Printable(input.prefix),
                                Printable(outside->second)));
    }
}

void ApplyAll(const Input& input, const Store& store) {
    const WriteLock lock(store);
    const InterruptGuard guard;
    Progress progress("Importing:", input.records);
    TreeWriter writer(store);
    const auto stands = [&writer] {
        return writer.Done() + "; the rest of the file was not applied";
    };
    const size_t cut = input.prefix.empty() ? 0 : input.prefix.size() + 1;
    ReadRecords(input.bytes, input.format, [&](const WString& key, Record& record) {
        try {
            StopIfInterrupted();
            writer.Apply(WStringView(key).substr(std::min(cut, key.size())), record);
        } catch (const StoreError& error) {
            ThrowAtLine(input.file, record.line, fmt::format("{}; {}", error.what(), stands()));
        } catch (const Interrupted&) {
            progress.Clear();
            throw Interrupted(fmt::format("{}:{}: stopped; {}", input.file, record.line, stands()));
        }
        progress.Step();
    });
}

// The file is read and understood whole before the store is touched.
void Import(const StoreName& name, const Arguments& args) {
    Input input{args.file, {}, args.format, KeyArgument(args.prefix)};
    input.bytes = ReadInput(args.file);
    CheckRecords(input);
    Store store(name, Store::IfMissing::kCreate);
    ApplyAll(input, store);
    store.Close();
}

}  // namespace

void AddTransferCommands(Cli& cli) {
    const auto args = std::make_shared<Arguments>();
    const std::vector<std::string> formats = {"reg", "jsonl"};

    cli.Add("export", "Write a key and all below it as text")
        .Example("fbr export settings.fbr -o settings.reg")
        .Example("fbr export settings.fbr Software --format jsonl")
        .StoreAndKey(args->store, args->key)
        .Choice("--format", args->format, formats, "reg (the default) or jsonl")
        .Text("--prefix KEY", args->prefix, Need::kOptional, "a key to put in front of every key")
        .Text("-o,--output FILE", args->file, Need::kOptional,
              "the file; standard output if not given")
        .Does([&cli, args] { Export(cli, cli.StoreAt(args->store), *args); });

    cli.Add("import", "Read a file of text into a store, made if missing")
        .Example("fbr import settings.fbr settings.reg")
        .Example("fbr export one.fbr | fbr import two.fbr -")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("FILE", args->file, Need::kRequired, "a .reg or .jsonl file; - for standard input")
        .Choice("--format", args->format, formats, "reg or jsonl; seen from the file if not given")
        .Text("--prefix KEY", args->prefix, Need::kOptional,
              "a key to take off: all keys must stand below it")
        .Does([&cli, args] { Import(cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
