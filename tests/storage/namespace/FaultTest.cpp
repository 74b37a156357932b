// Every operation with every allocation and every page transfer failing in turn.
#include <functional>

#include "tests/storage/namespace/Store.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/FaultFile.h"

namespace tests {

using support::FailingHeap;
using support::FaultFile;
namespace container = support::container;

namespace {

// What a container holds, one line an object.
void Describe(const container::Found& found, const std::string& path,
              std::vector<std::string>* lines) {
    const std::string body(found.body.begin(), found.body.end());
    lines->push_back(path + " " + std::to_string(found.attributes) + " " +
                     (body.size() < 30 ? body : std::to_string(body.size()) + body[0]));
    for (const container::Found& child : found.children)
        Describe(child, path + "\\" + platform::ToUtf8(Widen(child.name)), lines);
}
std::vector<std::string> Describe(const container::Reading& reading) {
    std::vector<std::string> lines;
    Describe(reading.root, "", &lines);
    std::sort(lines.begin(), lines.end());
    return lines;
}

// A container with something of each sort.
container::Item Content() {
    using container::Directory;
    using container::File;
    using container::Link;
    const auto bytes = [](size_t count, uint8_t value) { return Bytes(count, value); };
    const std::u16string stem(22, u's');
    container::Item old = Directory(u"old", {File(u"in", bytes(3, 'i')), Directory(u"sub")});
    old.inlineEntries = true;
    return Directory(
        u"", {Directory(u"dir", {File(u"small", bytes(20, 'a')), File(u"big", bytes(9000, 'b')),
                                 File(std::u16string(300, u'n'), bytes(5, 'c')), Directory(u"d1"),
                                 Directory(u"d2"), Directory(u"d3"), Directory(u"d4")}),
              Directory(u"long", {File(stem + u"b"), File(stem + u"a"), File(stem + u"c")}),
              Directory(u"to", {File(u"x", bytes(1, 'x'))}), old, File(u"parent", bytes(4, 'p')),
              Link(u"link", u"dir"), Directory(u"other", {File(u"v", bytes(6, 'o'))})});
}

struct Scenario {
    const char* name;
    std::function<Status(Store&)> run;
};

Status OpenAndClose(Store& store, const WChar* path, bool write) {
    FileHandle* file = nullptr;
    const Status status = store.OpenHandle(path, &file, write);
    return status == kOk ? StorageCloseFile(file) : status;
}

Status CountFound(Store& store, const WChar* pattern, size_t count) {
    const auto names = store.List(pattern, 3, kFindFullName | kFindTimes);
    if (!names.empty() && names.back().find(WTEXT("status ")) == 0)
        return static_cast<Status>(std::stol(platform::ToUtf8(names.back()).substr(7)));
    // The end of the search is also what an empty directory and a failed look-up give.
    return names.size() == count ? kOk : kInternal;
}

const std::vector<Scenario>& Scenarios() {
    static const std::vector<Scenario> scenarios = {
        {"make a directory in a full page",
         [](Store& s) { return s.MakeDirectory(WTEXT("\\dir\\new")); }},
        {"make a directory with a long name",
         [](Store& s) { return s.MakeDirectory(WTEXT("\\to\\") + Repeat('l', 600)); }},
        {"make one among names that share their beginning",
         [](Store& s) {
             return s.MakeDirectory(WTEXT("\\long\\") + Repeat('s', 22) + WTEXT("bb"));
         }},
        {"make the first child of a file",
         [](Store& s) { return s.MakeDirectory(WTEXT("\\parent\\first")); }},
        {"make one below a link", [](Store& s) { return s.MakeDirectory(WTEXT("\\link\\new")); }},
        {"make one that exists",
         [](Store& s) {
             const Status status = s.MakeDirectory(WTEXT("\\dir\\d1"));
             return status == kExists ? kOk : status;
         }},
        {"create a file",
         [](Store& s) {
             FileHandle* file = nullptr;
             const Status status = s.CreateHandle(WTEXT("\\dir\\file"), &file, true);
             return status == kOk ? StorageCloseFile(file) : status;
         }},
        {"open a file", [](Store& s) { return OpenAndClose(s, WTEXT("\\dir\\big"), true); }},
        {"open a directory as a file",
         [](Store& s) { return OpenAndClose(s, WTEXT("\\dir\\d1"), false); }},
        {"open through a link",
         [](Store& s) { return OpenAndClose(s, WTEXT("\\link\\small"), false); }},
        {"delete a small file", [](Store& s) { return s.Delete(WTEXT("\\dir\\small")); }},
        {"delete a big file", [](Store& s) { return s.Delete(WTEXT("\\dir\\big")); }},
        {"delete a long name",
         [](Store& s) { return s.Delete(WTEXT("\\dir\\") + Repeat('n', 300)); }},
        {"delete a directory", [](Store& s) { return s.Delete(WTEXT("\\dir\\d2")); }},
        {"rename to a long name",
         [](Store& s) {
             return s.Move(WTEXT("\\dir\\small"), WTEXT("\\dir\\") + Repeat('r', 400));
         }},
        {"rename to a short name",
         [](Store& s) { return s.Move(WTEXT("\\dir\\") + Repeat('n', 300), WTEXT("\\dir\\r")); }},
        {"rename a directory", [](Store& s) { return s.Move(WTEXT("\\dir"), WTEXT("\\DIR")); }},
        {"move a file",
         [](Store& s) { return s.Move(WTEXT("\\dir\\") + Repeat('n', 300), WTEXT("\\to\\y")); }},
        {"move a directory", [](Store& s) { return s.Move(WTEXT("\\dir"), WTEXT("\\to\\dir")); }},
        {"look in an older directory",
         [](Store& s) { return s.AttributesStatus(WTEXT("\\old\\in")); }},
        {"search with long names", [](Store& s) { return CountFound(s, WTEXT("\\long\\*"), 3); }},
        {"search for one name", [](Store& s) { return CountFound(s, WTEXT("\\dir\\BIG"), 1); }},
        {"ask for the times",
         [](Store& s) {
             double created = 0;
             return StorageGetFileTimes(s, WTEXT("\\dir\\big"), &created, nullptr, nullptr);
         }},
    };
    return scenarios;
}

// The store still takes and gives; elsewhere than where the fault struck.
void ExpectWorking(Store& store) {
    EXPECT_EQ(store.Text(WTEXT("\\other\\v")), "oooooo");
    EXPECT_EQ(store.Put(WTEXT("\\other\\probe"), "fine"), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\other\\probe")), "fine");
    EXPECT_EQ(store.Delete(WTEXT("\\other\\probe")), kOk);
}

container::Form FormOf(uint32_t pageSize) {
    container::Form form;
    form.pageSize = pageSize;
    return form;
}

class Fault : public testing::TestWithParam<uint32_t> {
  protected:
    Bytes file_ = container::Builder(FormOf(GetParam()), Content()).Finish();
    std::vector<std::string> before_ = Describe(container::ReadContainer(file_));

    std::vector<std::string> After(const Scenario& scenario) {
        Store store(file_);
        EXPECT_EQ(scenario.run(store), kOk) << scenario.name;
        const auto reading = store.Read();
        EXPECT_TRUE(reading.Sound()) << scenario.name << "\n" << reading.Report();
        return Describe(reading);
    }
};

}  // namespace

// Either all of it is done, or nothing.
TEST_P(Fault, OfMemoryLeavesTheContainerSound) {
    for (const Scenario& scenario : Scenarios()) {
        const auto after = After(scenario);
        for (uint64_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(scenario.name) + ", allocation " + std::to_string(n));
            Store store(file_);
            Status status = kOk;
            uint64_t hits = 0;
            {
                FailingHeap heap(n);
                status = scenario.run(store);
                hits = heap.Hits();
            }
            ExpectWorking(store);
            EXPECT_EQ(store.Attributes(WTEXT("\\old\\in")) & kAttrFile, kAttrFile);
            const auto reading = store.Read();
            EXPECT_TRUE(reading.Sound()) << reading.Report();
            // To make a file and to open it are two steps; the first stands when the second fails.
            const auto found = Describe(reading);
            EXPECT_TRUE(found == after || (status != kOk && found == before_));
            if (hits == 0) {
                EXPECT_EQ(status, kOk);
                break;
            }
            if (HasFailure()) return;
        }
    }
}

// The same again in the same store after the failure: what memory kept is what the disk says.
TEST_P(Fault, OfMemoryCanBeFollowedByAnotherTry) {
    for (const Scenario& scenario : Scenarios()) {
        const auto after = After(scenario);
        for (uint64_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(scenario.name) + ", allocation " + std::to_string(n));
            Store store(file_);
            Status status = kOk;
            uint64_t hits = 0;
            {
                FailingHeap heap(n);
                status = scenario.run(store);
                hits = heap.Hits();
            }
            if (hits == 0) break;
            if (status != kOk) {
                EXPECT_EQ(status, kNoMemory);
                scenario.run(store);
            }
            const auto reading = store.Read();
            EXPECT_TRUE(reading.Sound()) << reading.Report();
            EXPECT_EQ(Describe(reading), after);
            if (HasFailure()) return;
        }
    }
}

