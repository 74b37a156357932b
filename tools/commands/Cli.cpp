// SPDX-License-Identifier: MIT
#include "tools/commands/Cli.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <streambuf>
#include <string_view>
#include <thread>
#include <utility>

#include "Shared/logging/Logger.h"
#include "include/ZrFsVersion.h"
#include "tools/commands/Grammar.h"
#include "tools/commands/Methods.h"
#include "tools/commands/Wrong.h"
#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/console/Rehearsal.h"
#include "tools/console/TellError.h"
#include "tools/format/Json.h"
#include "tools/format/Reason.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/Kind.h"
#include "tools/store/Waiting.h"

namespace fbr {
namespace {

// "--to --to-method M STORE" means "--to-method M --to STORE": the parser would have --to without
// its words.
void PutMethodFirst(std::vector<std::string>& words) {
    const auto to = std::find(words.begin(), words.end(), "--to");
    if (words.end() - to < 2 || !to[1].starts_with("--to-method")) return;
    const bool joined = to[1].find('=') != std::string::npos;
    std::rotate(to, to + 1, std::min(to + (joined ? 2 : 3), words.end()));
}

// Told with where the help is.
[[noreturn]] void ThrowWrong(const std::string& expected) {
    throw CLI::ParseError(expected, CLI::ExitCodes::ConversionError);
}

// By what its word is called: an empty one is no file's name and no store's, and would pass for one
// that was not given.
void ExpectName(const std::string& word, const std::string& called, std::string name) {
    if (!word.empty()) return;
    name.erase(0, name.find(',') + 1);
    for (const char* of : {"STORE", "FILE", "DIR"})
        if (called.substr(0, called.find(' ')) == of)
            ThrowWrong(fmt::format("expected a name for {}, not \"\"", name));
}

// They are called `called` in the help.
CLI::Option& AddWords(CLI::App& app, const char* name, std::vector<std::string>& target,
                      const char* called, const char* description) {
    const auto take = [&target, name, called](const std::vector<std::string>& words) {
        if (!words.empty()) ExpectName(words.front(), called, name);
        for (const std::string& word : words) target.push_back(Unshielded(word));
    };
    CLI::Option& option =
        *app.add_option_function<std::vector<std::string>>(name, take, description);
    option.type_name(called);
    return option;
}

class NullBuffer : public std::streambuf {
  protected:
    int_type overflow(int_type byte) override { return traits_type::not_eof(byte); }
    std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
};

// Standard output goes there, for as long as one stands.
class MutedOutput {
  public:
    explicit MutedOutput(std::streambuf* there)
        : before_(there != nullptr ? std::cout.rdbuf(there) : nullptr) {}
    ~MutedOutput() {
        if (before_ != nullptr) std::cout.rdbuf(before_);
    }
    MutedOutput(const MutedOutput&) = delete;
    MutedOutput& operator=(const MutedOutput&) = delete;

