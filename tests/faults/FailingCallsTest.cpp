// SPDX-License-Identifier: MIT
// Every operation of the engine with every allocation and every file call failing in turn: what it
// was to do is done or not, the rest serves on, and a second try does it.
#include <gtest/gtest.h>

#include <algorithm>

#include "storage/core/Transaction.h"
#include "storage/namespace/Operations.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/contract/ScriptText.h"
#include "tests/support/EveryFailure.h"

namespace faults {
namespace {

using namespace storage;
using namespace support::container;
using support::Bytes;
using support::Failing;
using Store = EngineStore;

const std::u16string kLong(300, u'n'), kStem(22, u's');

// Something of each sort.
Item Tree() {
    using support::container::Directory;
    Item old = Directory(u"old", {File(u"in", Bytes(3, 'i')), Directory(u"sub")});
    old.inlineEntries = true;
    return Directory(
        u"", {Directory(u"dir", {File(u"small", Bytes(20, 'a')), File(u"big", Pattern(9000)),
                                 File(kLong, Bytes(5, 'c')), Directory(u"d1"), Directory(u"d2"),
                                 Directory(u"d3"), Directory(u"d4")}),
              Directory(u"long", {File(kStem + u"b"), File(kStem + u"a"), File(kStem + u"c")}),
              Directory(u"to", {File(u"x", Bytes(1, 'x'))}), old, File(u"parent", Bytes(4, 'p')),
              Link(u"link", u"dir"), File(u"pages", Pattern(224 * 70)),
              Directory(u"files", {File(u"f1", Bytes(9, 'f')), File(u"f2", Pattern(900))}),
              Directory(u"other", {File(u"v", Bytes(6, 'o'))})});
}

// A change, done or not; a status that is no failure is none.
Status Do(Store& store, const std::string& line) {
    const contract::Words words = contract::WordsOf(line);
    const std::string verb = platform::ToUtf8(words[0]);
    const std::u16string path = ToUnits(words[1].c_str()), last = ToUnits(words.back().c_str());
    const auto number = [&](size_t i) {
        return static_cast<uint32_t>(std::stoul(platform::ToUtf8(words[i])));
    };
    const auto data = [&](size_t i) { return contract::DataOf(platform::ToUtf8(words[i])); };
    const auto unless = [](Status status, std::initializer_list<Status> fine) {
        return std::count(fine.begin(), fine.end(), status) != 0 ? Status{kOk} : status;
    };
    Bytes body;
    if (verb == "make") return unless(store.MakeDirectory(path), {kExists});
    if (verb == "put") return store.Put(path, data(2));
    if (verb == "read") return store.Get(path, &body);
    if (verb == "delete") return store.Delete(path);
    if (verb == "move") return store.Move(path, last);
    if (verb == "look") return store.Attributes(path);
    if (verb == "compact") return StorageCompact(store, nullptr);
    if (verb == "times") {
        double created = 0;
        return StorageGetFileTimes(store, words[1].c_str(), &created, nullptr, nullptr);
    }
    if (verb == "list") {
        std::vector<std::pair<std::u16string, uint32_t>> entries;
        const Status status = store.List(path, &entries);
        return status == kOk && entries.size() != number(2) ? Status{kInternal} : status;
    }
    if (verb == "delete-with-files") {
        store.Container()->containerLock.AssertAlone();
        return unless(DeleteWithFilesAt(store, words[1].c_str()), {kNotPlain, kParentMissing});
    }
    if (verb == "put-whole") {
        body = data(2);
        const Status status = PutAt(store, WTEXT("\\to"), words[1],
                                    {"head", 4, body.data(), static_cast<uint32_t>(body.size())});
        // Who cannot do it in one step goes the long way, and is told the reason there.
        return status == kNotPlain ? Status{kNoMemory} : status;
    }
    EngineFile file(store, path);
    Status status = file.Opened();
    if (status != kOk) return status;
    if (verb == "write") file.SeekFar(number(2));
    for (size_t i = verb == "write" ? 3 : 2; i < words.size() && status == kOk; ++i)
        status = verb == "write" ? file.Write(data(i)) : file.SetSize(number(i));
    const Status closed = file.Close();
    return status != kOk ? status : closed;
}

// What stands in one line, with " & " between, is one change.
Status InOne(Store& store, const std::string& line, bool batch) {
    if (!batch) return Do(store, line);
    store.Container()->containerLock.AssertAlone();
    Status status = BeginBatch(store);
    if (status != kOk) return status;
    const std::string text = line + " & ";
    for (size_t at = 0, end; status == kOk && (end = text.find(" & ", at)) != text.npos;
         at = end + 3)
        status = Do(store, text.substr(at, end - at));
    const Status ended = EndBatch(store, status == kOk);
    return status != kOk ? status : ended;
}

struct Operation {
    const char* name;
    std::vector<const char*> steps;  // none begins after one that failed
    // A file that is written through a handle, which keeps what was written before the failure.
    std::u16string written{};
    bool batch = false;  // each step is one change, and wants to be alone
};

const Operation kOperations[] = {
    {"make a directory in a full page", {"make \\dir\\new"}},
    {"make one with a long name", {"make \\to\\<l*600>"}},
    {"make one among names that share their beginning", {"make \\long\\<s*22>bb"}},
    {"make the first child of a file", {"make \\parent\\first"}},
    {"make one below a link", {"make \\link\\new"}},
    {"make one that exists", {"make \\dir\\d1"}},
    {"create a file and write it in pieces",
     {"put \\dir\\file \"\"", "write \\dir\\file 0 'abcde *900"},
     u"\\dir\\file"},
    {"replace a file", {"put \\files\\f2 *3000"}, u"\\files\\f2"},
    {"overwrite, and on past a second index page",
     {"write \\pages 600 *700", "write \\pages 17920 'abc"},
     u"\\pages"},
    {"shorten", {"cut \\pages 12993 4480 1344"}, u"\\pages"},
    {"put a small file in one step, a larger one in its place, and one larger still",
     {"put-whole put *4", "put-whole put *1500", "put-whole put *2000"},
     u"",
     true},
    {"delete a directory with its files", {"delete-with-files \\files"}},
    {"change two things at once", {"put \\to\\one *700 & move \\to\\x \\dir\\x"}, u"", true},
    {"write to a directory with its entries in the record", {"write \\old 0 *300"}},
    {"open a directory as a file", {"write \\dir\\d1 0"}},
    {"read", {"read \\pages"}},
    {"read through a link", {"read \\link\\small"}},
    {"delete a small file", {"delete \\dir\\small"}},
    {"delete a big file", {"delete \\dir\\big"}},
    {"delete a long name", {"delete \\dir\\<n*300>"}},
    {"delete a directory", {"delete \\dir\\d2"}},
    {"rename to a long name", {"move \\dir\\small \\dir\\<r*400>"}},
    {"rename to a short name", {"move \\dir\\<n*300> \\dir\\r"}},
    {"rename a directory", {"move \\dir \\DIR"}},
    {"move a file", {"move \\dir\\<n*300> \\to\\y"}},
    {"move a directory", {"move \\dir \\to\\dir"}},
    {"look in an older directory", {"look \\old\\in"}},
    {"search with long names", {"list \\long 3"}},
    {"ask for the times", {"times \\dir\\big"}},
    {"compact", {"delete \\pages", "compact \\"}},
};

// Handles and a search on what an operation may fail on.
class Busy {
  public:
    explicit Busy(Store& store)
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
    Store& store_;
    EngineFile big_, directory_, child_;
    StorageSearchStruct search_{};
};

class FailingCalls : public testing::TestWithParam<std::tuple<uint32_t, Failing>> {
  protected:
    FailingCalls() {
        Form form{std::get<0>(GetParam())};
        form.freePages = 3;
        file_ = Builder(form, Tree()).Finish();
    }
    // As far as the operation comes; the first failure.
    static Status Do(const Operation& operation, Store& store) {
        Status status = kOk;
        for (const char* step : operation.steps)
            if (status == kOk) status = InOne(store, step, operation.batch);
        return status;
    }
    Content OnDisk() { return ContentOf(ReadContainer(container_.Get()).root); }
    // What there may be afterwards: each step done or not.
    std::vector<Content> States(const Operation& operation) {
        container_.Put(file_);
        std::vector<Content> states = {OnDisk()};
        for (const char* step : operation.steps) {
            Store store;
            EXPECT_EQ(store.Open(container_.Path()), kOk);
            EXPECT_EQ(InOne(store, step, operation.batch), kOk) << operation.name;
            EXPECT_EQ(store.Close(), kOk);
            states.push_back(OnDisk());
        }
        return states;
    }
    // The store still takes and gives, elsewhere than where the fault struck.
    static void ExpectWorking(Store& store) {
        EXPECT_EQ(store.Body(u"\\other\\v"), Bytes(6, 'o'));
        EXPECT_EQ(store.Put(u"\\other\\probe", Bytes(900, 7)), kOk);
        EXPECT_EQ(store.Body(u"\\other\\probe"), Bytes(900, 7));
        EXPECT_EQ(store.Delete(u"\\other\\probe"), kOk);
    }
    void Attempt(const Operation& operation, const std::vector<Content>& states,
                 support::Failure& failure, bool again) {
        container_.Put(file_);
        Store store;
        ASSERT_EQ(store.Open(container_.Path()), kOk);
        const Status status = failure.During([&] { return Do(operation, store); });
        if (!failure.Hit()) {
            EXPECT_EQ(status, kOk);
        }
        if (failure.InHeap()) {
            EXPECT_TRUE(status == kOk || status == kNoMemory) << status;
        }
        ExpectWorking(store);
        const Status second = again && status != kOk ? Do(operation, store) : kOk;
        // What memory kept is what the disk says.
        EXPECT_EQ(store.Close(), kOk);
        ASSERT_EQ(store.Open(container_.Path()), kOk);
        ExpectWorking(store);
        EXPECT_EQ(store.Close(), kOk);
        Content now = OnDisk();
        // Of bytes that lie over others in place the last pages may be missing, unless all was
        // well.
        const bool loose = status != kOk && !again;
        const auto written = now.find(operation.written);
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
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.name);
        const std::vector<Content> states = States(operation);
        for (const bool again : {false, true})
            support::WithEveryFailure(std::get<1>(GetParam()), [&](support::Failure& failure) {
                Attempt(operation, states, failure, again);
            });
        if (HasFailure()) return;
    }
}

TEST_P(FailingCalls, LeaveHandlesAndSearchesUsable) {
    if (std::get<1>(GetParam()) != Failing::Allocation) return;
    for (const Operation& operation : kOperations) {
        if (operation.batch) continue;
        SCOPED_TRACE(operation.name);
        support::WithEveryFailure(Failing::Allocation, [&](support::Failure& failure) {
            container_.Put(file_);
            Store store;
            ASSERT_EQ(store.Open(container_.Path()), kOk);
            Busy busy(store);
            failure.During([&] { return Do(operation, store); });
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
