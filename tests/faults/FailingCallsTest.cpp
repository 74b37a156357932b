// SPDX-License-Identifier: MIT
// Every operation of the engine with every allocation and every file call failing in turn: what it
// was to do is done or not, the rest serves on, and a second try does it.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "storage/core/Transaction.h"
#include "storage/namespace/Operations.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/support/EveryFailure.h"
#include "tests/support/MemoryFiles.h"

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

Status Write(Store& store, const std::u16string& path, uint64_t at,
             const std::vector<Bytes>& pieces) {
    EngineFile file(store, path);
    Status status = file.Opened();
    if (status != kOk) return status;
    file.SeekFar(at);
    for (const Bytes& piece : pieces)
        if (status == kOk) status = file.Write(piece);
    const Status closed = file.Close();
    return status != kOk ? status : closed;
}

Status Resize(Store& store, const std::u16string& path, std::initializer_list<uint32_t> sizes) {
    EngineFile file(store, path);
    Status status = file.Opened();
    if (status != kOk) return status;
    for (const uint32_t size : sizes)
        if (status == kOk) status = file.SetSize(size);
    const Status closed = file.Close();
    return status != kOk ? status : closed;
}

Status Look(Store& store, const std::u16string& path) {
    Bytes body;
    return store.Get(path, &body);
}

Status Count(Store& store, const std::u16string& directory, size_t count) {
    std::vector<std::pair<std::u16string, uint32_t>> entries;
    const Status status = store.List(directory, &entries);
    return status == kOk && entries.size() != count ? Status{kInternal} : status;
}

Status InABatch(Store& store, const std::function<Status()>& work) {
    store.Container()->containerLock.AssertAlone();
    Status status = BeginBatch(store);
    if (status != kOk) return status;
    status = work();
    const Status ended = EndBatch(store, status == kOk);
    return status != kOk ? status : ended;
}

// Each step is one change, done or not; none begins after one that failed.
Status PutInOneStep(Store& s, size_t bytes) {
    const Bytes data(bytes, static_cast<uint8_t>(bytes));
    return InABatch(s, [&] {
        const Status status = PutAt(s, WTEXT("\\to"), WTEXT("put"),
                                    {"head", 4, data.data(), static_cast<uint32_t>(data.size())});
        // Who cannot do it in one step goes the long way, and is told the reason there.
        return status == kNotPlain ? Status{kNoMemory} : status;
    });
}

struct Operation {
    const char* name;
    std::vector<std::function<Status(Store&)>> steps;
    // A file that is written through a handle, which keeps what was written before the failure.
    std::u16string written{};
    bool batch = false;  // wants to be alone
};