// A commit that fails half way may leave pages of the operation on the disk; all else stays.
TEST_P(Fault, OfThePageFileLeavesTheRestWorking) {
    for (const Scenario& scenario : Scenarios()) {
        for (const bool keep : {false, true}) {
            for (uint64_t n = 1;; ++n) {
                SCOPED_TRACE(std::string(scenario.name) + ", call " + std::to_string(n) +
                             (keep ? " and on" : ""));
                FaultFile faults;
                Store store(file_);
                faults.Reset();
                faults.FailAny(n, platform::kErrorDiskFull);
                faults.KeepFailing(keep);
                const Status status = scenario.run(store);
                const uint64_t hits = faults.Hits();
                faults.Reset();
                if (hits == 0) {
                    EXPECT_EQ(status, kOk);
                    break;
                }
                ExpectWorking(store);
                for (const WChar* pattern : {WTEXT("\\*"), WTEXT("\\dir\\*"), WTEXT("\\to\\*")})
                    store.List(pattern, 3, kFindTimes);
                scenario.run(store);
                store.Close();
                ASSERT_EQ(store.Open(), kOk);
                ExpectWorking(store);
                if (HasFailure()) return;
            }
        }
    }
}

// With handles and a search open on what the operation fails on.
TEST_P(Fault, LeavesOpenHandlesAndSearchesUsable) {
    for (const Scenario& scenario : Scenarios()) {
        for (uint64_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(scenario.name) + ", allocation " + std::to_string(n));
            Store store(file_);
            FileHandle* big = nullptr;
            FileHandle* directory = nullptr;
            FileHandle* child = nullptr;
            ASSERT_EQ(store.OpenHandle(WTEXT("\\dir\\big"), &big), kOk);
            ASSERT_EQ(store.OpenHandle(WTEXT("\\dir"), &directory, true), kOk);
            ASSERT_EQ(store.CreateHandle(WTEXT("\\to\\z"), &child), kOk);
            StorageSearchStruct search{};
            ASSERT_EQ(StorageFindFirst(store, &search, WTEXT("\\dir\\*"), 3, 0), kOk);
            uint32_t done = 0;
            ASSERT_EQ(StorageWriteFile(directory, "note", 4, &done), kOk);
            ASSERT_EQ(StorageWriteFile(child, "zzz", 3, &done), kOk);
            uint64_t hits = 0;
            {
                FailingHeap heap(n);
                scenario.run(store);
                hits = heap.Hits();
            }
            char text[4] = {};
            uint32_t position = 0;
            EXPECT_EQ(StorageReadFile(big, text, 3, &done), kOk);
            EXPECT_EQ(std::string(text), "bbb");
            EXPECT_EQ(StorageSeekFile(directory, 0, 0, &position), kOk);
            EXPECT_EQ(StorageReadFile(directory, text, 3, &done), kOk);
            EXPECT_EQ(std::string(text), "not");
            EXPECT_EQ(StorageWriteFile(child, "!", 1, &done), kOk);
            while (StorageFindNext(store, &search) == kOk) continue;
            StorageFindClose(store, &search);
            EXPECT_EQ(StorageCloseFile(child), kOk);
            EXPECT_EQ(StorageCloseFile(directory), kOk);
            EXPECT_EQ(StorageCloseFile(big), kOk);
            EXPECT_EQ(store.Text(WTEXT("\\to\\z")), "zzz!");
            ExpectWorking(store);
            const auto reading = store.Read();
            EXPECT_TRUE(reading.Sound()) << reading.Report();
            if (hits == 0 || HasFailure()) break;
        }
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(PageSizes, Fault, testing::Values(256u, 512u));

}  // namespace tests
