// Redo logs of the three forms, made by the tests and replayed by the engine.
#include <gtest/gtest.h>

#include <functional>

#include "tests/container/EngineStore.h"
#include "tests/container/Shapes.h"
#include "tests/support/EveryFailure.h"

namespace support::container {
namespace {

using storage::kOk;

constexpr uint32_t kCommitted = 70000, kLost = 70001, kAlso = 5;
constexpr size_t kPayload = 512 - 32;

// A container that is sound once its log is replayed: three pages of \a change, one of them in a
// transaction that was not committed; a page that nothing refers to is freed; a page of \b that
// the map has for free is put back.
struct Scene {
    explicit Scene(bool foreign) {
        form.foreign = foreign;
        form.logPending = 1;
        builder.emplace(form, Directory(u"", {Paged(File(u"a", Pattern(kPayload * 3))),
                                              Paged(File(u"b", Pattern(kPayload * 2, 7)))}));
        const std::vector<uint32_t>& pages = builder->At(u"\\a").streamPages;
        const uint32_t orphan = builder->AddPage(RecordPage);
        const uint32_t unmapped = builder->At(u"\\b").streamPages.back();
        builder->SetSlot(unmapped, Free);
        Put32(builder->Page(unmapped), 8, kCommitted);  // as a writer that logs leaves it
        Bytes body = Pattern(kPayload * 3);
        const auto image = [&](size_t which) {
            Bytes bytes = builder->PageBytes(pages[which]);
            std::fill(bytes.begin() + 32, bytes.end(), static_cast<uint8_t>(0xA0 + which));
            return bytes;
        };
        for (const size_t which : {0, 2})
            std::fill_n(body.begin() + static_cast<std::ptrdiff_t>(which * kPayload), kPayload,
                        static_cast<uint8_t>(0xA0 + which));
        content = {{u"\\a", body}, {u"\\b", Pattern(kPayload * 2, 7)}};
        log = SequentialLog(form, {0, kCommitted, 0, kAlso},
                            {{DataPage, pages[0], kCommitted, image(0), {}},
                             {DataPage, pages[1], kLost, image(1), {}},
                             {kListOfFrees, 1, kCommitted, {}, {orphan}},
                             {DataPage, pages[2], kAlso, image(2), {}},
                             {DataPage, pages[1], 0, image(1), {}},
                             {kListOfRewrites, 1, kAlso, {}, {unmapped}}});
    }

