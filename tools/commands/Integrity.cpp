// SPDX-License-Identifier: MIT
// Commands for the soundness and the size of a container: check, repair, compact.
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <memory>
#include <optional>
#include <set>

#include "storage/StorageApi.h"
#include "tools/commands/Cli.h"
#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/format/Json.h"
#include "tools/format/Text.h"
#include "tools/inspect/Image.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

// Codes of FBR_CheckCallback.
constexpr uint32_t kLastPass = 4;
constexpr const char* kPasses[kLastPass] = {
    "Reading pages:", "Following references:", "Looking for lost pages:", "Writing the page map:"};
constexpr uint32_t kBadField = 8, kLostPage = 9, kBadEntry = 15;
// What a bad field is where the page tells it.
constexpr uint32_t kWrongMap = 100, kWrongSuperblock = 101, kPartialPage = 102, kBadLog = 103;
struct FindingText {
    uint32_t code;
    const char* rule;
    const char* line;
    const char* one;
    const char* many;
};
constexpr FindingText kFindings[] = {
    {kBadField, "bad-reference", "bad reference to or from another page", "bad reference",
     "bad references"},
    {kLostPage, "lost-page", "lost page, in use to the page map but nothing refers to it",
     "lost page", "lost pages"},
    {kBadEntry, "bad-entry", "bad directory entry", "bad directory entry", "bad directory entries"},
    {kWrongMap, "wrong-map", "wrong page map", "wrong map page", "wrong map pages"},
    {kWrongSuperblock, "wrong-superblock", "wrong superblock", "wrong superblock",
     "wrong superblocks"},
    {kPartialPage, "partial-page", "no whole page", "partial page", "partial pages"},
    {kBadLog, "bad-log", "redo log that cannot be replayed", "bad redo log", "bad redo logs"},
};
struct Finding {
    uint32_t code;
    uint32_t page;
    std::string name;  // of an entry
};

std::atomic<bool> g_stop = false;

// One run, as its callback sees it.
struct CheckRun {
    uint32_t mapGroup = 0;  // pages from one map page to the next
    bool logIsPending = false;
    std::optional<Progress> progress;
    uint32_t pass = 0;
    uint32_t pages = 0;
    std::vector<Finding> findings;

    void Pass(uint32_t code, uint32_t done, uint32_t total);
    void Found(uint32_t code, uint32_t page, const WChar* name);
    void DropEchoes();
    void Print(bool repair) const;
    std::string Json(const std::string& file, bool mended, int status) const;
    std::string Summary(bool repair) const;

