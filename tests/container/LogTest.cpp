// Redo logs of the three forms, made by the tests and replayed by the engine.
#include <gtest/gtest.h>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/FaultFile.h"

namespace support::container {
namespace {

using storage::Status;

constexpr uint32_t kCommitted = 70000, kLost = 70001, kAlso = 5;
constexpr size_t kPayload = 512 - 32;

// A container that is sound once its log is replayed: three pages of \a change, one of them in a
// transaction that was not committed; a page that nothing refers to is freed; a page of \b that
// the map has for free is put back.
struct Scene {
    explicit Scene(bool foreign) {
        form.foreign = foreign;
        form.logPending = 1;
        builder = std::make_unique<Builder>(
            form, Directory(u"", {Paged(File(u"a", Pattern(kPayload * 3))),
                                  Paged(File(u"b", Pattern(kPayload * 2, 7)))}));
        const std::vector<uint32_t>& pages = builder->At(u"\\a").streamPages;
        orphan = builder->AddPage(RecordPage);
        unmapped = builder->At(u"\\b").streamPages.back();
        builder->SetSlot(unmapped, Free);
        Put32(builder->Page(unmapped), 8, kCommitted);  // as a writer that logs leaves it
        for (size_t i = 0; i < 3; ++i) images.push_back(Image(pages[i], i));
        expected = Pattern(kPayload * 3);
        std::fill_n(expected.begin(), kPayload, uint8_t{0xA0});
        std::fill_n(expected.begin() + 2 * kPayload, kPayload, uint8_t{0xA2});
    }

    Bytes Image(uint32_t page, size_t which) const {
        Bytes image = builder->PageBytes(page);
        std::fill(image.begin() + 32, image.end(), static_cast<uint8_t>(0xA0 + which));
        return image;
    }

    std::vector<Bytes> Log() const {
        const std::vector<uint32_t>& pages = builder->At(u"\\a").streamPages;
        return SequentialLog(form, {0, kCommitted, 0, kAlso},
                             {{DataPage, pages[0], kCommitted, images[0], {}},
                              {DataPage, pages[1], kLost, images[1], {}},
                              {kListOfFrees, 1, kCommitted, {}, {orphan}},
                              {DataPage, pages[2], kAlso, images[2], {}},
                              {DataPage, pages[1], 0, images[1], {}},
                              {kListOfRewrites, 1, kAlso, {}, {unmapped}}});
    }

    Content Expected() const { return {{u"\\a", expected}, {u"\\b", Pattern(kPayload * 2, 7)}}; }