  private:
    std::streambuf* const before_;
};

// Behind the name of an option stands what its word is called.
template <typename Target>
void AddText(CLI::App& app, std::string name, Target& target, Need need, const char* description) {
    const size_t blank = std::min(name.find(' '), name.size());
    const std::string word = name.substr(std::min(blank + 1, name.size()));
    name.resize(blank);
    const auto take = [&target, name, word](const std::string& text) {
        target = Unshielded(text);
        ExpectName(text, word.empty() ? name : word, name);
    };
    app.add_option_function<std::string>(name, take, description)
        ->type_name(word)
        ->required(need == Need::kRequired);
}

int ExitStatusOf(const StoreError& error) {
    const bool busy =
        error.Status() == FSSTATUS_LOCK_FAILED || error.Status() == FSSTATUS_SHARING_VIOLATION;
    return busy ? kExitBusy : kExitFailed;
}

int Report(const std::string& text, int status) {
    TellError(text);
    return status;
}

// With words for the system's error that the library puts behind what it says, "[112]".
std::string WithReason(const std::string& message) {
    const size_t open = message.rfind(" [");
    if (open == std::string::npos || !message.ends_with(']')) return message;
    const auto error = ParseNumber(message.substr(open + 2, message.size() - open - 3), UINT32_MAX);
    if (!error) return message;
    return message.substr(0, open) + ": " + ReasonOf(static_cast<platform::Error>(*error));
}

std::string MethodHelp() {
    return fmt::format(
        "how the store is kept, where its name does not tell: {}, or a number; remote-container is "
        "a container behind a server, and etcd:// in front of HOST:PORT,.../PREFIX tells a cluster",
        fmt::join(MethodWords(), ", "));
}

// The status of a command all of whose output is where it belongs.
int WrittenOut(int status) {
    if (std::cout.flush()) return status;
    if (WasOutputBroken()) return kExitInterrupted;
    return Report("cannot write to standard output", kExitFailed);
}

}  // namespace

Command& Command::Text(const char* name, std::string& target, Need need, const char* description) {
    AddText(*app_, name, target, need, description);
    return *this;
}

Command& Command::Text(const char* name, std::optional<std::string>& target, Need need,
                       const char* description) {
    AddText(*app_, name, target, need, description);
    return *this;
}

Command& Command::StoreAndKey(std::string& store, std::string& key) {
    return Text("STORE", store, Need::kRequired, "the store")
        .Text("KEY", key, Need::kOptional, "the key; the root if not given");
}

Command& Command::Texts(const char* name, std::vector<std::string>& target,
                        const char* description) {
    AddWords(*app_, name, target, "", description);
    return *this;
}

Command& Command::Words(const char* name, std::vector<std::string>& target, const char* words,
                        std::pair<int, int> count, Need need, const char* description) {
    AddWords(*app_, name, target, words, description)
        .expected(count.first, count.second)
        ->required(need == Need::kRequired);
    return *this;
}

Command& Command::Choice(const char* name, std::string& target, std::vector<std::string> choices,
                         const char* description, Need need) {
    app_->add_option(name, target, description)
        ->check(CLI::IsMember(std::move(choices)))
        ->required(need == Need::kRequired);
    return *this;
}

Command& Command::Number(const char* name, uint64_t& target, const char* description, Need need) {
    const auto take = [name, &target](const std::string& word) {
        const auto number = ParseNumber(word, UINT64_MAX);
        if (!number) ThrowWrong(fmt::format("expected a number for {}, not \"{}\"", name, word));
        target = *number;
    };
    app_->add_option_function<std::string>(name, take, description)
        ->type_name(name[0] == '-' ? "NUMBER" : "")
        ->required(need == Need::kRequired);
    return *this;
}

Command& Command::Flag(const char* name, bool& target, const char* description) {
    app_->add_flag(name, target, description);
    return *this;
}

Command& Command::Example(const char* line) {
    notes_->examples.emplace_back(line);
    return *this;
}

Command& Command::No(const char* meaning) {
    notes_->no = meaning;
    return *this;
}

Command& Command::Tells() {
    notes_->tells = true;
    return *this;
}

void Command::Does(std::function<void()> work) {
    app_->callback([cli = cli_, notes = notes_, name = app_->get_name(), work = std::move(work)] {
        if (cli->Json() && !notes->tells)
            throw UsageError(fmt::format("expected no --json with {}", name));
        NullBuffer nothing;
        const MutedOutput muted(cli->Quiet() && notes->tells ? &nothing : nullptr);
        work();
    });
}

Cli::Cli()
    : app_(std::make_unique<CLI::App>("Looks at, changes and carries small registries.", "fbr")) {
    app_->allow_windows_style_options(false);
    app_->require_subcommand(1);
    app_->set_version_flag("--version", "fbr " ZRFS_VERSION);
    Command(this, app_.get(), nullptr)
        .Text("--method METHOD", method_, Need::kOptional, MethodHelp().c_str())
        .Text("--trace DIR", traceFolder_, Need::kOptional,
              "write what the library does to logs/FBR_PROCESS.log in this folder; they are made "
              "if missing")
        .Choice("--trace-level", traceLevel_, {"1", "3", "4"},
                "how much of it: 1 failures, 3 detail, 4 all (the default)")
        .Text("--wait SECONDS", wait_, Need::kOptional,
              "seconds to wait for the lock of a store that is in use; 60 if not given, 0 for not "
              "at all")
        .Flag("--json", json_, "the answer as JSON, one object a line, for commands that have one")
        .Flag("--quiet", quiet_,
              "no progress; of commands that answer by their exit status (those with --json, and "
              "import --dry-run) no answer but that")
        .Choice(
            "--color", color_, {"auto", "always", "never"},
            "colours: auto (the default; on a terminal, unless NO_COLOR is set), always, never");
    app_->parse_complete_callback([this] {
        if (quiet_) Progress::Hide();
        LimitWait();
        if (!Rehearsal::Stands()) StartTrace();
    });
    app_->failure_message([this](const CLI::App*, const CLI::Error& error) {
        const std::string wrong =
            fmt::format("fbr: {}\n", Printable(where_ + WhatIsWrong(*app_, error)));
        if (!where_.empty()) return wrong;
        return wrong + (inShell_ ? "Type \"help\" or \"help COMMAND\".\n"
                                 : "Run \"fbr --help\" or \"fbr COMMAND --help\".\n");
    });
    app_->footer("Exit status:\n" + ExitStatusLines("differences, findings, nothing found"));
}

Cli::~Cli() = default;

std::vector<std::string> Cli::SharedWords() const {
    std::vector<std::string> words;
    if (wait_) words.insert(words.end(), {"--wait", *wait_});
    if (quiet_) words.emplace_back("--quiet");
    if (color_ != "auto") words.insert(words.end(), {"--color", color_});
    if (Traces())
        words.insert(words.end(), {"--trace", traceFolder_, "--trace-level", traceLevel_});
    return words;
}

Grammar Cli::AsGrammar() const {
    return GrammarOf(*app_, notes_);
}

void Cli::LimitWait() const {
    if (!wait_) return SetWait(std::nullopt);
    const auto seconds = ParseNumber(*wait_, UINT64_MAX);
    if (!seconds)
        ThrowWrong(fmt::format("expected a number of seconds for --wait, not \"{}\"", *wait_));
    SetWait(*seconds);
}

void Cli::TellLoss(const std::string& text) {
    SetExitStatus(Report(where_ + text, kExitFailed));
}

void Cli::StartTrace() {
    if (traceFolder_.empty()) return;
    const WString folder = Wide(traceFolder_);
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(folder) / "logs", error);
    if (error) {
        throw std::runtime_error(
            fmt::format("cannot trace to {}: cannot make its folder \"logs\"", traceFolder_));
    }
    FBR_Logging(true, folder.c_str(), static_cast<uint32_t>(traceLevel_.front() - '0'), false);
}

