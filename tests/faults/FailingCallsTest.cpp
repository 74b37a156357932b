// SPDX-License-Identifier: MIT
// Every operation of the engine with every allocation and every file call failing in turn: what it
// was to do is done or not, the rest serves on, and a second try does it.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <sstream>

#include "storage/core/Transaction.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/container/Verbs.h"
#include "tests/support/EveryFailure.h"

namespace faults {
namespace {

using namespace storage;
using namespace support::container;
using support::Bytes;
using support::Failing;

using Operation = support::Section;
const std::vector<Operation>& Operations() {
    static const auto sections = SectionsIn("faults/failing.txt");
    return sections;
}
using NumberedLine = std::pair<int, std::string>;

// A call, which may also answer with one of the statuses behind "or".
Status Call(EngineStore& store, const std::string& line, std::string* told) {
    const size_t behind = line.find(" or ");
    std::string more;
    const Status status = Session{store}.Do(support::WordsOf(line.substr(0, behind)), &more);
    if (status == kOk) *told += more;
    std::istringstream fine(behind == line.npos ? "" : line.substr(behind + 4));
    for (Status other; fine >> other;)
        if (status == other) return kOk;
    return status;
}

bool IsOne(const NumberedLine& step) {
    return step.second.starts_with("one ");
}

// What stands behind "one", with "&" between, is one change.
Status Do(EngineStore& store, const NumberedLine& step, std::string* told) {
    if (!IsOne(step)) return Call(store, step.second, told);
    store.Container()->containerLock.AssertAlone();
    Status status = BeginBatch(store);
    if (status != kOk) return status;
    std::istringstream calls(step.second.substr(4));
    for (std::string call; status == kOk && std::getline(calls, call, '&');)
        status = Call(store, call, told);
    const Status ended = EndBatch(store, status == kOk);
    return status != kOk ? status : ended;
}

// As far as the operation comes; the first failure.
Status Do(EngineStore& store, const Operation& operation, std::string* told) {
    Status status = kOk;
    for (const NumberedLine& step : operation.lines)
        if (status == kOk) status = Do(store, step, told);
    return status;
}

// The file that is written through a handle, which keeps what was written before a failure.
std::u16string Written(const Operation& operation) {
    const support::Words words = support::WordsOf(operation.lines[0].second);
    const std::string verb = platform::ToUtf8(words[0]);
    const bool written = verb == "put" || verb == "write" || verb == "cut";
    return written ? ToUnits(words[1].c_str()) : u"";
}

// Handles and a search on what an operation may fail on.
class Busy {
  public:
    explicit Busy(EngineStore& store)
        : store_(store),
          big_(store, u"\\dir\\big", false),
          directory_(store, u"\\dir"),
          child_(store, u"\\to\\x") {
        EXPECT_EQ(StorageFindFirst(store, &search_, WTEXT("\\dir\\*"), 3, 0), kOk);
        EXPECT_EQ(directory_.Write({'n', 'o', 't', 'e'}), kOk);
        EXPECT_EQ(child_.Write({'z', 'z'}), kOk);
    }
    // All go on; the file that is written is where `path` says.
    void ExpectGoingOn(const std::u16string& path) {
        Bytes read;
        EXPECT_EQ(big_.Read(3, &read), kOk);
        EXPECT_EQ(read, Pattern(3));
        EXPECT_EQ(directory_.Seek(0), kOk);
        EXPECT_EQ(directory_.Read(4, &read), kOk);
        EXPECT_EQ(read, (Bytes{'n', 'o', 't', 'e'}));
        EXPECT_EQ(child_.Write({'!'}), kOk);
        while (StorageFindNext(store_, &search_) == kOk) continue;
        StorageFindClose(store_, &search_);
        for (EngineFile* file : {&child_, &directory_, &big_}) EXPECT_EQ(file->Close(), kOk);
        EXPECT_EQ(store_.Body(path), (Bytes{'z', 'z', '!'}));
    }

