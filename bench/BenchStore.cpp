// SPDX-License-Identifier: MIT
// bench_store [--keys N] [--dir FOLDER] [--clock wall or cpu] [--only TEXT] [--times N]
//
// Measures the key store in multiples of the bare page transfers of the same run, and says which
// goals are met. Exit status 0 when all are, 3 when one is missed, 1 when an operation fails.
// --only runs the phases whose names hold TEXT, --times each of them N times, for a look with a
// profiler. With the clock "cpu" the time of the process counts, for machines that are busy with
// other work.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "bench/BareFile.h"
#include "bench/Content.h"
#include "bench/RemoteQuery.h"
#include "bench/Report.h"
#include "include/ZrFsLibrary.h"

namespace bench {
namespace {

constexpr uint32_t kPage = 512;
constexpr uint32_t kWriteLock = 1;
constexpr uint32_t kManyHandles = 10000;

// A listing that came to its end says so with a status of its own.
void Check(FBR_STATUS status, const char* what) {
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_NO_MORE_ENTRIES)
        throw std::runtime_error(std::string(what) + " gave status " +
                                 std::to_string(static_cast<int>(status)));
}

// The bare calls on a cached file of `pages` pages.
void MeasureBare(const std::filesystem::path& path, uint32_t pages, Timer* write, Timer* read) {
    constexpr uint32_t kRounds = 41, kCalls = 2000;
    BareFile file(path);
    std::vector<uint8_t> page(kPage, 0x5A);
    for (uint32_t i = 0; i < pages; ++i)
        if (!file.Write(uint64_t{i} * kPage, page.data(), kPage))
            throw std::runtime_error("cannot write the yardstick");
    std::mt19937 dice(1);
    std::vector<uint64_t> places(kCalls);
    bool good = true;
    for (uint32_t round = 0; round < kRounds; ++round) {
        for (uint64_t& place : places) place = uint64_t{dice() % pages} * kPage;
        write->Start();
        for (uint64_t place : places) good &= file.Write(place, page.data(), kPage);
        write->Stop(kCalls);
        read->Start();
        for (uint64_t place : places) good &= file.Read(place, page.data(), kPage);
        read->Stop(kCalls);
    }
    if (!good) throw std::runtime_error("the yardstick came up short");
}

class StoreBench {
  public:
    StoreBench(const std::filesystem::path& path, uint32_t keys)
        : path_(ToText(path.string())), content_(MakeContent(keys)) {
        Open();
        Check(FBR_GetLockEx(kWriteLock, store_), "FBR_GetLockEx");
    }

    Timer SetNew() {
        Timer timer;
        for (const KeyData& key : content_) {
            FBR_KEY handle = 0;
            Check(FBR_CreateDirEx(0, key.path.c_str(), FSCREATEOPTIONS_NONE, &handle, store_),
                  "FBR_CreateDirEx");
            timer.Start();
            for (const ValueData& value : key.values) Set(handle, value);
            timer.Stop(key.values.size());
            handles_.push_back(handle);
        }
        return timer;
    }

    Timer Overwrite(uint32_t batches) {
        Timer timer;
        for (uint32_t batch = 0; batch < batches; ++batch) {
            const auto places = Places(kBatch, Handles());
            timer.Start();
            for (const auto& [key, value] : places) Set(handles_[key], content_[key].values[value]);
            timer.Stop(places.size());
        }
        return timer;
    }

    // Each overwrite with taking and releasing the lock around it, as programs do that share a
    // store.
    Timer OverwriteLocking(uint32_t batches) {
        Check(FBR_ReleaseLockEx(kWriteLock, store_), "FBR_ReleaseLockEx");
        Timer timer;
        for (uint32_t batch = 0; batch < batches; ++batch) {
            const auto places = Places(kBatch, Handles());
            timer.Start();
            for (const auto& [key, value] : places) {
                Check(FBR_GetLockEx(kWriteLock, store_), "FBR_GetLockEx");
                Set(handles_[key], content_[key].values[value]);
                Check(FBR_ReleaseLockEx(kWriteLock, store_), "FBR_ReleaseLockEx");
            }
            timer.Stop(places.size());
        }
        Check(FBR_GetLockEx(kWriteLock, store_), "FBR_GetLockEx");
        return timer;
    }

    // Over all values, or only over the first `hot` of a fixed choice.
    Timer Query(uint32_t batches, uint32_t hot = 0) {
        Timer timer;
        const auto fixed = Places(hot == 0 ? 1 : hot, Handles());
        for (uint32_t batch = 0; batch < batches; ++batch) {
            auto places = Places(kBatch, Handles());
            if (hot != 0)
                for (auto& place : places) place = fixed[dice_() % hot];
            timer.Start();
            for (const auto& [key, value] : places)
                QueryOne(handles_[key], content_[key].values[value]);
            timer.Stop(places.size());
        }
        return timer;
    }

    Timer EnumerateNames() {
        Timer timer;
        for (uint32_t key = 0; key < Handles(); ++key) {
            timer.Start();
            names_.clear();
            EnumerateAll(handles_[key]);
            timer.Stop(names_.size());
        }
        return timer;
    }