    Form form;
    std::optional<Builder> builder;
    std::vector<Bytes> log;
    Content content;
};

class Logs : public testing::TestWithParam<bool> {
  protected:
    void Lay(const Bytes& file, const Bytes& log) {
        WriteBytes(file_, file);
        WriteBytes(log_, log);
    }
    void OpenAndJudge(const Content& expected) {
        EngineStore store;
        ASSERT_EQ(store.Open(file_), kOk);
        EXPECT_EQ(store.ReadAll(), expected);
        EXPECT_EQ(ContentOf(store.ReadSound().root), expected);
    }
    const TempDir dir_;
    const std::filesystem::path file_ = dir_ / "a.b.fbr", log_ = dir_ / "a.b.log";
};

// What follows a target of 0 is no more part of the log, nor is a part of a page.
TEST_P(Logs, BesideTheContainerAreReplayedAndDeleted) {
    const Scene scene(GetParam());
    Bytes longer = Joined(scene.log);
    longer.resize(longer.size() + 512);
    longer.insert(longer.end(), scene.log[1].begin(), scene.log[1].end());
    longer.resize(longer.size() + 100, 0xFF);
    for (const Bytes& log : {Joined(scene.log), longer}) {
        Lay(scene.builder->Finish(), log);
        OpenAndJudge(scene.content);
        EXPECT_FALSE(std::filesystem::exists(log_));
    }
}

TEST_P(Logs, WithNothingCommittedEmptyOrMissingChangeNothing) {
    Form form;
    form.foreign = GetParam();
    form.logPending = 1;
    const Builder builder(form, Directory(u"", {Paged(File(u"a", Pattern(600)))}));
    const uint32_t page = builder.At(u"\\a").streamPages[0];
    for (const Bytes& log :
         {Joined(SequentialLog(form, {}, {{DataPage, page, 7, Bytes(512, 9), {}}})), Bytes(),
          Bytes{1}}) {
        Lay(builder.Finish(), log);
        if (log.size() == 1) std::filesystem::remove(log_);
        OpenAndJudge({{u"\\a", Pattern(600)}});
        EXPECT_FALSE(std::filesystem::exists(log_));
    }
}

// A container of fixed size is used up to six pages.
TEST_P(Logs, InTheContainersLastPagesAreReplayed) {
    Scene scene(GetParam());
    scene.builder->AddInFileLog(scene.log, 30);
    const Bytes file = scene.builder->Finish();
    Lay(file, {1, 2, 3});  // what lies beside it is none of this container's business
    OpenAndJudge(scene.content);
    EngineStore store;
    ASSERT_EQ(store.Open(file_), kOk);
    Content expected = scene.content;
    storage::Status status = kOk;
    for (size_t i = 0; status == kOk; ++i) {
        status = store.Put(Numbered(u"\\f", i), Pattern(20));
        if (status == kOk) expected[Numbered(u"\\f", i)] = Pattern(20);
    }
    EXPECT_EQ(status, storage::kFull);
    ASSERT_EQ(store.Delete(u"\\f0"), kOk);
    expected.erase(u"\\f0");
    EXPECT_EQ(store.Put(u"\\again", Pattern(20)), kOk);
    expected[u"\\again"] = Pattern(20);
    const Reading reading = store.ReadSound();
    EXPECT_EQ(ContentOf(reading.root), expected);
    EXPECT_GE(reading.usedPages + 9, reading.pageCount);
    EXPECT_EQ(ReadBytes(file_).size(), file.size());
    EXPECT_EQ(ReadBytes(log_), Bytes({1, 2, 3}));
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
    // A copy elsewhere, and one that goes.
    const uint32_t copy = builder.AddPage(Free);
    Bytes image = builder.PageBytes(pages[1]);
    std::fill(image.begin() + 32, image.end(), uint8_t{0xC1});
    Put16(image.data(), 2, DataPage);
    std::copy(image.begin(), image.end(), builder.Page(copy));
    std::vector<uint32_t> logged = {pages[0], copy};
    // And more of these than one page of the log lists.
    for (int i = 0; i < 301; ++i) logged.push_back(builder.AddPage(RecordPage));
    builder.AddChainedLog(logged, 2);
    Lay(builder.Finish(), {1, 2, 3});
    Bytes expected = Pattern(kPayload * 3);
    std::fill_n(expected.begin() + kPayload, kPayload, uint8_t{0xC1});
    OpenAndJudge({{u"\\a", expected}});
    EXPECT_EQ(ReadBytes(log_), Bytes({1, 2, 3}));
    EXPECT_EQ(Get32(ReadContainer(ReadBytes(file_)).superblock.data(), 248), 0u);
}

TEST_P(Logs, ThatFailToBeReplayedAreKeptForTheNextTry) {
    const Scene scene(GetParam());
    const Bytes log = Joined(scene.log);
    WithEveryFailure(Failing::Write, [&](Failure& failure) {
        Lay(scene.builder->Finish(), log);
        EngineStore store;
        const storage::Status status = failure.During([&] { return store.Open(file_); });
        EXPECT_EQ(status, failure.Hit() ? 112 : 0);
        store.Close();
        // It may be empty once all of it is in the container.
        const Bytes left = ReadBytes(log_);
        EXPECT_TRUE(left == log || left.empty());
        OpenAndJudge(scene.content);
        EXPECT_FALSE(std::filesystem::exists(log_));
    });
}

INSTANTIATE_TEST_SUITE_P(ByteOrders, Logs, testing::Bool());

}  // namespace
}  // namespace support::container
