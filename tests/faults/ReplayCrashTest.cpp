// Crashes while a pending log is replayed: the container and its log as they were at every moment
// are repaired, which replays what is left of the log.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/MemoryFiles.h"
#include "tests/support/RecordingFile.h"

namespace faults {
namespace {

namespace container = support::container;
using container::Builder;
using support::Bytes;

constexpr uint32_t kPageSize = 256, kPayload = kPageSize - 32, kPages = 4;

enum class Log { Beside, InFile, Chained };

// A file of four pages, and a log with another content of each.
struct Pending {
    Bytes container, log;

    explicit Pending(Log form) {
        container::Form layout;
        layout.pageSize = kPageSize;
        layout.logPending = 1;
        layout.inFileLog = form == Log::InFile;
        Builder builder(
            layout,
            container::Directory(
                u"", {container::Paged(container::File(u"f", Bytes(kPayload * kPages, 1)))}));
        std::vector<uint32_t> copies;
        std::vector<container::LogPage> images;
        for (const uint32_t page : builder.At(u"\\f").streamPages) {
            Bytes image = builder.PageBytes(page);
            std::fill_n(image.data() + 32, kPayload, uint8_t{2});
            images.push_back({container::DataPage, page, 7, image, {}});
            if (form != Log::Chained) continue;
            // A copy says where it belongs and what it is to be there.
            copies.push_back(builder.AddPage(container::DataPage));
            std::copy(image.begin(), image.end(), builder.Page(copies.back()));
            container::Put16(builder.Page(copies.back()), 2, container::DataPage);
        }
        const std::vector<Bytes> pages = container::SequentialLog(layout, {7}, images);
        if (form == Log::Chained) builder.AddChainedLog(copies, 1);
        if (form == Log::InFile) builder.AddInFileLog(pages, 10);
        if (form == Log::Beside) log = container::Joined(pages);
        container = builder.Finish();
    }
};

struct Recorded {
    std::vector<support::FileChange> changes;
    // The two files at every moment, at the end of each change and in its middle.
    std::vector<std::pair<Bytes, Bytes>> moments;
};

Recorded RecordOpening(const Pending& pending) {
    support::TempDir dir;
    support::MemoryFiles memory;
    memory.Put(dir / "c.dat", pending.container);
    if (!pending.log.empty()) memory.Put(dir / "c.log", pending.log);
    support::RecordingFile recording;
    container::EngineStore store;
    EXPECT_EQ(store.Open(dir / "c.dat"), storage::kOk);
    EXPECT_EQ(store.Close(), storage::kOk);
    Recorded recorded{recording.Changes(), {}};
    for (size_t i = 0; i <= recorded.changes.size(); ++i)
        for (const size_t torn : {size_t{3}, size_t{100}, SIZE_MAX})
            recorded.moments.emplace_back(
                recording.Image(dir.File("c.dat"), i, torn),
                pending.log.empty() ? Bytes() : recording.Image(dir.File("c.log"), i, torn));
    return recorded;
}

class ReplayCrash : public testing::TestWithParam<Log> {
  protected:
    // A log is whole until all of it is replayed, and is then switched off at once. A torn page of
    // one inside can take along what stands on it.
    void ExpectReplayed(const container::Reading& reading, uint32_t page, bool torn) {
        if (torn && GetParam() != Log::Beside) return;
        const container::Found* file = reading.At(u"\\f");
        ASSERT_NE(file, nullptr);
        const auto from = file->body.begin() + page * kPayload;
        EXPECT_EQ(Bytes(from, from + kPayload), Bytes(kPayload, 2)) << page;
    }
};

TEST_P(ReplayCrash, IsFollowedByTheRestOfTheReplay) {
    const Pending pending(GetParam());
    const Recorded recorded = RecordOpening(pending);
    ASSERT_GT(recorded.changes.size(), kPages);
    support::TempDir dir;
    support::MemoryFiles memory;
    for (size_t i = 0; i < recorded.moments.size(); ++i) {
        SCOPED_TRACE("moment " + std::to_string(i));
        memory.Put(dir / "c.dat", recorded.moments[i].first);
        memory.Remove(dir / "c.log");
        if (!recorded.moments[i].second.empty())
            memory.Put(dir / "c.log", recorded.moments[i].second);
        ASSERT_EQ(container::CheckContainer(dir / "c.dat", container::kRepair).status, 0);
        const container::Reading reading = container::ReadContainer(memory.Get(dir / "c.dat"));
        for (uint32_t page = 0; page < kPages; ++page) ExpectReplayed(reading, page, i % 3 != 2);
        for (const std::string& broken :
             container::BrokenPromises(dir / "c.dat", [&] { return memory.Get(dir / "c.dat"); }))
            ADD_FAILURE() << broken;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, ReplayCrash,
                         testing::Values(Log::Beside, Log::InFile, Log::Chained));

}  // namespace
}  // namespace faults
