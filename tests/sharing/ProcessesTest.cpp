// Several processes on one container: what one of them is told while the others work, and what the
// file is afterwards.
#include "tests/sharing/Content.h"

namespace sharing {
namespace {

namespace fs = std::filesystem;

// Below the time in which a waiting user would give up.
constexpr int64_t kGoodTime = 5000;

class Processes : public testing::Test {
  protected:
    // The same words for several players of one role.
    void Start(const std::string& role, int count, const Words& words = {}) {
        Words all = {path, std::to_string(time)};
        all.insert(all.end(), words.begin(), words.end());
        for (int i = 0; i < count; ++i) troupe.Start(role, all);
    }

    Troupe troupe;
    const std::string path = troupe.File("s.fbr");
    int time = MixTime(1200);
};

TEST_F(Processes, AReaderThatStaysSeesWhatAnotherWroteAndClosedAndLeavesItAlone) {
    MakeShared(path, 1);
    Store reader(path);
    Bytes data;
    ASSERT_EQ(reader.Get(OwnKey(0), OwnName(0), &data), FSSTATUS_SUCCESS);
    time = 300;
    Start("sharing-open-write", 1, {"0"});
    const uint64_t done = troupe.FinishWell().done;
    const Bytes after = support::ReadBytes(path);
    Tally tally;
    Key root;
    EXPECT_EQ(ReadAll(reader.handle, &root), FSSTATUS_SUCCESS);
    JudgeShared(root, &tally);
    EXPECT_TRUE(tally.Good()) << tally.Line();
    const uint32_t last = kOwnValues + static_cast<uint32_t>(done) - 1;
    std::string wrong;
    ASSERT_EQ(reader.Get(OwnKey(0), OwnName(last), &data), FSSTATUS_SUCCESS);
    EXPECT_EQ(ReadSeal(data, OwnKey(0), OwnName(last), &wrong), (Seal{0, last})) << wrong;
    uint32_t corrupted = 0;
    EXPECT_EQ(FBR_IsCorrupted(reader.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
    EXPECT_EQ(reader.Close(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(support::ReadBytes(path) == after) << "who holds no lock writes nothing";
    ExpectChanges(path, 0, done);
    ExpectSound(path);
}

TEST_F(Processes, ExportsBesideAWriterHoldOneStateEach) {
    MakeShared(path, 1);
    Start("sharing-write", 1, {"0"});
    Start("sharing-export", 1);
    Start("sharing-tool-export", 1);
    troupe.FinishWell();
    ExpectSound(path);
}

TEST_F(Processes, GetsWithoutALockBesideAWriterAreWholeAndNeverOlder) {
    MakeShared(path, 1);
    Player* writer = troupe.Start("sharing-write", {path, std::to_string(time), "0"});
    Start("sharing-read", 1, {"1"});
    Start("sharing-open-read", 1, {"1"});
    Start("sharing-read-beside-waiting", 1, {"1"});
    const std::optional<Tally> wrote = writer->Finish();
    troupe.FinishWell();
    ASSERT_TRUE(wrote.has_value());
    ExpectChanges(path, 0, wrote->done);
    ExpectSound(path);
}

TEST_F(Processes, ThatOpenLockSetReleaseAndCloseUseNoIdTwiceAndLoseNothing) {
    const int values = LongForm() ? 5000 : 400;
    ASSERT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    const std::string moment = std::to_string(NowMs() + 100);
    for (const char* number : {"0", "1", "2", "3"})
        troupe.Start("sharing-set-from",
                     {troupe.Folder(), path, number, std::to_string(values), moment});
    troupe.FinishWell();
    for (const char* number : {"0", "1", "2", "3"}) ExpectValuesFrom(path, number, values);
    ExpectSound(path);
}

TEST_F(Processes, MeetOneLockUnderEveryNameOfTheFile) {
    fs::create_directories(troupe.File("sub"));
    ASSERT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    std::vector<Words> names = {{troupe.File("sub"), "../s.fbr"},
                                {troupe.Folder(), "s.fbr"},
                                {troupe.Folder(), path},
                                {troupe.File("sub"), troupe.File("sub/.././s.fbr")}};
    std::error_code refused;
    fs::create_symlink(path, troupe.File("symbolic.fbr"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("symbolic.fbr")});
    fs::create_hard_link(path, troupe.File("hard.fbr"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("hard.fbr")});
    fs::create_directory_symlink(troupe.File("sub"), troupe.File("folder"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("folder/../s.fbr")});
    for (const Words& name : names) ExpectOneLock(&troupe, path, name[0], name[1]);
    ExpectValuesFrom(path, "x", 3);
    ExpectSound(path);
}

TEST_F(Processes, KeepTheFileOfARelativePathWhereverTheyGo) {
    fs::create_directories(troupe.File("other"));
    const fs::path before = fs::current_path();
    fs::current_path(troupe.Folder());
    Store store("s.fbr");
    fs::current_path(troupe.File("other"));
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(ChangeShared(&store, 0, 0), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(troupe.File("other/s.fbr")));
    Store again(path);
    Bytes data;
    EXPECT_EQ(again.Get(OwnKey(0), OwnName(0), &data), FSSTATUS_SUCCESS);
}

TEST_F(Processes, CheckAndRepairBesideAWriterTakeNothingFromIt) {
    MakeShared(path, 1);
    const Words words = {path, std::to_string(time), "0"};
    Player* writer = troupe.Start("sharing-write", words);
    Start("sharing-check", 1);
    troupe.Start("sharing-tool", {"check", path, std::to_string(time)});
    troupe.Start("sharing-tool", {"repair", path, std::to_string(time)});
    const std::optional<Tally> wrote = writer->Finish();
    troupe.FinishWell();
    ASSERT_TRUE(wrote.has_value());
    ExpectChanges(path, 0, wrote->done);
    ExpectSound(path);
}

TEST_F(Processes, CompactionTakesTheLockAndGoesWithWriters) {
    MakeShared(path, 1);
    {
        Store store(path), other(path);
        uint32_t done = 0;
        EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_SUCCESS);
        ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
        const Bytes before = support::ReadBytes(path);
        EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_LOCK_FAILED);
        EXPECT_TRUE(support::ReadBytes(path) == before);
    }
    Player* writer = troupe.Start("sharing-write", {path, std::to_string(time), "0"});
    Start("sharing-compact", 1);
    troupe.Start("sharing-tool", {"compact", path, std::to_string(time)});
    Start("sharing-read", 1, {"1"});
    const std::optional<Tally> wrote = writer->Finish();
    troupe.FinishWell();
    ASSERT_TRUE(wrote.has_value());
    ExpectChanges(path, 0, wrote->done);
    ExpectSound(path);
}

TEST_F(Processes, ThatMakeOneMissingStoreAtOnceAllHaveIt) {
    for (int round = 0; round < (LongForm() ? 750 : 15); ++round) {
        SCOPED_TRACE(round);
        const std::string store = troupe.File("made" + std::to_string(round));
        const std::string moment = std::to_string(NowMs() + 60);
        for (int i = 0; i < 4; ++i)
            troupe.Start("sharing-make", {store, std::to_string(i), moment});
        troupe.FinishWell();
        Store made(store);
        for (const std::string name : {"0", "1", "2", "3"}) {
            Bytes data;
            EXPECT_EQ(made.Get("\\made", name, &data), FSSTATUS_SUCCESS) << name;
            EXPECT_EQ(data, Sealed("\\made", name, {}, 100));
        }
        EXPECT_EQ(made.Close(), FSSTATUS_SUCCESS);
        ExpectSound(store);
    }
}

TEST_F(Processes, AHolderThatIsKilledFreesTheLock) {
    MakeShared(path, 1);
    for (const std::string type : {"1", "3"}) {
        const std::string ready = troupe.File("ready" + type);
        Player* holder = troupe.Start("sharing-hold", {path, type, ready});
        ASSERT_TRUE(WaitForFile(ready));
        holder->Kill();
        const int64_t began = NowMs();
        Store store(path);
        EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        EXPECT_LT(NowMs() - began, kGoodTime);
        EXPECT_EQ(ChangeShared(&store, 0, kOwnValues), FSSTATUS_SUCCESS);
    }
    ExpectSound(path);
}

// All of them at once.
TEST_F(Processes, OfEveryKindTogetherGetNoErrorAndNoWrongAnswer) {
    time = MixTime(4000);
    MakeShared(path, 4);
    const std::string ms = std::to_string(time);
    std::vector<Player*> writers;
    for (int i = 0; i < 4; ++i)
        writers.push_back(troupe.Start(i < 2 ? "sharing-write" : "sharing-open-write",
                                       {path, ms, std::to_string(i)}));
    Start("sharing-read", 2, {"4"});
    Start("sharing-open-read", 2, {"4"});
    Start("sharing-tool-export", 1);
    troupe.Start("sharing-tool", {"check", path, ms});
    Start("sharing-compact", 1);
    std::vector<uint64_t> done;
    for (Player* writer : writers) done.push_back(writer->Finish().value_or(Tally()).done);
    troupe.FinishWell();
    for (uint32_t i = 0; i < 4; ++i) ExpectChanges(path, i, done[i]);
    ExpectSound(path);
}

}  // namespace
}  // namespace sharing