  private:
    uint32_t Kind(uint32_t code, uint32_t page) const;
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

uint32_t CheckRun::Kind(uint32_t code, uint32_t page) const {
    if (code != kBadField) return code;
    if (page == 1) return logIsPending ? kBadLog : kWrongSuperblock;
    if (page == pages) return kPartialPage;
    return page % mapGroup == 0 ? kWrongMap : code;
}

void CheckRun::Found(uint32_t code, uint32_t page, const WChar* name) {
    findings.push_back({Kind(code, page), page, code == kBadEntry ? Printable(name) : ""});
}

// That a lost page is not referred to is told once: its own references lead nowhere, too.
void CheckRun::DropEchoes() {
    std::set<uint32_t> lost;
    for (const Finding& finding : findings)
        if (finding.code == kLostPage) lost.insert(finding.page);
    std::erase_if(findings, [&lost](const Finding& finding) {
        return finding.code == kBadField && lost.count(finding.page) != 0;
    });
}

const FindingText& TextOf(const Finding& finding) {
    return *std::find_if(std::begin(kFindings), std::end(kFindings),
                         [&](const FindingText& text) { return text.code == finding.code; });
}

void CheckRun::Print(bool repair) const {
    for (const Finding& finding : findings) {
        std::cout << "page " << finding.page << ": " << TextOf(finding).line;
        if (finding.code == kBadEntry) std::cout << " \"" << finding.name << '"';
        if (finding.code == kBadLog && !repair) std::cout << ": repair --discard-log gives it up";
        std::cout << '\n';
    }
}

std::string CheckRun::Json(const std::string& file, bool mended, int status) const {
    std::string list;
    for (const Finding& finding : findings) {
        JsonObject object;
        object.Text("rule", std::string(TextOf(finding).rule)).Number("page", finding.page);
        if (finding.code == kBadEntry) object.Text("name", finding.name);
        list += (list.empty() ? "" : ",") + object.Done();
    }
    return JsonObject(JsonObject::Place::kLine)
        .Text("store", file)
        .Number("pages", pages)
        .Json("findings", "[" + list + "]")
        .True("mended", mended)
        .Number("status", static_cast<uint64_t>(status))
        .Done();
}

std::string CheckRun::Summary(bool repair) const {
    if (findings.empty()) return "nothing found";
    std::string text = fmt::format("{} finding{}{}", findings.size(),
                                   findings.size() == 1 ? "" : "s", repair ? ", mended:" : ":");
    const char* separator = " ";
    for (const FindingText& kind : kFindings) {
        const auto count = std::count_if(findings.begin(), findings.end(),
                                         [&](const Finding& f) { return f.code == kind.code; });
        if (count == 0) continue;
        text += fmt::format("{}{} {}", separator, count, count == 1 ? kind.one : kind.many);
        separator = ", ";
    }
    return text;
}

void Told(void* userData, uint32_t code, uint32_t a, uint32_t b, uint8_t,
          uint8_t* cancel) noexcept {
    if (code <= kLastPass) {
        g_run->Pass(code, a, b);
    } else {
        g_run->Found(code, a, static_cast<const WChar*>(userData));
    }
    if (g_stop) *cancel = 1;
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
    if (g_stop) {
        throw Interrupted(fmt::format("{} of {} was stopped before its end{}", verb, file,
                                      repair ? "; nothing was changed" : ""));
    }
    const char* why = status == FSSTATUS_LOCK_FAILED ? kInUse
                      : repair && status == FSSTATUS_FILE_CORRUPT
                          ? "its redo log cannot be replayed, and nothing was changed; repair "
                            "--discard-log gives the log up"
                      : repair ? "it cannot be written, or its root is lost"
                               : "it cannot be read to its end, or its root is lost";
    throw StoreError(fmt::format("cannot {} {}: {}; {}", verb, file, StatusText(status), why),
                     status);
}

// The library's own repair replays a pending log; only the engine gives one up.
FBR_STATUS RepairWithoutLog(const WString& path) {
    WChar name[64] = {};
    const storage::Status status = storage::StorageCheckAndRepair(
        path.c_str(), nullptr, storage::kCheckDeep | storage::kCheckDiscardLog, nullptr, nullptr,
        name, &Told);
    if (status == storage::kOk) return FSSTATUS_SUCCESS;
    return status == storage::kSharing ? FSSTATUS_LOCK_FAILED : FSSTATUS_FAILED;
}

struct CheckArguments {
    std::string store;
    bool discardLog = false;
};

void Check(Cli& cli, const CheckArguments& arguments, bool repair) {
    const std::string file = cli.ContainerAt(arguments.store);
    CheckRun run;
    {
        const Image image(file, 0);  // also refuses a file that is no container
        run.mapGroup = image.PageSize() / 2;
        const PageBytes super = image.Raw(1);
        run.logIsPending = super[12] != 0 || super[13] != 0;
    }
    if (cli.Traces()) OpenTrace();
    g_run = &run;
    OnInterrupt([] { g_stop = true; });
    const WString path = Wide(file);
    const FBR_STATUS status = !repair ? FBR_CheckFileEx(path.c_str(), &Told)
                              : arguments.discardLog
                                  ? RepairWithoutLog(path)
                                  : FBR_CheckAndRepairFileEx(path.c_str(), &Told);
    OnInterrupt(nullptr);
    g_run = nullptr;
    run.progress.reset();
    run.DropEchoes();
    if (!cli.Json()) run.Print(repair);
    if (status != FSSTATUS_SUCCESS) Fail(file, repair, status);
    if (!run.findings.empty()) cli.SetExitStatus(kExitNo);
    if (cli.Json())
        std::cout << run.Json(file, repair && !run.findings.empty(), cli.Status()) << '\n';
    else
        std::cout << fmt::format("{}: {} pages, {}\n", file, run.pages, run.Summary(repair));
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

void Compact(const Cli& cli, const std::string& path) {
    const std::string file = cli.ContainerAt(path);
    const Extent before(file);
    OnInterrupt([] { g_stop = true; });
    const storage::Status status =
        storage::StorageCompactFile(Wide(file).c_str(), nullptr, [](void*) { return !g_stop; });
    OnInterrupt(nullptr);
    if (status == storage::kCancelled)
        throw Interrupted(
            fmt::format("compaction of {} was stopped before its end; the store is sound", file));
    if (status == storage::kSharing)
        throw StoreError(fmt::format("cannot compact {}: {}", file, kInUse), FSSTATUS_LOCK_FAILED);
    if (status != storage::kOk)
        throw std::runtime_error(
            fmt::format("cannot compact {}: status {}; the store is as sound as it was: fbr check "
                        "tells more",
                        file, status));
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

    cli.Add("check", "Look for damage in a container; exit status 3 when there is some")
        .Tells()
        .No("there are findings")
        .Example("fbr check settings.fbr")
        .Example("fbr check --wait 0 settings.fbr")
        .Text("STORE", check->store, Need::kRequired, kFile)
        .Does([&cli, check] { Check(cli, *check, false); });

    cli.Add("repair", "Mend the damage in a container; exit status 3 when there was some")
        .Tells()
        .No("there were findings, which are mended")
        .Example("fbr repair settings.fbr")
        .Example("fbr repair --discard-log settings.fbr")
        .Text("STORE", check->store, Need::kRequired, kFile)
        .Flag("--discard-log", check->discardLog, "give up a redo log that cannot be replayed")
        .Does([&cli, check] { Check(cli, *check, true); });

    cli.Add("compact", "Give the free pages of a container back to the disk")
        .Tells()
        .Example("fbr compact settings.fbr")
        .Example("fbr compact --wait 0 settings.fbr")
        .Text("STORE", *store, Need::kRequired, "the store")
        .Does([&cli, store] { Compact(cli, *store); });
}

}  // namespace fbr