Command Cli::Add(const char* name, const char* description) {
    CLI::App* command = app_->add_subcommand(name, description)->fallthrough();
    Notes* notes = &notes_.emplace_back();
    command->footer("");  // not that of all
    command->footer([this, notes] { return HelpFooter(*app_, *notes, !inShell_); });
    return Command(this, command, notes);
}

StoreName Cli::StoreAt(const std::string& path) const {
    return StoreAt(path, method_);
}

StoreName Cli::StoreAt(const std::string& path, const std::string& method) {
    const FBR_METHOD given = method.empty() ? FBR_METHOD{} : ParseMethod(method);
    const bool namesIt = given == FS_VR_METHOD_CLUSTER && ClusterAt(path) != std::string::npos;
    return method.empty() || namesIt ? Recognise(path) : StoreName{path, given};
}

StoreName Cli::StoreToMake(const std::string& path, const std::string& method) {
    return method.empty() ? RecogniseNew(path) : StoreAt(path, method);
}

std::string Cli::ContainerAt(const std::string& path) const {
    const StoreName name = StoreAt(path);
    const auto file = FileOf(name);
    const std::string kind = method_.empty() ? KindInWords(name) : "";
    if (name.isText || (file && kind == "a hive")) {
        throw std::runtime_error(
            fmt::format("cannot read {}: it is {}, and this command works on containers; fbr copy "
                        "{} --to NEW makes one",
                        path, kind, path));
    }
    if (name.method != FS_VR_METHOD_TARN || !file) {
        throw UsageError(fmt::format("expected a container on this machine, not {}{}", path,
                                     method_.empty() ? "" : " with --method " + method_));
    }
    if (KindOf(*file) == Kind::kEmpty)
        throw std::runtime_error(
            fmt::format("cannot read {}: it is empty: remove it, and fbr create "
                        "makes a store of that name",
                        path));
    const std::u8string text = file->u8string();
    return std::string(text.begin(), text.end());
}

// What the library warns of in a hive's file, and what a cluster says, goes to standard error; all
// else that it logs is for those who mend it, and tells a person nothing that the failed operation
// does not tell. That a hive could be read in part only, or that records on a cluster are none, is
// a loss: the command did not give all that there is.
void Cli::HearWarnings() {
    namespace log = Varnhold::Hob::Detail;
    log::Logger::Instance().AddSink(
        log::kWarning, [](int severity) { return severity <= log::kWarning; },
        [this, last = std::string(),
         thread = std::this_thread::get_id()](const log::LogRecord& record) mutable {
            if (std::this_thread::get_id() != thread) return;  // that tries by itself again
            const std::string_view file = record.file;
            const bool loss =
                file == "offreg/OfflineRegistry" || file == "FS_Library_DLL/ClusterStore";
            const bool heard = loss || file == "FS_Library_DLL/FsOfflineRegistryImpl" ||
                               file == "FS_Library_DLL/EtcdHttp" ||
                               file == "FS_Library_DLL/FsClusterImpl" ||
                               file == "FS_Library_DLL/StoreLock";
            if (!heard) return;
            if (std::exchange(last, record.message) == record.message) return;  // tried again
            const int status = Report(WithReason(record.message), kExitFailed);
            if (loss && !findsDamage_) SetExitStatus(status);
        });
}