    Timer EnumerateNamesAndData() {
        Timer timer;
        for (uint32_t key = 0; key < Handles(); ++key) {
            timer.Start();
            names_.clear();
            EnumerateAll(handles_[key]);
            for (const Text& name : names_) {
                uint64_t size = 0;
                uint32_t type = 0;
                Check(FBR_QueryValue(handles_[key], name.c_str(), buffer_, sizeof buffer_, &size,
                                     &type, store_),
                      "FBR_QueryValue");
            }
            timer.Stop(names_.size());
        }
        return timer;
    }

    // By index, the way of a caller without vectors.
    Timer EnumerateByIndex() {
        Timer timer;
        for (uint32_t key = 0; key < Handles(); ++key) {
            timer.Start();
            uint32_t index = 0;
            for (FBR_WCHAR* name = nullptr;
                 FBR_EnumIntFileEx(handles_[key], index, &name, store_) == FSSTATUS_SUCCESS;
                 ++index)
                FBR_Release(name);
            timer.Stop(index);
        }
        return timer;
    }

    Timer DeleteKeys(uint32_t count) {
        Timer timer;
        for (uint32_t key = Handles(); key-- > 0 && count > 0;) {
            if (!content_[key].leaf) continue;
            --count;
            timer.Start();
            Check(FBR_DeleteDirEx(handles_[key], store_), "FBR_DeleteDirEx");
            timer.Stop(1);
        }
        return timer;
    }

    Timer Reopen(uint32_t times) {
        Timer timer;
        Check(FBR_ReleaseLockEx(kWriteLock, store_), "FBR_ReleaseLockEx");
        Check(FBR_DeInitialiseEx(store_), "FBR_DeInitialiseEx");
        for (uint32_t i = 0; i < times; ++i) {
            const KeyData& key = content_[dice_() % 7];
            timer.Start();
            Open();
            FBR_KEY handle = 0;
            Check(FBR_OpenDirEx(0, key.path.c_str(), &handle, store_), "FBR_OpenDirEx");
            QueryOne(handle, key.values[i % kValuesPerKey]);
            Check(FBR_CloseDirEx(handle, store_), "FBR_CloseDirEx");
            Check(FBR_DeInitialiseEx(store_), "FBR_DeInitialiseEx");
            timer.Stop(1);
        }
        Open();
        Check(FBR_GetLockEx(kWriteLock, store_), "FBR_GetLockEx");
        handles_.clear();
        for (const KeyData& key : content_) {
            FBR_KEY handle = 0;
            Check(FBR_OpenDirEx(0, key.path.c_str(), &handle, store_), "FBR_OpenDirEx");
            handles_.push_back(handle);
        }
        return timer;
    }

    // New values in keys that exist, to compare the cost when many handles are open.
    Timer SetMore(uint32_t keys, const char* prefix) {
        Timer timer;
        for (uint32_t key = 0; key < std::min(keys, Handles()); ++key) {
            std::vector<ValueData> values = content_[key].values;
            for (ValueData& value : values) value.name = ToText(prefix) + value.name;
            timer.Start();
            for (const ValueData& value : values) Set(handles_[key], value);
            timer.Stop(values.size());
        }
        return timer;
    }

    void OpenManyHandles() {
        for (uint32_t i = 0; i < kManyHandles; ++i) {
            FBR_KEY handle = 0;
            Check(FBR_OpenDirEx(0, content_[i % content_.size()].path.c_str(), &handle, store_),
                  "FBR_OpenDirEx");
            if (i % content_.size() < Handles()) handles_[i % content_.size()] = handle;
        }
    }

    void Close() {
        Check(FBR_ReleaseLockEx(kWriteLock, store_), "FBR_ReleaseLockEx");
        Check(FBR_DeInitialiseEx(store_), "FBR_DeInitialiseEx");
    }

  private:
    static constexpr uint32_t kBatch = 200;
    using Place = std::pair<uint32_t, uint32_t>;

    uint32_t Handles() const { return static_cast<uint32_t>(handles_.size()); }
    void Open() {
        Check(FBR_InitialiseEx(path_.c_str(), &store_, FS_VR_METHOD_TARN), "FBR_InitialiseEx");
    }
    // A complete walk answers that there are no more.
    void EnumerateAll(FBR_KEY key) {
        if (FBR_EnumerateAllValues(key, names_, store_) != FSSTATUS_NO_MORE_ENTRIES)
            throw std::runtime_error("FBR_EnumerateAllValues did not reach the end");
    }
    void Set(FBR_KEY key, const ValueData& value) {
        Check(FBR_SetValue(key, value.name.c_str(), value.type, value.data.data(),
                           value.data.size(), store_),
              "FBR_SetValue");
    }
    void QueryOne(FBR_KEY key, const ValueData& value) {
        uint64_t size = 0;
        uint32_t type = 0;
        Check(
            FBR_QueryValue(key, value.name.c_str(), buffer_, sizeof buffer_, &size, &type, store_),
            "FBR_QueryValue");
        if (size != value.data.size() || type != value.type ||
            std::memcmp(buffer_, value.data.data(), size) != 0)
            throw std::runtime_error("a value reads back wrong");
    }
    std::vector<Place> Places(uint32_t count, uint32_t keys) {
        std::vector<Place> places(count);
        for (Place& place : places)
            place = {static_cast<uint32_t>(dice_() % keys),
                     static_cast<uint32_t>(dice_() % kValuesPerKey)};
        return places;
    }