    Form form;
    std::unique_ptr<Builder> builder;
    uint32_t orphan = 0, unmapped = 0;
    std::vector<Bytes> images;
    Bytes expected;
};

class Logs : public testing::TestWithParam<bool> {
  protected:
    void OpenAndJudge(const std::filesystem::path& path, const Content& expected) {
        EngineStore store;
        ASSERT_EQ(store.Open(path), storage::kOk);
        EXPECT_EQ(store.ReadAll(), expected);
        ASSERT_EQ(store.Close(), storage::kOk);
        const Reading reading = ReadContainer(ReadBytes(path));
        EXPECT_TRUE(reading.Sound()) << reading.Report();
        EXPECT_EQ(ContentOf(reading.root), expected);
    }
    const TempDir dir_;
};

TEST_P(Logs, BesideTheContainerIsReplayedAndDeleted) {
    const Scene scene(GetParam());
    WriteBytes(dir_ / "a.b.fbr", scene.builder->Finish());
    WriteBytes(dir_ / "a.b.log", Joined(scene.Log()));
    OpenAndJudge(dir_ / "a.b.fbr", scene.Expected());
    EXPECT_FALSE(std::filesystem::exists(dir_ / "a.b.log"));
}

TEST_P(Logs, EndsAtATargetOfZeroAndAtAPartialPage) {
    const Scene scene(GetParam());
    std::vector<Bytes> log = scene.Log();
    log.insert(log.end(), Bytes(512));  // what follows is no more part of it
    Bytes stray = scene.Log()[1];
    log.push_back(stray);
    log.push_back(Bytes(100, 0xFF));
    WriteBytes(dir_ / "a.fbr", scene.builder->Finish());
    WriteBytes(dir_ / "a.log", Joined(log));
    OpenAndJudge(dir_ / "a.fbr", scene.Expected());
}

TEST_P(Logs, WithNothingCommittedChangeNothing) {
    Form form;
    form.foreign = GetParam();
    form.logPending = 1;
    const Builder builder(form, Directory(u"", {Paged(File(u"a", Pattern(600)))}));
    const uint32_t page = builder.At(u"\\a").streamPages[0];
    WriteBytes(dir_ / "a.fbr", builder.Finish());
    WriteBytes(dir_ / "a.log",
               Joined(SequentialLog(form, {}, {{DataPage, page, 7, Bytes(512, 9), {}}})));
    OpenAndJudge(dir_ / "a.fbr", {{u"\\a", Pattern(600)}});
    EXPECT_FALSE(std::filesystem::exists(dir_ / "a.log"));
}

TEST_P(Logs, MissingAndEmptyOnesAreNoFailure) {
    const Scene scene(GetParam());
    Form form;
    form.foreign = GetParam();
    form.logPending = 1;
    const Bytes file = Builder(form, Directory(u"", {File(u"a", Pattern(6))})).Finish();
    WriteBytes(dir_ / "a.fbr", file);
    OpenAndJudge(dir_ / "a.fbr", {{u"\\a", Pattern(6)}});
    WriteBytes(dir_ / "a.fbr", file);
    WriteBytes(dir_ / "a.log", {});
    OpenAndJudge(dir_ / "a.fbr", {{u"\\a", Pattern(6)}});
    EXPECT_FALSE(std::filesystem::exists(dir_ / "a.log"));
}

TEST_P(Logs, InTheContainersLastPagesAreReplayed) {
    Scene scene(GetParam());
    scene.builder->AddInFileLog(scene.Log(), 8);
    const Bytes file = scene.builder->Finish();
    WriteBytes(dir_ / "a.fbr", file);
    WriteBytes(dir_ / "a.log", {1, 2, 3});  // is none of this container's business
    OpenAndJudge(dir_ / "a.fbr", scene.Expected());
    EXPECT_EQ(ReadBytes(dir_ / "a.fbr").size(), file.size());
    EXPECT_EQ(ReadBytes(dir_ / "a.log"), Bytes({1, 2, 3}));
}

TEST_P(Logs, FixedSizeContainerIsUsedUpToSixPages) {
    Scene scene(GetParam());
    scene.builder->AddInFileLog(scene.Log(), 30);
    const Bytes file = scene.builder->Finish();
    WriteBytes(dir_ / "a.fbr", file);
    EngineStore store;
    ASSERT_EQ(store.Open(dir_ / "a.fbr"), storage::kOk);
    Content expected = scene.Expected();
    Status status = storage::kOk;
    for (int i = 0; status == storage::kOk; ++i) {
        const std::u16string path = u"\\f" + ToUnits(std::to_string(i));
        status = store.Put(path, Pattern(20));
        if (status == storage::kOk) expected[path] = Pattern(20);
    }
    EXPECT_EQ(status, storage::kFull);
    ASSERT_EQ(store.Delete(u"\\f0"), storage::kOk);
    expected.erase(u"\\f0");
    EXPECT_EQ(store.Put(u"\\again", Pattern(20)), storage::kOk);
    expected[u"\\again"] = Pattern(20);
    ASSERT_EQ(store.Close(), storage::kOk);
    EXPECT_EQ(ReadBytes(dir_ / "a.fbr").size(), file.size());
    const Reading reading = ReadContainer(ReadBytes(dir_ / "a.fbr"));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    EXPECT_EQ(ContentOf(reading.root), expected);
    EXPECT_GE(reading.usedPages + 9, reading.pageCount);
    OpenAndJudge(dir_ / "a.fbr", expected);
}

TEST_P(Logs, OfTheChainedFormAreReplayed) {
    Form form;
    form.foreign = GetParam();
    Builder builder(form, Directory(u"", {Paged(File(u"a", Pattern(kPayload * 3)))}));
    const std::vector<uint32_t> pages = builder.At(u"\\a").streamPages;
    // In place, not yet there: kind 0 with the pending kind, and free in the map.
    Put16(builder.Page(pages[0]), 0, Free);
    Put16(builder.Page(pages[0]), 2, DataPage);
    builder.SetSlot(pages[0], Free);
    // A copy elsewhere.
    const uint32_t copy = builder.AddPage(Free);
    Bytes image = builder.PageBytes(pages[1]);
    std::fill(image.begin() + 32, image.end(), uint8_t{0xC1});
    Put16(image.data(), 2, DataPage);
    std::copy(image.begin(), image.end(), builder.Page(copy));
    // One that goes.
    const uint32_t gone = builder.AddPage(RecordPage);
    std::vector<uint32_t> logged = {pages[0], copy, gone};
    // And more of these than one page of the log lists.
    for (int i = 0; i < 300; ++i) logged.push_back(builder.AddPage(RecordPage));
    builder.AddChainedLog(logged, 2);
    WriteBytes(dir_ / "a.fbr", builder.Finish());
    WriteBytes(dir_ / "a.log", {1, 2, 3});
    Bytes expected = Pattern(kPayload * 3);
    std::fill_n(expected.begin() + kPayload, kPayload, uint8_t{0xC1});
    OpenAndJudge(dir_ / "a.fbr", {{u"\\a", expected}});
    EXPECT_EQ(ReadBytes(dir_ / "a.log"), Bytes({1, 2, 3}));
    EXPECT_EQ(Get32(ReadContainer(ReadBytes(dir_ / "a.fbr")).superblock.data(), 248), 0u);
}

TEST_P(Logs, ThatFailToBeReplayedAreKeptForTheNextTry) {
    const Scene scene(GetParam());
    const Bytes log = Joined(scene.Log());
    for (uint64_t call = 1;; ++call) {
        WriteBytes(dir_ / "a.fbr", scene.builder->Finish());
        WriteBytes(dir_ / "a.log", log);
        {
            FaultFile faults;
            faults.Fail(FileCall::Write, call, platform::kErrorDiskFull);
            EngineStore store;
            const Status status = store.Open(dir_ / "a.fbr");
            if (faults.Hits() == 0) {
                EXPECT_GT(call, 5u);
                break;
            }
            EXPECT_EQ(status, 112) << "write " << call;
            // It may be empty once all of it is in the container.
            const Bytes left = ReadBytes(dir_ / "a.log");
            EXPECT_TRUE(left == log || left.empty()) << "write " << call;
        }
        OpenAndJudge(dir_ / "a.fbr", scene.Expected());
        EXPECT_FALSE(std::filesystem::exists(dir_ / "a.log"));
    }
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, Logs, testing::Bool());

}  // namespace
}  // namespace support::container
