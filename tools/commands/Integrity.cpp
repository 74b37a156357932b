// SPDX-License-Identifier: MIT
// Commands for the soundness and the size of a container: check, repair, compact.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "storage/StorageApi.h"
#include "storage/lifecycle/RunLock.h"
#include "tools/commands/Cli.h"
#include "tools/commands/Findings.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/format/Json.h"
#include "tools/format/Reason.h"
#include "tools/format/Text.h"
#include "tools/inspect/Image.h"
#include "tools/store/Kind.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

constexpr uint32_t kLastPass = 4;  // codes of FBR_CheckCallback; what is found has higher ones
constexpr const char* kPasses[kLastPass] = {
    "Reading pages:", "Following references:", "Looking for lost pages:", "Writing the page map:"};

// One run, as its callback sees it.
struct CheckRun {
    uint32_t mapGroup = 0;  // pages from one map page to the next
    bool logIsPending = false;
    std::optional<Progress> progress;
    uint32_t pass = 0;
    uint32_t pages = 0;
    std::vector<Finding> findings;

    void Pass(uint32_t code, uint32_t done, uint32_t total);
    Rule RuleOf(uint32_t code, uint32_t page) const;
};
CheckRun* g_run = nullptr;  // a callback is not told whose it is

void CheckRun::Pass(uint32_t code, uint32_t done, uint32_t total) {
    pages = total;
    if (code != pass) {
        pass = code;
        progress.emplace(kPasses[code - 1], total);
    }
    progress->At(done);
}

Rule CheckRun::RuleOf(uint32_t code, uint32_t page) const {
    if (static_cast<Rule>(code) != Rule::kBadReference) return static_cast<Rule>(code);
    if (page == 1) return logIsPending ? Rule::kBadLog : Rule::kWrongSuperblock;
    if (page == pages) return Rule::kPartialPage;
    return page % mapGroup == 0 ? Rule::kWrongMap : Rule::kBadReference;
}

void Told(void* userData, uint32_t code, uint32_t a, uint32_t b, uint8_t,
          uint8_t* cancel) noexcept {
    if (code <= kLastPass) {
        g_run->Pass(code, a, b);
    } else {
        const Rule rule = g_run->RuleOf(code, a);
        const bool named = rule == Rule::kBadEntry && userData != nullptr;
        g_run->findings.push_back(
            {rule, a, named ? static_cast<const WChar*>(userData) : WString()});
    }
    if (WasInterrupted()) *cancel = 1;
}

// The file of the trace is opened with a store, and a check opens none: an opening that cannot
// succeed does it.
void OpenTrace() {
    FBR_STORE none = nullptr;
    FBR_InitialiseEx(Wide(".").c_str(), &none, FS_VR_METHOD_TARN);
}

constexpr const char* kInUse = "somebody else has it in use, try again when they are done";

[[noreturn]] void Fail(const std::string& file, bool repair, FBR_STATUS status) {
    const char* verb = repair ? "repair" : "check";
    if (WasInterrupted()) {
        throw Interrupted(fmt::format("{} of {} was stopped before its end{}", verb, file,
                                      repair ? "; nothing was changed" : ""));
    }
    const char* why = status == FSSTATUS_LOCK_FAILED ? kInUse
                      : repair && status == FSSTATUS_FILE_CORRUPT
                          ? "its redo log cannot be replayed, and nothing was changed; repair "
                            "--discard-log gives the log up"
                      : repair ? "it cannot be written, or its root is lost"
                               : "it cannot be read to its end, or its root is lost";
    const char* rest = status == FSSTATUS_FAILED ? "; fbr salvage reads what is left" : "";
    throw StoreError(
        fmt::format("cannot {} {}: {}; {}{}", verb, file, StatusText(status), why, rest), status);
}

struct CheckArguments {
    std::string store;
    bool discardLog = false, dryRun = false, noBackup = false;
};

FBR_STATUS InFront(storage::Status status) {
    switch (status) {
        case storage::kOk:
            return FSSTATUS_SUCCESS;
        case storage::kSharing:
            return FSSTATUS_LOCK_FAILED;
        case storage::kCorrupt:
            return FSSTATUS_FILE_CORRUPT;
        default:
            return FSSTATUS_FAILED;
    }
}

