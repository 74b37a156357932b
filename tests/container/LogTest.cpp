// SPDX-License-Identifier: MIT
// Redo logs of the three forms, made by the tests and replayed by the engine.
#include <gtest/gtest.h>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/EveryFailure.h"

namespace support::container {
namespace {

using storage::kOk;

constexpr uint32_t kCommitted = 70000, kLost = 70001, kAlso = 5;
constexpr size_t kPayload = 512 - 32;

enum class LogKind { Beside, InFile, Chained };

// A container that is sound once its log is replayed.
struct Scene {
    Bytes file, log;  // no log for a container that has it inside
    Content content;
};

// What a page holds when it was replayed.
const Bytes kFill(kPayload, 0xA1);
Bytes Filled(Bytes page) {
    Overwrite(&page, 32, kFill.data(), kPayload);
    return page;
}

// Three pages of \a change, one of them in a transaction that was not committed; a page that
// nothing refers to is freed; a page of \b that the map has for free is put back.
Scene Sequential(bool foreign, bool inFile) {
    Form form{512, foreign};
    form.logPending = 1;
    Builder builder(form, Tree("a *3p pages ; b *2p pages"));
    const std::vector<uint32_t>& pages = builder.At(u"\\a").streamPages;
    const uint32_t orphan = builder.AddPage(RecordPage);
    const uint32_t unmapped = builder.At(u"\\b").streamPages.back();
    builder.SetSlot(unmapped, Free);
    Put32(builder.Page(unmapped), 8, kCommitted);  // as a writer that logs leaves it
    const auto image = [&](size_t which) { return Filled(builder.PageBytes(pages[which])); };
    Bytes body = Pattern(kPayload * 3);
    for (const size_t which : {0, 2}) Overwrite(&body, which * kPayload, kFill.data(), kPayload);
    const std::vector<Bytes> log = SequentialLog(form, {0, kCommitted, 0, kAlso},
                                                 {{DataPage, pages[0], kCommitted, image(0), {}},
                                                  {DataPage, pages[1], kLost, image(1), {}},
                                                  {kListOfFrees, 1, kCommitted, {}, {orphan}},
                                                  {DataPage, pages[2], kAlso, image(2), {}},
                                                  {DataPage, pages[1], 0, image(1), {}},
                                                  {kListOfRewrites, 1, kAlso, {}, {unmapped}}});
    if (inFile) builder.AddInFileLog(log, 30);
    return {builder.Finish(),
            inFile ? Bytes() : Joined(log),
            {{u"\\a", body}, {u"\\b", Pattern(kPayload * 2)}}};
}

// One page is in its place and not yet there: of kind 0 with the pending kind, and free in the map.
// Another has a copy elsewhere. And `others` are more than one page of the log lists.
Scene Chained(bool foreign, int others) {
    Builder builder({512, foreign}, Tree("a *3p pages"));
    const std::vector<uint32_t> pages = builder.At(u"\\a").streamPages;
    Put16(builder.Page(pages[0]), 0, Free);
    Put16(builder.Page(pages[0]), 2, DataPage);
    builder.SetSlot(pages[0], Free);
    const uint32_t copy = builder.AddPage(Free);
    Bytes image = Filled(builder.PageBytes(pages[1]));
    Put16(image.data(), 2, DataPage);
    std::copy(image.begin(), image.end(), builder.Page(copy));
    std::vector<uint32_t> logged = {pages[0], copy};
    for (int i = 0; i < others; ++i) logged.push_back(builder.AddPage(RecordPage));
    builder.AddChainedLog(logged, 2);
    Bytes body = Pattern(kPayload * 3);
    Overwrite(&body, kPayload, kFill.data(), kPayload);
    return {builder.Finish(), {}, {{u"\\a", body}}};
}

class Logs : public testing::TestWithParam<std::tuple<LogKind, bool>> {
  protected:
    LogKind Kind() const { return std::get<0>(GetParam()); }
    bool Foreign() const { return std::get<1>(GetParam()); }
    bool IsBeside() const { return Kind() == LogKind::Beside; }
    Scene Make(int others) const {
        return Kind() == LogKind::Chained ? Chained(Foreign(), others)
                                          : Sequential(Foreign(), Kind() == LogKind::InFile);
    }
    // What lies beside a container with its log inside is none of its business.
    void Lay(const Scene& scene) {
        WriteBytes(file_, scene.file);
        WriteBytes(log_, IsBeside() ? scene.log : Bytes{1, 2, 3});
    }
    void OpenAndJudge(const Content& expected, bool orLostPages = false) {
        EngineStore store;
        ASSERT_EQ(store.Open(file_), kOk);
        EXPECT_EQ(store.ReadAll(), expected);
        if (orLostPages) return;
        EXPECT_EQ(ContentOf(store.ReadSound().root), expected);
        EXPECT_EQ(ReadBytes(log_), IsBeside() ? Bytes() : Bytes({1, 2, 3}));
        EXPECT_NE(std::filesystem::exists(log_), IsBeside());
    }
    const TempDir dir_;
    const std::filesystem::path file_ = dir_ / "a.b.fbr", log_ = dir_ / "a.b.log";
};

// What follows a target of 0 is no more part of the log, nor is a part of a page.
TEST_P(Logs, AreReplayed) {
    Scene scene = Make(301);
    Lay(scene);
    OpenAndJudge(scene.content);
    if (!IsBeside()) return;
    const Bytes first(scene.log.begin() + 512, scene.log.begin() + 1024);
    scene.log.resize(scene.log.size() + 512);
    scene.log.insert(scene.log.end(), first.begin(), first.end());
    scene.log.resize(scene.log.size() + 100, 0xFF);
    Lay(scene);
    OpenAndJudge(scene.content);
}

TEST_P(Logs, WithNothingCommittedEmptyOrMissingChangeNothing) {
    if (!IsBeside()) return;
    Form form{512, Foreign()};
    form.logPending = 1;
    const Builder builder(form, Tree("a *600 pages"));
    const uint32_t page = builder.At(u"\\a").streamPages[0];
    for (const Bytes& log :
         {Joined(SequentialLog(form, {}, {{DataPage, page, 7, Bytes(512, 9), {}}})), Bytes(),
          Bytes{1}}) {
        Lay({builder.Finish(), log, {}});
        if (log.size() == 1) std::filesystem::remove(log_);
        OpenAndJudge({{u"\\a", Pattern(600)}});
    }
}

// A container of fixed size is used up to six pages.
TEST_P(Logs, InTheContainerLeaveTheRestToIt) {
    if (Kind() != LogKind::InFile) return;
    const Scene scene = Make(0);
    Lay(scene);
    EngineStore store;
    ASSERT_EQ(store.Open(file_), kOk);
    Content expected = scene.content;
    size_t made = 0;
    while (store.Put(Numbered(u"\\f", made), Pattern(20)) == kOk)
        expected[Numbered(u"\\f", made++)] = Pattern(20);
    EXPECT_EQ(store.Put(u"\\more", {}), storage::kFull);
    ASSERT_EQ(store.Delete(u"\\f0"), kOk);
    EXPECT_EQ(store.Put(u"\\f0", Pattern(30)), kOk);
    expected[u"\\f0"] = Pattern(30);
    const Reading reading = store.ReadSound();
    EXPECT_EQ(ContentOf(reading.root), expected);
    EXPECT_GE(reading.usedPages + 9, reading.pageCount);
    EXPECT_EQ(ReadBytes(file_).size(), scene.file.size());
}

TEST_P(Logs, ThatFailToBeReplayedAreKeptForTheNextTry) {
    const Scene scene = Make(3);
    WithEveryFailure(Failing::FileCall, [&](Failure& failure) {
        Lay(scene);
        EngineStore store;
        const storage::Status status = failure.During([&] { return store.Open(file_); });
        // What cannot be looked at is none.
        EXPECT_TRUE(failure.Hit() ? status == 112 || status == storage::kNotContainer : status == 0)
            << status;
        store.Close();
        // It may be empty once all of it is in the container.
        const Bytes left = ReadBytes(log_);
        EXPECT_TRUE(!IsBeside() || left == scene.log || left.empty());
        OpenAndJudge(scene.content, failure.Hit() && Kind() == LogKind::Chained);
    });
}

// The container and its log as they were at every moment are repaired, which replays what is left
// of the log. It is whole until all of it is replayed, and is then switched off at once; a torn
// page of one inside can take along what stands on it.
TEST_P(Logs, AreReplayedAfterACrashInTheMiddle) {
    const Scene scene = Make(3);
    MemoryContainer container;
    std::vector<std::pair<Bytes, Bytes>> moments;
    container.Put(scene.file, scene.log);
    {
        const MemoryFiles::Recording recording(container.Files());
        EngineStore store;
        ASSERT_EQ(store.Open(container.Path()), kOk);
        ASSERT_EQ(store.Close(), kOk);
        ASSERT_GT(recording.Changes().size(), 3u);
        for (size_t i = 0; i <= recording.Changes().size(); ++i)
            for (const size_t torn : {size_t{3}, size_t{100}, SIZE_MAX})
                moments.emplace_back(recording.Image(container.Path(), i, torn),
                                     recording.Image(container.LogPath(), i, torn));
    }
    for (size_t i = 0; i < moments.size(); ++i) {
        SCOPED_TRACE("moment " + std::to_string(i));
        container.Put(moments[i].first, moments[i].second);
        container.Check();
        EXPECT_EQ(std::pair(container.Get(), container.Log()), moments[i]) << "by a check";
        ASSERT_EQ(container.Check(kRepair).status, 0);
        if (i % 3 == 2 || IsBeside()) {
            EXPECT_EQ(ContentOf(ReadContainer(container.Get()).root), scene.content);
        }
        container.ExpectPromisesKept();
    }
}

INSTANTIATE_TEST_SUITE_P(All, Logs,
                         testing::Combine(testing::Values(LogKind::Beside, LogKind::InFile,
                                                          LogKind::Chained),
                                          testing::Bool()));

}  // namespace
}  // namespace support::container