    Text path_;
    std::vector<KeyData> content_;
    std::vector<FBR_KEY> handles_;  // one for each key of the content
    std::vector<Text> names_;
    FBR_STORE store_ = nullptr;
    std::mt19937 dice_{7};
    uint8_t buffer_[16384];
};

struct Phase {
    const char* name;
    Unit unit;
    double goal;  // 0 for none
    std::function<Timer()> run;
};

// In this order; the values of the content are all there when the first one begins.
std::vector<Phase> Phases(StoreBench* store) {
    const auto reopen = [=] {
        store->OpenManyHandles();
        return Timer();
    };
    return {
        {"overwrite a value, same size", Unit::PageWrites, 14,
         [=] { return store->Overwrite(100); }},
        {"overwrite, a lock for each", Unit::PageWrites, 0,
         [=] { return store->OverwriteLocking(50); }},
        {"query a value, uniform", Unit::PageReads, 8, [=] { return store->Query(200); }},
        {"query a value, 100 hot ones", Unit::PageReads, 2, [=] { return store->Query(200, 100); }},
        {"enumerate names and data, a value", Unit::PageReads, 3,
         [=] { return store->EnumerateNamesAndData(); }},
        {"enumerate names only, a value", Unit::PageReads, 0,
         [=] { return store->EnumerateNames(); }},
        {"enumerate names by index, a value", Unit::PageReads, 0,
         [=] { return store->EnumerateByIndex(); }},
        {"reopen and read one value", Unit::PageReads, 400, [=] { return store->Reopen(200); }},
        {"set a new value, 2,000 handles", Unit::PageWrites, 0,
         [=] { return store->SetMore(200, "few "); }},
        {nullptr, Unit::PageReads, 0, reopen},
        {"set a new value, 12,000 handles", Unit::PageWrites, 0,
         [=] { return store->SetMore(200, "many "); }},
        {"overwrite, 12,000 handles", Unit::PageWrites, 14, [=] { return store->Overwrite(50); }},
        {"query 100 hot ones, 12,000 handles", Unit::PageReads, 2,
         [=] { return store->Query(100, 100); }},
        {nullptr, Unit::PageReads, 0, [=] { return store->Reopen(1); }},
        {"delete a key with its 20 values", Unit::PageWrites, 40,
         [=] { return store->DeleteKeys(500); }},
    };
}

struct Options {
    std::filesystem::path folder = std::filesystem::temp_directory_path() / "zrfs-bench";
    uint32_t keys = 2000;
    std::string only;  // phases whose names hold this
    int times = 1;     // each of these phases
};

int Run(const Options& options) {
    std::filesystem::create_directories(options.folder);
    const std::filesystem::path path = options.folder / "bench.fbr";
    std::filesystem::remove(path);
    StoreBench store(path, options.keys);
    const Timer set = store.SetNew();
    const uint32_t pages = static_cast<uint32_t>(std::filesystem::file_size(path) / kPage);
    Timer write, read;
    MeasureBare(options.folder / "yardstick", pages, &write, &read);

    std::printf("%u keys with %u values, %u pages\n", options.keys, kValuesPerKey, pages);
    Report report(write.MedianNs(), read.MedianNs());
    report.Line("set a new value", set, Unit::PageWrites, 12);
    for (const Phase& phase : Phases(&store)) {
        const bool silent = phase.name == nullptr;
        if (!silent && std::strstr(phase.name, options.only.c_str()) == nullptr) continue;
        Timer timer = phase.run();
        for (int again = 1; again < options.times && !silent; ++again) timer = phase.run();
        if (!silent) report.Line(phase.name, timer, phase.unit, phase.goal);
    }
    store.Close();
    constexpr const char* kLocal = "query one small value, local store";
    constexpr const char* kRemote = "query one small value, over a pipe";
    if (std::strstr(kRemote, options.only.c_str()) != nullptr) {
        const RemoteQuery query = MeasureRemoteQuery(path, MakeContent(1).front());
        report.Line(kLocal, query.local, Unit::PageReads, 0);
        report.Line(kRemote, query.remote, Unit::PageReads, 0);
    }
    std::filesystem::remove(path);
    std::filesystem::remove(options.folder / "yardstick");
    return report.Missed() == 0 ? 0 : 3;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i], value = argv[i + 1];
        if (name == "--keys") options.keys = static_cast<uint32_t>(std::max(1, std::stoi(value)));
        if (name == "--dir") options.folder = value;
        if (name == "--only") options.only = value;
        if (name == "--times") options.times = std::stoi(value);
        if (name == "--clock") bench::Timer::UseCpuClock(value == "cpu");
    }
    try {
        return bench::Run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_store: %s\n", error.what());
        return 1;
    }
}
