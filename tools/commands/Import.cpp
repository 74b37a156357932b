// SPDX-License-Identifier: MIT
// import: a file of text into a store.
#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "tools/commands/Cli.h"
#include "tools/commands/Ends.h"
#include "tools/commands/Files.h"
#include "tools/commands/ImportEffects.h"
#include "tools/commands/Shown.h"
#include "tools/console/Progress.h"
#include "tools/console/ReadFile.h"
#include "tools/console/TellError.h"
#include "tools/format/RecordReader.h"
#include "tools/format/Text.h"
#include "tools/store/Kind.h"
#include "tools/store/Place.h"
#include "tools/store/TreeWriter.h"

namespace fbr {
namespace {

constexpr size_t kMostTold = 100;  // lines of one kind

struct ImportArguments {
    std::string store, format, prefix, file, undo;
    bool dryRun = false, lenient = false;
};

[[noreturn]] void ThrowAtLine(const std::string& file, uint64_t line, const std::string& text) {
    throw std::runtime_error(fmt::format("{}:{}: {}", file, line, text));
}

// Lines that are told of together, the first of them in words.
struct ToldLines {
    uint64_t count = 0;
    std::vector<std::string> first;

    void Add(const std::string& file, uint64_t line, const std::string& text) {
        if (++count <= kMostTold) first.push_back(fmt::format("{}:{}: {}", file, line, text));
    }
    void Print() const {
        for (const std::string& text : first) TellError(text);
        if (count > first.size()) TellError(fmt::format("and {} more", count - first.size()));
    }
};

// What an import takes in. Its records would be several times the file in memory: it is read once
// for each purpose instead.
class Input {
  public:
    Input(const ImportArguments& args, const StoreName& store)
        : file_(args.file),
          format_(args.format),
          prefix_(KeyArgument(args.prefix)),
          lenient_(args.lenient),
          hasVersion_(HasVersion(store)),
          source_(args.file),
          repeats_(!KeepsUnnamedApart(store)) {}

    uint64_t Records() const { return records_; }

    // Reads it to its end. Tells of all lines that cannot be taken, and throws where these are not
    // to be left out.
    void Check() {
        const InterruptGuard guard;
        Progress progress("Reading:", source_.Size(), Progress::Unit::kBytes);
        Hearing hearing;
        hearing.bad = [this](uint64_t line, const std::string& text) {
            bad_.Add(file_, line, text);
        };
        ToldLines odd;
        hearing.odd = [&](uint64_t line, const std::string& text) { odd.Add(file_, line, text); };
        hearing.lost = [this](uint64_t) { ++lost_; };
        const auto check = [&](const WString& key, Record& record) {
            progress.At(source_.Position());
            if (IsVersion(key, record))
                hearing.odd(record.line, "the store keeps its own FBRVersion");
            else if (IsAtOrBelow(key, prefix_))
                Count(key, record);
            else
                hearing.bad(record.line, fmt::format("expected a key below {}, not {}",
                                                     Printable(prefix_), Printable(key)));
        };
        try {
            ReadRecords(source_, format_, check, hearing);
        } catch (const FormatError& error) {
            ThrowAtLine(file_, error.Line(), error.what());
        } catch (const Interrupted&) {
            progress.Clear();
            throw Interrupted(file_ + ": stopped; nothing of it was applied");
        }
        progress.Clear();
        repeats_.Finish();
        odd.Print();
        if (bad_.count != 0 && !lenient_) ThrowBad();
        bad_.Print();
    }

    // The records that Check found good, with the paths that they have in the store.
    void ForEach(const OnRecord& take) {
        const auto below = [&](const WString& key, Record& record) {
            StopIfInterrupted();
            if (IsAtOrBelow(key, prefix_) && !IsVersion(key, record))
                take(WString(PathBelow(key, prefix_)), record);
        };
        Hearing hearing;
        if (lenient_) hearing.bad = [](uint64_t, const std::string&) {};
        try {
            ReadRecords(source_, format_, below, hearing);
        } catch (const FormatError& error) {  // it was changed since
            ThrowAtLine(file_, error.Line(), error.what());
        }
    }

    void TellLeftOut(Cli& cli) const {
        if (bad_.count == 0) return;
        const std::string lost =
            lost_ == 0 ? "" : fmt::format(", and {} of theirs", Counted(lost_, "value"));
        cli.TellLoss(fmt::format("{}: {} left out{}", file_, Counted(bad_.count, "line"), lost));
    }

    const std::string& File() const { return file_; }
    // What it says more than once, known after Check.
    Repeats& Repeated() { return repeats_; }

  private:
    void Count(const WString& key, const Record& record) {
        ++records_;
        repeats_.Take(PathBelow(key, prefix_), record);
    }

    // The value in the root by which a store is known to be one: with another number it cannot be
    // opened any more.
    bool IsVersion(const WString& key, const Record& record) const {
        return hasVersion_ && key.size() == prefix_.size() && record.kind != Record::Kind::kKey &&
               record.kind != Record::Kind::kDeleteKey && IsVersionName(record.name);
    }

    [[noreturn]] void ThrowBad() const {
        if (bad_.count == 1) throw std::runtime_error(bad_.first.front());
        bad_.Print();
        throw std::runtime_error(
            fmt::format("{}: {} lines cannot be taken, and nothing was applied; --lenient leaves "
                        "them out",
                        file_, bad_.count));
    }

