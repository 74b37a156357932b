// SPDX-License-Identifier: MIT
// Several processes on one container: what one of them is told while the others work, and what the
// file is afterwards.
#include <algorithm>

#include "tests/sharing/Content.h"

namespace sharing {
namespace {

namespace fs = std::filesystem;

// Below the time in which a waiting user would give up.
constexpr int64_t kGoodTime = 5000;

class Processes : public testing::Test {
  protected:
    Troupe troupe;
    const std::string path = troupe.File("s.fbr");
};

struct Mix {
    const char* name;
    int time;
    std::vector<std::pair<std::string, std::string>> roles;  // and their command
};

class Mixes : public Processes, public testing::WithParamInterface<Mix> {};

// What no export is to see is a part of a change; what no reader, an older value.
TEST_P(Mixes, GetNoErrorAndNoWrongAnswer) {
    const std::string time = std::to_string(MixTime(GetParam().time));
    const auto writes = [](const auto& role) { return role.first == "write"; };
    const auto& roles = GetParam().roles;
    const auto count = static_cast<uint32_t>(std::count_if(roles.begin(), roles.end(), writes));
    MakeShared(path, count);
    std::vector<Player*> writers;
    for (const auto& role : roles) {
        const size_t number = writes(role) ? writers.size() : count;
        Player* player =
            troupe.Start(role.first, {path, time, std::to_string(number), role.second});
        if (writes(role)) writers.push_back(player);
    }
    std::vector<uint64_t> done;
    for (Player* writer : writers) done.push_back(writer->Finish().value_or(Tally()).done);
    troupe.FinishWell();
    for (uint32_t i = 0; i < count; ++i) ExpectChanges(path, i, done[i]);
    ExpectSound(path);
}

const Mix kMixes[] = {
    {"Exports", 1200, {{"write", ""}, {"export", ""}, {"tool", "copy"}}},
    {"Gets", 1200, {{"write", ""}, {"read", ""}, {"read", "anew"}, {"read-beside-waiting", ""}}},
    {"CheckAndRepair", 1200, {{"write", ""}, {"tool", "check"}, {"tool", "repair"}}},
    {"Compaction", 1200, {{"write", ""}, {"compact", ""}, {"tool", "compact"}, {"read", ""}}},
    {"All",
     4000,
     {{"write", ""},
      {"write", ""},
      {"write", "anew"},
      {"write", "anew"},
      {"read", ""},
      {"read", ""},
      {"read", "anew"},
      {"read", "anew"},
      {"tool", "copy"},
      {"tool", "check"},
      {"compact", ""}}},
};
INSTANTIATE_TEST_SUITE_P(All, Mixes, testing::ValuesIn(kMixes),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(Processes, AReaderThatStaysSeesWhatAnotherWroteAndClosedAndLeavesItAlone) {
    MakeShared(path, 1);
    Store reader(path);
    Bytes data;
    ASSERT_EQ(reader.Get(OwnKey(0), OwnName(0), &data), FSSTATUS_SUCCESS);
    const uint64_t done = troupe.Start("write", {path, "300", "0", "anew"})->FinishWell().done;
    const Bytes after = support::ReadBytes(path);
    Tally tally;
    Key root;
    EXPECT_EQ(ReadAll(reader.handle, &root), FSSTATUS_SUCCESS);
    JudgeShared(root, &tally);
    EXPECT_TRUE(tally.Good()) << tally.Line();
    const uint32_t last = kOwnValues + static_cast<uint32_t>(done) - 1;
    ASSERT_EQ(reader.Get(OwnKey(0), OwnName(last), &data), FSSTATUS_SUCCESS);
    EXPECT_EQ(ReadSeal(data, OwnKey(0), OwnName(last)), (Seal{0, last}));
    uint32_t corrupted = 1;
    EXPECT_EQ(FBR_IsCorrupted(reader.handle, &corrupted), FSSTATUS_SUCCESS);
    EXPECT_EQ(corrupted, 0u);
    EXPECT_EQ(reader.Close(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(support::ReadBytes(path) == after) << "who holds no lock writes nothing";
}

// Each number is set by four processes at once, some of which make the store.
TEST_F(Processes, ThatOpenLockSetReleaseAndCloseUseNoIdTwiceAndLoseNothing) {
    const std::vector<std::string> users = {"0", "1", "2", "3"};
    for (int round = 0; round < (LongForm() ? 750 : 15); ++round) {
        SCOPED_TRACE(round);
        const int values = round > 0 ? 1 : LongForm() ? 5000 : 400;
        const std::string store = troupe.File("made" + std::to_string(round)),
                          moment = std::to_string(NowMs() + 60);
        for (const std::string& user : users)
            troupe.Start("set-from",
                         {troupe.Folder(), store, user, std::to_string(values), moment});
        troupe.FinishWell();
        for (const std::string& user : users) ExpectNumbered(store, user, values);
        ExpectSound(store);
    }
}

// Who uses the file by any name, from a folder, waits for who holds its lock by `path`, and has it
// when that one is killed.
TEST_F(Processes, MeetOneLockUnderEveryNameOfTheFile) {
    fs::create_directories(troupe.File("sub"));
    ASSERT_EQ(Store(path).status, FSSTATUS_SUCCESS);
    std::vector<Words> names = {{troupe.File("sub"), "../s.fbr"},
                                {troupe.Folder(), "s.fbr"},
                                {troupe.File("sub"), troupe.File("sub/.././s.fbr")}};
    std::error_code refused;
    fs::create_symlink(path, troupe.File("symbolic.fbr"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("symbolic.fbr")});
    fs::create_hard_link(path, troupe.File("hard.fbr"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("hard.fbr")});
    fs::create_directory_symlink(troupe.File("sub"), troupe.File("folder"), refused);
    if (!refused) names.push_back({troupe.Folder(), troupe.File("folder/../s.fbr")});
#ifdef _WIN32
    std::string slashes = path, capitals = path;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    std::transform(capitals.begin(), capitals.end(), capitals.begin(), toupper);
    for (const std::string& name : {slashes, capitals, path + ".", path + " ", "\\\\?\\" + path})
        names.push_back({troupe.Folder(), name});
#endif
    const std::string ready = troupe.File("ready");
    for (const Words& name : names) {
        SCOPED_TRACE(name[1]);
        fs::remove(ready);
        Player* holder = troupe.Start("hold", {path, name == names[0] ? "3" : "1", ready});
        ASSERT_TRUE(WaitForFile(ready));
        Player* user = troupe.Start("set-from", {name[0], name[1], "x", "3", "0"});
        Pause(250);
        EXPECT_FALSE(user->HasReported()) << "it has a lock of its own";
        holder->Kill();
        const int64_t killed = NowMs();
        EXPECT_EQ(user->FinishWell(true).done, 3u);
        EXPECT_LT(NowMs() - killed, kGoodTime);
    }
    ExpectNumbered(path, "x", 3);
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
    EXPECT_EQ(store.Close(), FSSTATUS_SUCCESS);
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(troupe.File("other/s.fbr")));
    Bytes data;
    EXPECT_EQ(Store(path).Get(OwnKey(0), OwnName(0), &data), FSSTATUS_SUCCESS);
}

TEST_F(Processes, ACompactionTakesTheLockIfItCan) {
    Store store(path), other(path);
    uint32_t done = 0;
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_SUCCESS);
    ASSERT_EQ(other.Lock(), FSSTATUS_SUCCESS);
    const Bytes before = support::ReadBytes(path);
    EXPECT_EQ(FBR_Compact(store.handle, &done), FSSTATUS_LOCK_FAILED);
    EXPECT_TRUE(support::ReadBytes(path) == before);
}

}  // namespace
}  // namespace sharing
