// Commands for the soundness and the size of a container: check, repair, compact.
#include <fmt/format.h>

#include <atomic>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>

#include "tools/commands/Cli.h"
#include "tools/console/Console.h"
#include "tools/console/Progress.h"
#include "tools/format/Text.h"
#include "tools/inspect/Image.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

// Codes of FBR_CheckCallback.
constexpr uint32_t kLastPass = 4;
constexpr const char* kPasses[kLastPass] = {
    "Reading pages:", "Following references:", "Looking for lost pages:", "Writing the page map:"};
constexpr uint32_t kBadEntry = 15;
// What a run puts right without telling its callback.
constexpr uint32_t kWrongMap = 100, kWrongSuperblock = 101, kPartialPage = 102;
struct Finding {
    uint32_t code;
    const char* line;
    const char* one;
    const char* many;
};
constexpr Finding kFindings[] = {
    {8, "bad reference to or from another page", "bad reference", "bad references"},
    {9, "lost page, in use to the page map but nothing refers to it", "lost page", "lost pages"},
    {kBadEntry, "bad directory entry", "bad directory entry", "bad directory entries"},
    {kWrongMap, "wrong page map, put right", "wrong map page", "wrong map pages"},
    {kWrongSuperblock, "wrong superblock, put right", "wrong superblock", "wrong superblocks"},
    {kPartialPage, "no whole page, cut off", "partial page", "partial pages"},
};

std::atomic<bool> g_stop = false;

// One run, as its callback sees it.
struct CheckRun {
    std::optional<Progress> progress;
    uint32_t pass = 0;
    uint32_t pages = 0;
    uint64_t counts[std::size(kFindings)] = {};