    const std::string file_, format_;
    const WString prefix_;
    const bool lenient_;
    const bool hasVersion_;  // the store that it goes to has one of its own
    FileSource source_;
    uint64_t records_ = 0;
    Repeats repeats_;
    ToldLines bad_;
    uint64_t lost_ = 0;  // values below keys that are bad
};

// The file of --undo, before the store is touched.
std::unique_ptr<OutputFile> UndoFile(const ImportArguments& args) {
    if (args.undo.empty()) return nullptr;
    std::error_code error;
    if (std::filesystem::is_regular_file(FilePath(args.undo), error))
        throw std::runtime_error(
            fmt::format("{} is there, and may hold what an earlier import kept; nothing was "
                        "applied: give --undo another file",
                        args.undo));
    return std::make_unique<OutputFile>(args.undo,
                                        std::initializer_list<std::string>{args.store, args.file});
}

// Before the first change: whatever comes of these, the file is whole.
void WriteUndo(Input& input, const Store& store, OutputFile& file) {
    Progress progress("Keeping the old state:", input.Records());
    UndoWriter undo(store, file.Stream());
    try {
        input.ForEach([&](const WString& path, Record& record) {
            undo.Take(path, record);
            progress.Step();
        });
        undo.Finish();
        file.Finish();
    } catch (const Interrupted&) {
        progress.Clear();
        throw Interrupted(input.File() + ": stopped; nothing of it was applied");
    }
}

void ApplyAll(Input& input, const Store& store, const ImportArguments& args) {
    const InterruptGuard guard;
    Progress progress("Importing:", input.Records());
    TreeWriter writer(store);
    uint64_t line = 0;
    // What was kept for --undo would be that of the first of two imports.
    const auto stands = [&](const char* how, const char* goesOn) {
        const std::string undo = args.undo.empty() ? ""
                                                   : " without --undo, and one of " + args.undo +
                                                         " brings the old state back";
        return fmt::format("{}; {}; the rest of the file was not applied; {}{}", how, writer.Done(),
                           goesOn, undo);
    };
    try {
        input.ForEach([&](const WString& path, Record& record) {
            line = record.line;
            writer.Apply(path, record, input.Repeated().Met(path, record));
            progress.Step();
        });
        writer.Finish();
    } catch (const StoreError& error) {
        ThrowAtLine(input.File(), line,
                    stands(error.what(), "when that is mended the same import does it"));
    } catch (const Interrupted&) {
        progress.Clear();
        throw Interrupted(fmt::format("{}:{}: {}", input.File(), line,
                                      stands("stopped", "the same import goes on from there")));
    }
}

void TellChanges(Cli& cli, Input& input, const StoreName& name) {
    std::error_code error;
    const auto file = FileOf(name);
    const bool isNew = file && !std::filesystem::exists(*file, error) && !error;
    std::optional<Store> store;
    std::optional<ReadLock> lock;
    if (isNew) {
        ExpectFolder(name);
    } else {
        store.emplace(name, file ? Store::IfMissing::kFail : Store::IfMissing::kCreate);
        store->ExpectNoText();
        lock.emplace(*store);
    }
    LastWords words(input.Repeated());
    if (input.Repeated().Any())
        input.ForEach([&](const WString& path, Record& record) { words.Take(path, record); });
    std::ostream nowhere(nullptr);
    DryRun run(store ? &*store : nullptr, words, cli.Quiet() ? nowhere : std::cout, cli.Colored());
    input.ForEach([&](const WString& path, Record& record) { run.Take(path, record); });
    if (isNew || run.ChangesAnything()) cli.SetExitStatus(kExitNo);
}

// The file is read and understood whole before the store is touched.
void Import(Cli& cli, const StoreName& name, const ImportArguments& args) {
    if (args.dryRun && !args.undo.empty()) throw UsageError("expected either --dry-run or --undo");
    if (KindOf(FilePath(args.file)) == Kind::kExportFolder)
        throw std::runtime_error(
            fmt::format("cannot read file {0}: it is a folder of exports; fbr copy {0} --to {1} "
                        "takes all of it",
                        args.file, args.store));
    Input input(args, name);
    input.Check();
    if (args.dryRun) {
        TellChanges(cli, input, name);
        return input.TellLeftOut(cli);
    }
    auto undo = UndoFile(args);
    Store store(name, Store::IfMissing::kCreate);
    DoAndClose(store, [&] {
        const WriteLock lock(store);
        if (undo) WriteUndo(input, store, *undo);
        ApplyAll(input, store, args);
    });
    input.TellLeftOut(cli);
}

}  // namespace

void AddImportCommand(Cli& cli) {
    const auto args = std::make_shared<ImportArguments>();
    cli.Add("import", "Read a file of text into a store, made if missing")
        .No("with --dry-run: something would change")
        .Example("fbr import settings.fbr settings.reg --undo old.reg")
        .Example("fbr import settings.fbr settings.reg --dry-run")
        .Example("fbr export one.fbr | fbr import two.fbr -")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("FILE", args->file, Need::kRequired, "a .reg or .jsonl file; - for standard input")
        .Choice("--format", args->format, {"reg", "jsonl"},
                "reg or jsonl; seen from the file if not given")
        .Text("--prefix KEY", args->prefix, Need::kOptional,
              "a key to take off: all keys must stand below it")
        .Flag("--dry-run", args->dryRun, "tell what would change, and change nothing")
        .Flag("--lenient", args->lenient,
              "leave out lines that cannot be taken; without it they keep the file from being "
              "applied")
        .Text("--undo FILE", args->undo, Need::kOptional,
              "write a .reg file before, which brings the old state back when it is imported")
        .Does([&cli, args] { Import(cli, cli.StoreToMake(args->store), *args); });
}

}  // namespace fbr