// The engine under a lock that the caller has, so that nobody comes between what is looked at, what
// is copied and what is mended.
storage::Status RunLocked(const WString& path, uint32_t flags) {
    WChar name[64] = {};
    return storage::StorageCheckAndRepair(path.c_str(), nullptr,
                                          flags | storage::kCheckDeep | storage::kCheckLocked,
                                          nullptr, nullptr, name, &Told);
}

// The file as it is, under the first free name beside it.
std::string CopyBeside(const std::string& file) {
    const std::filesystem::path from(Wide(file));
    for (int number = 1;; ++number) {
        std::string name =
            file + ".before-repair" + (number == 1 ? "" : "-" + std::to_string(number));
        const std::filesystem::path to(Wide(name));
        if (std::filesystem::exists(std::filesystem::symlink_status(to))) continue;
        // Under its name it stands whole, whatever ends this.
        std::filesystem::path part = to;
        part += ".part";
        std::error_code error;
        if (std::filesystem::copy_file(from, part,
                                       std::filesystem::copy_options::overwrite_existing, error))
            std::filesystem::rename(part, to, error);
        if (!error) return name;
        std::filesystem::remove(part);
        throw std::runtime_error(
            fmt::format("cannot copy {} to {}: {}; nothing was changed, and --no-backup repairs "
                        "without a copy",
                        file, name, error.message()));
    }
}

struct Report {
    std::vector<Finding> findings;
    std::vector<Explanation> explanations;
    bool mended = false;
    std::string copy;  // of the file as it was, where one was made

    void Take(CheckRun& run, const std::string& file);
    bool Has(Rule rule) const;
    std::string Json(const std::string& file, uint32_t pages, int status) const;
};

void Report::Take(CheckRun& run, const std::string& file) {
    run.progress.reset();
    findings = std::move(run.findings);
    DropEchoes(findings);
    Explainer explainer(file);
    for (const Finding& finding : findings) explanations.push_back(explainer.Explain(finding));
}

bool Report::Has(Rule rule) const {
    return std::any_of(findings.begin(), findings.end(),
                       [rule](const Finding& finding) { return finding.rule == rule; });
}

std::string Report::Json(const std::string& file, uint32_t pages, int status) const {
    std::string list;
    for (size_t i = 0; i < findings.size(); ++i)
        list += (i == 0 ? "" : ",") + FindingInJson(findings[i], explanations[i]);
    JsonObject object(JsonObject::Place::kLine);
    object.Text("store", file).Number("pages", pages).Json("findings", "[" + list + "]");
    if (!copy.empty()) object.Text("copy", copy);
    return object.True("mended", mended).Number("status", static_cast<uint64_t>(status)).Done();
}

// Looks first, and copies the file only when there is something to mend.
FBR_STATUS Mend(const CheckArguments& arguments, const std::string& file, CheckRun& run,
                Report& report) {
    const WString path = Wide(file);
    storage::RunLock lock;
    storage::Status status = lock.Take(path.c_str(), false);
    if (status == storage::kOk) status = RunLocked(path, storage::kCheckOnly);
    report.Take(run, file);
    if (status != storage::kOk) return InFront(status);
    if (report.Has(Rule::kBadLog) && !arguments.discardLog) return FSSTATUS_FILE_CORRUPT;
    const bool clean = report.findings.empty() && !run.logIsPending;
    if (!clean && !arguments.noBackup) report.copy = CopyBeside(file);
    status = RunLocked(path, arguments.discardLog ? storage::kCheckDiscardLog : 0);
    run.progress.reset();
    report.mended = status == storage::kOk && !report.findings.empty();
    const bool untouched = status == storage::kCancelled || status == storage::kReadOnly;
    if (untouched && !report.copy.empty())
        std::filesystem::remove(std::filesystem::path(Wide(report.copy)));
    return InFront(status);
}

FBR_STATUS Look(const std::string& file, CheckRun& run, Report& report) {
    const FBR_STATUS status = FBR_CheckFileEx(Wide(file).c_str(), &Told);
    report.Take(run, file);
    return status;
}

