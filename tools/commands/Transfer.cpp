// Commands that carry a store's content out and in: export, import.
#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Files.h"
#include "tools/console/Progress.h"
#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"
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
    Progress progress("Exporting keys:", 0);
    const auto step = [&progress] {
        StopIfInterrupted();
        progress.Step();
    };
    const auto onLoss = [&](const std::string& loss) {
        progress.Clear();
        cli.TellLoss(loss);
    };
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

Document ReadDocument(const std::string& bytes, const std::string& format) {
    const size_t first = bytes.find_first_not_of("\xEF\xBB\xBF \t\r\n");
    const bool looksLikeJson = first != std::string::npos && bytes[first] == '{';
    const bool json = format.empty() ? looksLikeJson : format == "jsonl";
    return json ? ReadJsonLines(bytes) : ReadReg(bytes);
}

[[noreturn]] void ThrowAtLine(const std::string& file, uint64_t line, const std::string& text) {
    throw std::runtime_error(fmt::format("{}:{}: {}", file, line, text));
}

// Takes `prefix` off each key; names compare as the store compares them.
void TakePrefixOff(Document& document, const WString& prefix, const std::string& file) {
    if (prefix.empty()) return;
    std::vector<WString> full = document.keys;
    for (const Record& record : document.records) {
        const WString& path = full[record.key];
        const bool begins =
            path.size() >= prefix.size() &&
            platform::CompareFolded(WStringView(path).substr(0, prefix.size()), prefix) == 0;
        const bool below = begins && (path.size() == prefix.size() || path[prefix.size()] == '\\');
        if (!below) {
            ThrowAtLine(
                file, record.line,
                fmt::format("expected a key below {}, not {}", Printable(prefix), Printable(path)));
        }
        document.keys[record.key] = path.substr(std::min(prefix.size() + 1, path.size()));
    }
}

void Apply(const Document& document, const Record& record, TreeWriter& writer) {
    const WString& path = document.keys[record.key];
    switch (record.kind) {
        case Record::Kind::kKey:
            writer.Key(path);
            break;
        case Record::Kind::kDeleteKey:
            writer.DeleteKey(path);
            break;
        case Record::Kind::kValue:
            writer.Key(path);
            writer.Value(record.name, record.type, record.data);
            break;
        case Record::Kind::kDeleteValue:
            writer.Key(path);
            writer.DeleteValue(record.name);
            break;
    }
}

void ApplyAll(const Document& document, const Store& store, const std::string& file) {
    const WriteLock lock(store);
    const InterruptGuard guard;
    Progress progress("Importing:", document.records.size());
    TreeWriter writer(store);
    const auto stands = [&writer] {
        return writer.Done() + "; the rest of the file was not applied";
    };
    for (const Record& record : document.records) {
        try {
            StopIfInterrupted();
            Apply(document, record, writer);
        } catch (const StoreError& error) {
            ThrowAtLine(file, record.line, fmt::format("{}; {}", error.what(), stands()));
        } catch (const Interrupted&) {
            progress.Clear();
            throw Interrupted(fmt::format("{}:{}: stopped; {}", file, record.line, stands()));
        }
        progress.Step();
    }
}

// The file is read and understood whole before the store is touched.
void Import(const StoreName& name, const Arguments& args) {
    const WString prefix = KeyArgument(args.prefix);
    Document document;
    try {
        document = ReadDocument(ReadInput(args.file), args.format);
    } catch (const FormatError& error) {
        ThrowAtLine(args.file, error.Line(), error.what());
    }
    TakePrefixOff(document, prefix, args.file);

    Store store(name, Store::IfMissing::kCreate);
    ApplyAll(document, store, args.file);
    store.Close();
}

}  // namespace

void AddTransferCommands(Cli& cli) {
    const auto args = std::make_shared<Arguments>();
    const std::vector<std::string> formats = {"reg", "jsonl"};

    cli.Add("export", "Write a key and all below it as text")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kOptional, "the key; the root if not given")
        .Choice("--format", args->format, formats, "reg (the default) or jsonl")
        .Text("--prefix", args->prefix, Need::kOptional, "a key to put in front of every key")
        .Text("-o,--output", args->file, Need::kOptional, "the file; standard output if not given")
        .Does([&cli, args] { Export(cli, cli.StoreAt(args->store), *args); });

    cli.Add("import", "Read a file of text into a store, made if missing")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("FILE", args->file, Need::kRequired, "a .reg or .jsonl file; - for standard input")
        .Choice("--format", args->format, formats, "reg or jsonl; seen from the file if not given")
        .Text("--prefix", args->prefix, Need::kOptional,
              "a key to take off: all keys must stand below it")
        .Does([&cli, args] { Import(cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