    void Pass(uint32_t code, uint32_t done, uint32_t total);
    void Found(uint32_t code, uint32_t page, const WChar* name);
    uint64_t All() const {
        return std::accumulate(std::begin(counts), std::end(counts), uint64_t{0});
    }
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

void CheckRun::Found(uint32_t code, uint32_t page, const WChar* name) {
    for (size_t i = 0; i < std::size(kFindings); ++i) {
        if (kFindings[i].code != code) continue;
        ++counts[i];
        if (progress) progress->Clear();
        std::cout << "page " << page << ": " << kFindings[i].line;
        if (code == kBadEntry) std::cout << " \"" << Printable(name) << '"';
        std::cout << '\n';
        if (ErrorIsTerminal()) std::cout.flush();
    }
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

// The parts of a file that a run may change where it tells of no finding.
struct Frame {
    uint64_t trailing = 0;
    std::map<uint32_t, PageBytes> pages;  // of the map, and the superblock
};

Frame FrameOf(const Image& image) {
    Frame frame = {image.TrailingBytes(), {}};
    const uint32_t group = image.PageSize() / 2;
    for (uint64_t page = 0; page < image.PageCount(); page += group) {
        frame.pages[static_cast<uint32_t>(page)] = image.Raw(static_cast<uint32_t>(page));
    }
    if (image.PageCount() > 1) frame.pages[1] = image.Raw(1);
    return frame;
}

// Tells what changed since `before`: damage, too, for nothing is changed that was right.
void FindChanges(const Frame& before, const Image& image, CheckRun* run) {
    const Frame after = FrameOf(image);
    for (const auto& [page, bytes] : after.pages) {
        const auto old = before.pages.find(page);
        if (old == before.pages.end() || old->second == bytes) continue;
        run->Found(page == 1 ? kWrongSuperblock : kWrongMap, page, nullptr);
    }
    if (before.trailing != after.trailing) run->Found(kPartialPage, image.PageCount(), nullptr);
}

// The file of the trace is opened with a store, and a check opens none: an opening that cannot
// succeed does it.
void OpenTrace() {
    FBR_STORE none = nullptr;
    FBR_InitialiseEx(Wide(".").c_str(), &none, FS_VR_METHOD_TARN);
}

std::string Summary(const CheckRun& run, bool repair) {
    if (run.All() == 0) return "nothing found";
    std::string text = fmt::format("{} finding{}{}", run.All(), run.All() == 1 ? "" : "s",
                                   repair ? ", mended:" : ":");
    const char* separator = " ";
    for (size_t i = 0; i < std::size(kFindings); ++i) {
        if (run.counts[i] == 0) continue;
        text += fmt::format("{}{} {}", separator, run.counts[i],
                            run.counts[i] == 1 ? kFindings[i].one : kFindings[i].many);
        separator = ", ";
    }
    return text;
}

[[noreturn]] void Fail(const std::string& file, bool repair, FBR_STATUS status) {
    const char* verb = repair ? "repair" : "check";
    if (g_stop) {
        throw std::runtime_error(fmt::format("{} of {} was stopped before its end{}", verb, file,
                                             repair ? "; what it mended stays mended" : ""));
    }
    throw StoreError(
        fmt::format("cannot {} {}: {}; {}", verb, file, StatusText(status),
                    repair ? "it cannot be written, its redo log is damaged, or its root is lost"
                           : "it cannot be read to its end, or its root is lost"),
        status);
}

void Check(Cli& cli, const std::string& store, bool repair) {
    const std::string file = cli.ContainerAt(store);
    const Frame before = FrameOf(Image(file, 0));  // also refuses a file that is no container
    if (cli.Traces()) OpenTrace();
    CheckRun run;
    g_run = &run;
    OnInterrupt([] { g_stop = true; });
    const WString path = Wide(file);
    const FBR_STATUS status = repair ? FBR_CheckAndRepairFileEx(path.c_str(), &Told)
                                     : FBR_CheckFileEx(path.c_str(), &Told);
    OnInterrupt(nullptr);
    g_run = nullptr;
    run.progress.reset();
    if (status != FSSTATUS_SUCCESS) Fail(file, repair, status);
    if (run.All() == 0) FindChanges(before, Image(file, 0), &run);
    std::cout << fmt::format("{}: {} pages, {}\n", file, run.pages, Summary(run, repair));
    if (run.All() != 0) cli.SetExitStatus(kExitFindings);
}

std::string Extent(const std::string& file) {
    const Image image(file, 0);
    return fmt::format("{:8} pages  {:12} bytes", image.PageCount(), image.FileSize());
}

void Compact(const Cli& cli, const std::string& path) {
    const std::string file = cli.ContainerAt(path);
    const std::string before = Extent(file);
    Store store(cli.StoreAt(path), Store::IfMissing::kFail);
    {
        const WriteLock lock(store);
        uint32_t done = 0;
        const FBR_STATUS status = FBR_Compact(store.Handle(), &done);
        if (status != FSSTATUS_SUCCESS) {
            throw StoreError(fmt::format("cannot compact store {}: {}; nothing was moved: "
                                         "fbr check tells more",
                                         file, StatusText(status)),
                             status);
        }
    }
    store.Close();
    std::cout << "before  " << before << "\nafter   " << Extent(file) << '\n';
}

}  // namespace

void AddIntegrityCommands(Cli& cli) {
    const auto store = std::make_shared<std::string>();
    constexpr const char* kFile = "the container's file; nobody else may have it open";

    cli.Add("check", "Look for damage in a container; exit status 3 when there is some")
        .Text("STORE", *store, Need::kRequired, kFile)
        .Does([&cli, store] { Check(cli, *store, false); });

    cli.Add("repair", "Mend the damage in a container; exit status 3 when there was some")
        .Text("STORE", *store, Need::kRequired, kFile)
        .Does([&cli, store] { Check(cli, *store, true); });

    cli.Add("compact", "Give the free pages of a container back to the disk")
        .Text("STORE", *store, Need::kRequired, "the store")
        .Does([&cli, store] { Compact(cli, *store); });
}

}  // namespace fbr