const Operation kOperations[] = {
    {"make a directory in a full page", {[](Store& s) { return s.MakeDirectory(u"\\dir\\new"); }}},
    {"make one with a long name",
     {[](Store& s) { return s.MakeDirectory(u"\\to\\" + std::u16string(600, u'l')); }}},
    {"make one among names that share their beginning",
     {[](Store& s) { return s.MakeDirectory(u"\\long\\" + kStem + u"bb"); }}},
    {"make the first child of a file",
     {[](Store& s) { return s.MakeDirectory(u"\\parent\\first"); }}},
    {"make one below a link", {[](Store& s) { return s.MakeDirectory(u"\\link\\new"); }}},
    {"make one that exists", {[](Store& s) {
         const Status status = s.MakeDirectory(u"\\dir\\d1");
         return status == kExists ? Status{kOk} : status;
     }}},
    {"create a file and write it in pieces",
     {[](Store& s) { return s.Put(u"\\dir\\file", {}); },
      [](Store& s) {
          return Write(s, u"\\dir\\file", 0, {5, Pattern(900)});
      }},
     u"\\dir\\file"},
    {"replace a file",
     {[](Store& s) { return s.Put(u"\\files\\f2", Pattern(3000, 2)); }},
     u"\\files\\f2"},
    {"overwrite, and on past a second index page",
     {[](Store& s) { return Write(s, u"\\pages", 600, {Bytes(700, 1)}); },
      [](Store& s) {
          return Write(s, u"\\pages", 224 * 80, {{1, 2, 3}});
      }},
     u"\\pages"},
    {"shorten",
     {[](Store& s) {
         return Resize(s, u"\\pages", {58 * 224 + 1, 20 * 224, 6 * 224});
     }},
     u"\\pages"},
    {"put a small file in one step, a larger one in its place, and one larger still",
     {[](Store& s) { return PutInOneStep(s, 4); }, [](Store& s) { return PutInOneStep(s, 1500); },
      [](Store& s) { return PutInOneStep(s, 2000); }},
     u"",
     true},
    {"delete a directory with its files", {[](Store& s) {
         s.Container()->containerLock.AssertAlone();
         const Status status = DeleteWithFilesAt(s, WTEXT("\\files"));
         return status == kNotPlain || status == kParentMissing ? Status{kOk} : status;
     }}},
    {"change two things at once",
     {[](Store& s) {
         return InABatch(s, [&] {
             const Status status = s.Put(u"\\to\\one", Bytes(700, 1));
             return status == kOk ? s.Move(u"\\to\\x", u"\\dir\\x") : status;
         });
     }},
     u"",
     true},
    {"open a directory as a file", {[](Store& s) { return Write(s, u"\\dir\\d1", 0, {}); }}},
    {"read", {[](Store& s) { return Look(s, u"\\pages"); }}},
    {"read through a link", {[](Store& s) { return Look(s, u"\\link\\small"); }}},
    {"delete a small file", {[](Store& s) { return s.Delete(u"\\dir\\small"); }}},
    {"delete a big file", {[](Store& s) { return s.Delete(u"\\dir\\big"); }}},
    {"delete a long name", {[](Store& s) { return s.Delete(u"\\dir\\" + kLong); }}},
    {"delete a directory", {[](Store& s) { return s.Delete(u"\\dir\\d2"); }}},
    {"rename to a long name",
     {[](Store& s) { return s.Move(u"\\dir\\small", u"\\dir\\" + std::u16string(400, u'r')); }}},
    {"rename to a short name", {[](Store& s) { return s.Move(u"\\dir\\" + kLong, u"\\dir\\r"); }}},
    {"rename a directory", {[](Store& s) { return s.Move(u"\\dir", u"\\DIR"); }}},
    {"move a file", {[](Store& s) { return s.Move(u"\\dir\\" + kLong, u"\\to\\y"); }}},
    {"move a directory", {[](Store& s) { return s.Move(u"\\dir", u"\\to\\dir"); }}},
    {"look in an older directory", {[](Store& s) { return s.Attributes(u"\\old\\in"); }}},
    {"search with long names", {[](Store& s) { return Count(s, u"\\long", 3); }}},
    {"ask for the times", {[](Store& s) {
         double created = 0;
         return StorageGetFileTimes(s, WTEXT("\\dir\\big"), &created, nullptr, nullptr);
     }}},
    {"compact", {[](Store& s) { return StorageCompact(s, nullptr); }}},
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
        Form form;
        form.pageSize = std::get<0>(GetParam());
        form.freePages = 3;
        file_ = Builder(form, Tree()).Finish();
    }
    // As far as the operation comes; the first failure.
    static Status Do(const Operation& operation, Store& store) {
        Status status = kOk;
        for (const auto& step : operation.steps)
            if (status == kOk) status = step(store);
        return status;
    }
    Content OnDisk() { return ContentOf(ReadContainer(memory_.Get(path_)).root); }
    // What there may be afterwards: each step done or not.
    std::vector<Content> States(const Operation& operation) {
        memory_.Put(path_, file_);
        std::vector<Content> states = {OnDisk()};
        for (const auto& step : operation.steps) {
            Store store;
            EXPECT_EQ(store.Open(path_), kOk);
            EXPECT_EQ(step(store), kOk) << operation.name;
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
        memory_.Put(path_, file_);
        Store store;
        ASSERT_EQ(store.Open(path_), kOk);
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
        ASSERT_EQ(store.Open(path_), kOk);
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
        const CheckOutcome check = CheckContainer(path_, kDeepCheck);
        EXPECT_TRUE(failure.InHeap() ? check.FoundNothing() : check.FoundOnlyLostPages())
            << check.Findings();
    }

    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat";
    support::MemoryFiles memory_;
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
            memory_.Put(path_, file_);
            Store store;
            ASSERT_EQ(store.Open(path_), kOk);
            Busy busy(store);
            failure.During([&] { return Do(operation, store); });
            busy.ExpectGoingOn(store.Has(u"\\to\\x") ? u"\\to\\x" : u"\\dir\\x");
            ExpectWorking(store);
            EXPECT_EQ(store.Close(), kOk);
            ReadSound(path_, memory_.Get(path_));
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