int Cli::Run(std::vector<std::string> words) {
    HearWarnings();
    inShell_ = !words.empty() && words[0] == kInShell;
    if (inShell_) words.erase(words.begin());
    const int status = RunOne(std::move(words));
    if (status == kExitInterrupted) EndInterrupted();
    return status;
}

void Cli::Parse(std::vector<std::string> words) {
    PutMethodFirst(words);
    // Known also when the words are wrong before the parser comes to it.
    const auto data = std::find(words.begin(), words.end(), "--");
    json_ = std::find(words.begin(), data, "--json") != data;
    for (std::string& word : words) word = Shielded(std::move(word));
    std::reverse(words.begin(), words.end());
    app_->parse(std::move(words));
}

// The parser throws what is wrong with the words, and the help and the version, too.
int Cli::EndOfParse(const CLI::ParseError& error) const {
    if (inShell_)
        for (CLI::App* command : app_->get_subcommands()) HideStore(*command);
    if (error.get_exit_code() != 0) TellProgram(WhatIsWrong(*app_, error), kExitUsage);
    return app_->exit(error, std::cout, std::cerr) == 0 ? WrittenOut(kExitOk) : kExitUsage;
}

bool Cli::Rehearse(std::vector<std::string> words) {
    const Rehearsal rehearsal;
    try {
        Parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 || EndOfParse(error) == kExitOk;
    } catch (const UsageError& error) {
        return Fail(error.what(), kExitUsage) == kExitOk;
    } catch (const DataError& error) {
        return Fail(error.what(), kExitUsage) == kExitOk;
    } catch (const Rehearsed&) {
    } catch (const StoreError& error) {
        if (error.Status() == FSSTATUS_INVALID_NAME)
            return Fail(error.what(), kExitUsage) == kExitOk;
    } catch (const std::exception&) {  // what is there may be another thing when it is done
    }
    return true;
}

int Cli::RunOne(std::vector<std::string> words) {
    try {
        Parse(std::move(words));
        const int status = WrittenOut(exitStatus_);
        if (WasOutputBroken()) return kExitInterrupted;
        if (WasInterrupted()) throw Interrupted("stopped when all of it was done");
        return status;
    } catch (const CLI::ParseError& error) {
        return EndOfParse(error);
    } catch (const UsageError& error) {
        return Fail(error.what(), kExitUsage);
    } catch (const DataError& error) {
        return Fail(error.what(), kExitUsage);
    } catch (const Interrupted& interrupted) {
        if (*interrupted.what() != 0) Fail(interrupted.what(), kExitInterrupted);
        return kExitInterrupted;
    } catch (const StoreError& error) {
        return Fail(error.what(), ExitStatusOf(error));
    } catch (const std::bad_alloc&) {
        return Fail("out of memory", kExitFailed);
    } catch (const std::exception& error) {
        if (WasOutputBroken()) return kExitInterrupted;
        return Fail(error.what(), kExitFailed);
    }
}

// A program that reads objects finds out by one.
void Cli::TellProgram(const std::string& error, int status) const {
    if (!json_ || quiet_) return;
    std::cout << JsonObject(JsonObject::Place::kLine)
                     .Number("status", static_cast<uint64_t>(status))
                     .Text("error", error)
                     .Done()
              << '\n';
}

int Cli::Fail(const std::string& text, int status) const {
    TellProgram(text, status);
    return Report(where_ + text, status);
}

bool Cli::Colored() const {
    if (color_ != "auto") return color_ == "always";
    return OutputIsTerminal() && std::getenv("NO_COLOR") == nullptr;
}

WString Wide(const std::string& text) {
    WString out;
    if (!FromStrictUtf8(text, out)) throw UsageError("expected arguments in UTF-8");
    return out;
}

WString KeyArgument(const std::string& text) {
    WString path = NormalKeyPath(Wide(text));
    if (path.find(WTEXT("\\\\")) != WString::npos) {
        throw UsageError(
            fmt::format("expected names joined by single backslashes, not \"{}\"", text));
    }
    return path;
}

}  // namespace fbr