void Print(const std::string& file, const CheckRun& run, const Report& report, const char* what) {
    if (!report.copy.empty()) std::cout << file << ": a copy as it was is " << report.copy << '\n';
    std::cout << fmt::format("{}: {} pages, {}\n", file, run.pages,
                             FindingsInWords(report.findings, what));
}

void Check(Cli& cli, const CheckArguments& arguments, bool repair) {
    const std::string file = cli.ContainerAt(arguments.store);
    CheckRun run;
    {
        const Image image(file, 0);  // also refuses a file that is no container
        run.mapGroup = image.PageSize() / 2;
        const PageBytes super = image.Raw(1);
        run.logIsPending = super[12] != 0 || super[13] != 0;
    }
    const bool mends = repair && !arguments.dryRun;
    if (mends) ExpectChangeable(file);
    if (cli.Traces()) OpenTrace();
    g_run = &run;
    const InterruptGuard guard;
    Report report;
    FBR_STATUS status = FSSTATUS_FAILED;
    try {
        status = mends ? Mend(arguments, file, run, report) : Look(file, run, report);
    } catch (const Interrupted&) {
        status = FSSTATUS_FAILED;  // with as many findings as were explained
    }
    g_run = nullptr;
    for (size_t i = 0; i < report.explanations.size() && !cli.Json(); ++i)
        std::cout << FindingLine(report.findings[i], report.explanations[i]) << '\n';
    if (status != FSSTATUS_SUCCESS) Fail(file, repair, status);
    if (!report.findings.empty()) cli.SetExitStatus(kExitNo);
    if (cli.Json())
        std::cout << report.Json(file, run.pages, cli.Status()) << '\n';
    else
        Print(file, run, report, !repair ? "" : arguments.dryRun ? ", not mended" : ", mended");
}

// A store on a cluster, whose faults the library tells one by one.
void CheckShared(Cli& cli, const StoreName& name) {
    Store store(name, Store::IfMissing::kFail);
    cli.FindsDamage();
    FBR_FileChecking(true);
    const FBR_STATUS status = FBR_CheckFile(store.Handle());
    FBR_FileChecking(false);
    const bool isDamaged = status == FSSTATUS_FILE_CORRUPT;
    if (status != FSSTATUS_SUCCESS && !isDamaged)
        store.ThrowFailed("cannot check " + store.Name(), status);
    store.Close();
    if (isDamaged) cli.SetExitStatus(kExitNo);
    if (cli.Json())
        std::cout << JsonObject(JsonObject::Place::kLine)
                         .Text("store", name.Shown())
                         .True("damaged", isDamaged)
                         .Number("status", static_cast<uint64_t>(cli.Status()))
                         .Done()
                  << '\n';
    else
        std::cout << name.Shown()
                  << (isDamaged ? ": the records that were told are damaged\n"
                                : ": no damage was found\n");
}

void CompactShared(const Cli& cli, const StoreName& name) {
    Store store(name, Store::IfMissing::kFail);
    {
        const WriteLock lock(store);
        uint32_t done = 0;
        const FBR_STATUS status = FBR_Compact(store.Handle(), &done);
        if (status != FSSTATUS_SUCCESS) store.ThrowFailed("cannot compact " + store.Name(), status);
    }
    store.Close();
    if (!cli.Json()) {
        std::cout << name.Shown() << ": what nothing leads to is deleted\n";
        return;
    }
    std::cout << JsonObject(JsonObject::Place::kLine)
                     .Text("store", name.Shown())
                     .Number("status", static_cast<uint64_t>(cli.Status()))
                     .Done()
              << '\n';
}

struct Extent {
    explicit Extent(const std::string& file) {
        const Image image(file, 0);
        pages = image.PageCount();
        bytes = image.FileSize();
    }
    std::string Shown() const { return fmt::format("{:8} pages  {:12} bytes", pages, bytes); }
    std::string Json() const {
        return JsonObject().Number("pages", pages).Number("bytes", bytes).Done();
    }
    uint64_t pages = 0, bytes = 0;
};

