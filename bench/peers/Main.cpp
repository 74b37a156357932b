// SPDX-License-Identifier: MIT
// bench_peers: our stores beside others on the same work, in one process and in turns; what each
// costs as they grow; the system calls of ours. bench_peers --help tells the options. Exit status
// 0, 3 when a goal is missed, 1 when something fails.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <fstream>
#include <iostream>

#include "bench/BareFile.h"
#include "bench/peers/Growth.h"
#include "bench/peers/Results.h"
#include "bench/peers/System.h"
#include "platform/Clock.h"

namespace bench {
namespace {

struct Options {
    uint32_t scale = 1, keys = 0, rounds = 3;
    std::string only, folder, jsonFile;
    Clock clock = HasThreadClock() ? Clock::Cpu : Clock::Wall;
    bool growth = false, calls = false, brief = false;
};

// The floor under every store: one page written or read by a bare call on a file in memory.
void MeasureBare(const std::filesystem::path& path, nlohmann::json* json) {
    constexpr uint32_t kPage = 512, kPages = 50000, kCalls = 100000, kRounds = 3;
    std::vector<uint8_t> page(kPage, 0x5A);
    BareFile file(path);
    bool good = true;
    for (uint64_t i = 0; i < kPages; ++i) good &= file.Write(i * kPage, page.data(), kPage);
    std::vector<double> times[2];
    for (uint32_t round = 0; round < kRounds; ++round)
        for (const bool write : {true, false}) {
            std::mt19937 dice(round);
            const double start = ThreadNs();
            for (uint32_t i = 0; i < kCalls; ++i) {
                const uint64_t place = uint64_t{dice() % kPages} * kPage;
                good &= write ? file.Write(place, page.data(), kPage)
                              : file.Read(place, page.data(), kPage);
            }
            times[write ? 0 : 1].push_back((ThreadNs() - start) / kCalls);
        }
    if (!good) throw std::runtime_error("a bare call came up short");
    for (std::vector<double>& row : times) std::sort(row.begin(), row.end());
    (*json)["bare"] = {{"pageWriteNs", times[0][kRounds / 2]},
                       {"pageReadNs", times[1][kRounds / 2]}};
    fmt::print("A bare write of a page of {} bytes {:.0f} ns, a bare read {:.0f} ns\n", kPage,
               times[0][kRounds / 2], times[1][kRounds / 2]);
}

std::vector<Maker> Chosen(const Options& options, uint32_t keys) {
    std::vector<Maker> makers = OurMakers(), peers = PeerMakers();
    makers.insert(makers.end(), peers.begin(), peers.end());
    std::erase_if(makers, [&](const Maker& maker) {
        return maker.mostKeys < keys || maker.name.find(options.only) == std::string::npos;
    });
    return makers;
}

// Each phase by all stores before the next one begins, and each round begun by another store.
void RunRound(const std::vector<Maker>& makers, const std::vector<KeyData>& content, uint32_t round,
              const Options& options, const std::filesystem::path& folder, Results* results) {
    Work work(content, options.brief);
    std::vector<std::unique_ptr<Subject>> subjects;
    for (size_t i = 0; i < makers.size(); ++i) {
        const Maker& maker = makers[(i + round) % makers.size()];
        subjects.push_back(
            std::make_unique<Subject>(maker, folder / std::to_string((i + round) % makers.size())));
    }
    for (Phase phase : kTablePhases) {
        work.Prepare(phase);
        for (const auto& subject : subjects)
            results->Add(subject->maker->name, phase, work.Run(phase, *subject));
    }
}

void CountStore(const Maker& maker, const std::vector<KeyData>& content,
                const std::filesystem::path& folder, nlohmann::json* json) {
    for (const auto& [phase, calls] : CountPhases(maker, content, folder)) {
        fmt::print("{:34} {:28} {:8.2f} writes {:8.2f} reads {:8.2f} locks {:8.2f} others\n",
                   maker.name, Name(phase), calls.writes, calls.reads, calls.locks, calls.others);
        (*json)["calls"].push_back({{"store", maker.name},
                                    {"phase", Name(phase)},
                                    {"writes", calls.writes},
                                    {"reads", calls.reads},
                                    {"locks", calls.locks},
                                    {"others", calls.others}});
    }
}

int Run(const Options& options) {
    const std::filesystem::path folder =
        options.folder.empty() ? std::filesystem::temp_directory_path() /
                                     ("zrfs-bench-" + std::to_string(platform::ProcessId()))
                               : std::filesystem::path(options.folder);
    std::filesystem::create_directories(folder);
    const uint32_t keys = options.keys != 0 ? options.keys : 2000 * options.scale;
    nlohmann::json json{{"keys", keys}, {"values", kValuesPerKey}, {"rounds", options.rounds}};
    const std::vector<Maker> makers = Chosen(options, keys);
    int missed = 0;
    if (options.growth) {
        json["growth"] = MeasureGrowth(makers, options.rounds, folder);
    } else if (options.calls) {
        for (const Maker& maker : makers)
            CountStore(maker, MakeContent(keys), folder / "store", &json);
    } else {
        MeasureBare(folder / "bare", &json);
        fmt::print("{} keys with {} values each, {} rounds\n", keys, kValuesPerKey, options.rounds);
        const std::vector<KeyData> content = MakeContent(keys);
        Results results;
        for (uint32_t round = 0; round < options.rounds; ++round)
            RunRound(makers, content, round, options, folder, &results);
        results.Print(options.clock, {std::begin(kTablePhases), std::end(kTablePhases)});
        if (results.Median(kLmdb, Phase::Set, Clock::Wall) != 0)
            missed = results.PrintGoals(options.clock, &json["goals"]);
        json["results"] = results.Json();
    }
    if (!options.jsonFile.empty()) std::ofstream(options.jsonFile) << json.dump(1) << "\n";
    std::filesystem::remove_all(folder);
    return missed == 0 ? 0 : 3;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::Options options;
    CLI::App app("Measures this library beside other stores");
    app.add_option("--scale", options.scale, "1 for 2,000 keys, 10 for 20,000");
    app.add_option("--keys", options.keys, "as many keys instead");
    app.add_option("--rounds", options.rounds, "the median of these counts")
        ->check(CLI::PositiveNumber);
    app.add_option("--only", options.only, "the stores whose names hold this");
    app.add_option("--folder", options.folder,
                   "where the stores are kept meanwhile; it is removed");
    app.add_option("--json", options.jsonFile, "writes all figures there, too");
    app.add_option("--clock", options.clock, "cpu (of the thread) or wall")
        ->transform(CLI::CheckedTransformer(std::map<std::string, bench::Clock>{
            {"cpu", bench::Clock::Cpu}, {"wall", bench::Clock::Wall}}));
    app.add_flag("--growth", options.growth, "what the size of a store does to the cost");
    app.add_flag("--calls", options.calls, "counts system calls instead of time");
    app.add_flag("--brief", options.brief, "does less and compares nothing, for a profiler");
    CLI11_PARSE(app, argc, argv);
    bench::UseFreshBlocks();
    try {
        return bench::Run(options);
    } catch (const std::exception& error) {
        std::cerr << "bench_peers: " << error.what() << "\n";
        return 1;
    }
}