  private:
    EngineStore& store_;
    EngineFile big_, directory_, child_;
    StorageSearchStruct search_{};
};

class FailingCalls : public testing::TestWithParam<std::tuple<uint32_t, Failing>> {
  protected:
    FailingCalls() {
        Form form{std::get<0>(GetParam())};
        form.freePages = 3;
        file_ = Builder(form, Tree(Operations()[0])).Finish();
    }
    static std::span<const Operation> All() { return std::span(Operations()).subspan(1); }
    Content OnDisk() { return ContentOf(ReadContainer(container_.Get()).root); }
    // What there may be afterwards, each step done or not, and what all of them tell.
    std::vector<Content> States(const Operation& operation, std::string* told) {
        container_.Put(file_);
        std::vector<Content> states = {OnDisk()};
        for (const NumberedLine& step : operation.lines) {
            EngineStore store;
            EXPECT_EQ(store.Open(container_.Path()), kOk);
            EXPECT_EQ(Do(store, step, told), kOk) << operation.name;
            EXPECT_EQ(store.Close(), kOk);
            states.push_back(OnDisk());
        }
        return states;
    }
    // The store still takes and gives, elsewhere than where the fault struck.
    static void ExpectWorking(EngineStore& store) {
        EXPECT_EQ(store.Body(u"\\other\\v"), Bytes(6, 'o'));
        EXPECT_EQ(store.Put(u"\\other\\probe", Bytes(900, 7)), kOk);
        EXPECT_EQ(store.Body(u"\\other\\probe"), Bytes(900, 7));
        EXPECT_EQ(store.Delete(u"\\other\\probe"), kOk);
    }
    void Attempt(const Operation& operation, const std::vector<Content>& states,
                 const std::string& tells, support::Failure& failure, bool again) {
        std::string told, ignored;
        container_.Put(file_);
        EngineStore store;
        ASSERT_EQ(store.Open(container_.Path()), kOk);
        const Status status = failure.During([&] { return Do(store, operation, &told); });
        EXPECT_TRUE(failure.Hit() || status == kOk) << status;
        EXPECT_TRUE(status != kOk || told == tells) << told;
        if (failure.InHeap()) {
            EXPECT_TRUE(status == kOk || status == kNoMemory) << status;
        }
        ExpectWorking(store);
        const Status second = again && status != kOk ? Do(store, operation, &ignored) : kOk;
        // What memory kept is what the disk says.
        EXPECT_EQ(store.Close(), kOk);
        ASSERT_EQ(store.Open(container_.Path()), kOk);
        ExpectWorking(store);
        EXPECT_EQ(store.Close(), kOk);
        Content now = OnDisk();
        // Of bytes that lie over others in place the last pages may be missing, unless all was
        // well.
        const bool loose = status != kOk && !again;
        const auto written = now.find(Written(operation));
        if (loose && written != now.end()) written->second.reset();
        const auto first = status == kOk || again ? states.end() - 1 : states.begin();
        EXPECT_TRUE(std::any_of(first, states.end(),
                                [&](Content state) {
                                    if (loose && written != now.end())
                                        state.insert_or_assign(written->first, std::nullopt);
                                    return now == state;
                                }))
            << status << " then " << second;
        // Pages that could not be freed are lost, and nothing else is wrong.
        const CheckOutcome check = container_.Check();
        EXPECT_TRUE(failure.InHeap() ? check.FoundNothing() : check.FoundOnlyLostPages())
            << check.Findings();
    }

    MemoryContainer container_;
    Bytes file_;
};

TEST_P(FailingCalls, LeaveAnOperationDoneOrNot) {
    for (const Operation& operation : All()) {
        SCOPED_TRACE(operation.name);
        std::string told;
        const std::vector<Content> states = States(operation, &told);
        for (const bool again : {false, true})
            support::WithEveryFailure(std::get<1>(GetParam()), [&](support::Failure& failure) {
                Attempt(operation, states, told, failure, again);
            });
        if (HasFailure()) return;
    }
}

TEST_P(FailingCalls, LeaveHandlesAndSearchesUsable) {
    if (std::get<1>(GetParam()) != Failing::Allocation) return;
    for (const Operation& operation : All()) {
        if (IsOne(operation.lines[0])) continue;
        SCOPED_TRACE(operation.name);
        support::WithEveryFailure(Failing::Allocation, [&](support::Failure& failure) {
            container_.Put(file_);
            EngineStore store;
            ASSERT_EQ(store.Open(container_.Path()), kOk);
            Busy busy(store);
            std::string told;
            failure.During([&] { return Do(store, operation, &told); });
            busy.ExpectGoingOn(store.Has(u"\\to\\x") ? u"\\to\\x" : u"\\dir\\x");
            ExpectWorking(store);
            EXPECT_EQ(store.Close(), kOk);
            container_.ReadSound();
        });
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FailingCalls,
                         testing::Combine(testing::Values(256u, 512u),
                                          testing::Values(Failing::Allocation, Failing::FileCall,
                                                          Failing::FileCallsFromThenOn)));

}  // namespace
}  // namespace faults