// Of what the engine gives no words for.
std::string ReasonOfEngine(storage::Status status) {
    switch (status) {
        case storage::kCorrupt:
            return "it is damaged: fbr repair mends it";
        case storage::kReadOnly:
        case storage::kAccess:
            return ReasonOf(platform::kErrorAccessDenied);
        case storage::kNoMemory:
            return ReasonOf(platform::kErrorOutOfMemory);
        default:
            return status > 0
                       ? ReasonOf(static_cast<platform::Error>(status))
                       : fmt::format("the engine ends with {}: fbr check tells more", status);
    }
}

void Compact(const Cli& cli, const std::string& path) {
    const std::string file = cli.ContainerAt(path);
    const Extent before(file);
    ExpectChangeable(file);
    const InterruptGuard guard;
    const storage::Status status = storage::StorageCompactFile(
        Wide(file).c_str(), nullptr, [](void*) { return !WasInterrupted(); });
    if (status == storage::kCancelled || (status == storage::kSharing && WasInterrupted()))
        throw Interrupted(
            fmt::format("compaction of {} was stopped before its end; the store is sound", file));
    if (status == storage::kSharing)
        throw StoreError(fmt::format("cannot compact {}: {}", file, kInUse), FSSTATUS_LOCK_FAILED);
    if (status != storage::kOk)
        throw std::runtime_error(
            fmt::format("cannot compact {}: {}; the store is as sound as it was", file,
                        ReasonOfEngine(status)));
    const Extent after(file);
    if (!cli.Json()) {
        std::cout << "before  " << before.Shown() << "\nafter   " << after.Shown() << '\n';
        return;
    }
    std::cout << JsonObject(JsonObject::Place::kLine)
                     .Text("store", file)
                     .Json("before", before.Json())
                     .Json("after", after.Json())
                     .Number("status", static_cast<uint64_t>(cli.Status()))
                     .Done()
              << '\n';
}

}  // namespace

void AddIntegrityCommands(Cli& cli) {
    const auto store = std::make_shared<std::string>();
    const auto check = std::make_shared<CheckArguments>();
    constexpr const char* kFile = "the container's file";

    constexpr const char* kFileOrCluster = "the container's file, or a store on a cluster";
    const auto isShared = [&cli](const std::string& path) {
        const StoreName name = cli.StoreAt(path);
        return name.method == FS_VR_METHOD_CLUSTER && path.find('|') == path.npos;
    };

    cli.Add("check",
            "Look for damage in a container or a store on a cluster; exit status 3 when there is "
            "some")
        .Tells()
        .No("there are findings")
        .Example("fbr check settings.fbr")
        .Example("fbr check --wait 0 settings.fbr")
        .Text("STORE", check->store, Need::kRequired, kFileOrCluster)
        .Does([&cli, check, isShared] {
            if (isShared(check->store)) return CheckShared(cli, cli.StoreAt(check->store));
            Check(cli, *check, false);
        });

    cli.Add("repair", "Mend the damage in a container; exit status 3 when there was some")
        .Tells()
        .No("there were findings, which are mended unless --dry-run is given")
        .Example("fbr repair settings.fbr")
        .Example("fbr repair --dry-run settings.fbr")
        .Text("STORE", check->store, Need::kRequired, kFile)
        .Flag("--dry-run", check->dryRun, "tell what it would do, and change nothing")
        .Flag("--no-backup", check->noBackup, "no copy of the file as it was beside it")
        .Flag("--discard-log", check->discardLog, "give up a redo log that cannot be replayed")
        .Does([&cli, check] { Check(cli, *check, true); });

    cli.Add("compact",
            "Give the free pages of a container back to the disk; on a cluster, delete what is "
            "left over")
        .Tells()
        .Example("fbr compact settings.fbr")
        .Example("fbr compact --wait 0 settings.fbr")
        .Text("STORE", *store, Need::kRequired, kFileOrCluster)
        .Does([&cli, store, isShared] {
            if (isShared(*store)) return CompactShared(cli, cli.StoreAt(*store));
            Compact(cli, *store);
        });
}

}  // namespace fbr
