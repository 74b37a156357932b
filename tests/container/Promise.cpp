// SPDX-License-Identifier: MIT
#include "tests/container/Promise.h"

#include <algorithm>

#include "storage/core/Format.h"
#include "tests/container/Shapes.h"

namespace support::container {

using storage::Status;

std::vector<uint32_t> CheckOutcome::Pages(uint32_t code) const {
    std::vector<uint32_t> pages;
    for (const Event& event : events)
        if (event.code == code) pages.push_back(event.a);
    std::sort(pages.begin(), pages.end());
    return pages;
}

bool CheckOutcome::FoundOnlyLostPages() const {
    const std::vector<uint32_t> wrong = Pages(8), lost = Pages(9);
    return Pages(15).empty() && std::all_of(wrong.begin(), wrong.end(), [&lost](uint32_t page) {
               return std::binary_search(lost.begin(), lost.end(), page);
           });
}

std::string CheckOutcome::Findings() const {
    std::string text;
    for (const Event& event : events)
        if (event.code >= 8)
            text += std::to_string(event.code) + ":" + std::to_string(event.a) + " ";
    return text;
}

CheckOutcome CheckContainer(const std::filesystem::path& path, uint32_t flags,
                            uint32_t cancelAtCode) {
    struct State {
        platform::WChar name[64];
        CheckOutcome outcome;
        uint32_t cancelAt;
    } state{};
    state.cancelAt = cancelAtCode;
    const auto callback = [](void* data, uint32_t code, uint32_t a, uint32_t b, uint8_t clean,
                             uint8_t* cancel) {
        State* self = static_cast<State*>(data);
        self->outcome.events.push_back({code, a, b, clean});
        if (code == 15) self->outcome.name = ToUnits(self->name);
        if (code == self->cancelAt) *cancel = 1;
    };
    state.outcome.status = storage::StorageCheckAndRepair(Wide(path).c_str(), nullptr, flags,
                                                          nullptr, nullptr, &state, callback);
    return state.outcome;
}

Reading ReadSound(const std::filesystem::path& path, const Bytes& bytes) {
    const CheckOutcome check = CheckContainer(path, kDeepCheck);
    EXPECT_EQ(check.status, storage::kOk);
    EXPECT_TRUE(check.FoundNothing()) << check.Findings();
    Reading reading = ReadContainer(bytes);
    EXPECT_EQ(reading.wrong, "");
    return reading;
}

Bytes WithoutCounter(Bytes bytes) {
    if (bytes.size() < 4 || bytes[0] + bytes[1] > 16) return bytes;
    const size_t at =
        (size_t{1} << (bytes[0] + bytes[1])) + offsetof(storage::Superblock, transactionCounter);
    if (bytes.size() >= at + 4) Put32(bytes.data(), at, 0);
    return bytes;
}

void Exercise(const std::filesystem::path& path) {
    EngineStore store;
    if (store.Open(path) != storage::kOk) return;
    constexpr size_t kReadLimit = 32768;  // of each file: sizes may lie
    const Content content = store.ReadAll(nullptr, kReadLimit, 8);
    store.Put(u"\\new file", Pattern(700));
    store.Put(u"\\small", Pattern(9));
    store.Put(u"\\long", Pattern(5000));
    store.MakeDirectory(u"\\many\\made");
    store.Put(u"\\many\\made\\" + std::u16string(60, u'l'), Pattern(40));
    store.Move(u"\\deep", u"\\deeper");
    store.Move(u"\\many\\name b", u"\\b");
    int deletes = 0;
    for (auto at = content.rbegin(); at != content.rend() && deletes < 30; ++at, ++deletes)
        store.Delete(at->first);
    store.Close();
}

std::vector<std::string> UseContainer(const std::filesystem::path& path) {
    std::vector<std::string> broken;
    const auto expect = [&](const std::string& what, Status status,
                            std::initializer_list<Status> good) {
        if (std::find(good.begin(), good.end(), status) == good.end())
            broken.push_back("to " + what + ": " + std::to_string(status));
    };
    EngineStore store;
    expect("open", store.Open(path), {storage::kOk});
    if (store.Container() != nullptr) {
        // A name that damage cut or made the same as another is not found by its text. Entries that
        // stand in a record are given a page first, for which there may be no room.
        Failures failures;
        store.ReadAll(&failures, 100000);
        for (const auto& [what, status] : failures)
            expect("read " + what, status,
                   {storage::kNotFound, storage::kParentMissing, storage::kSearchOff,
                    storage::kBadBlock, storage::kFull});
        // Containers of a fixed or limited size may have no room, and something else the name. What
        // is written is a value, for the container may be one of the key store.
        Bytes value(20000, 1);
        Put32(value.data(), 4, static_cast<uint32_t>(value.size() - 8));
        const Status written = store.Put(u"\\written after", value);
        expect("write", written,
               {storage::kOk, storage::kFull, storage::kExists, storage::kAccess});
        // An empty file is no value.
        if (written == storage::kFull) store.Delete(u"\\written after");
        uint8_t corrupted = 7;
        expect("ask for corruption", storage::StorageIsCorrupted(store, &corrupted),
               {storage::kOk});
        expect("find no corruption", corrupted, {0});
        expect("close", store.Close(), {storage::kOk});
    }
    const CheckOutcome check = CheckContainer(path, kDeepCheck);
    if (check.status != 0 || !check.FoundNothing())
        broken.push_back("a check after use: " + std::to_string(check.status) + " " +
                         check.Findings());
    return broken;
}

std::vector<std::string> BrokenPromises(const std::filesystem::path& path,
                                        const std::function<Bytes()>& contents) {
    std::vector<std::string> broken;
    const Bytes once = WithoutCounter(contents());
    for (const uint32_t flags : {kDeepCheck, kRepair}) {
        const std::string run = flags == kRepair ? "a second repair" : "a check";
        const CheckOutcome outcome = CheckContainer(path, flags);
        if (outcome.status != 0)
            broken.push_back(run + " ends with " + std::to_string(outcome.status));
        if (!outcome.FoundNothing()) broken.push_back(run + " finds " + outcome.Findings());
        if (WithoutCounter(contents()) != once) broken.push_back(run + " changes the container");
    }
    for (std::string& sentence : UseContainer(path)) broken.push_back(std::move(sentence));
    return broken;
}

void MemoryContainer::Put(const Bytes& bytes, const Bytes& log) {
    memory_.Put(path_, bytes);
    memory_.Remove(log_);
    if (!log.empty()) memory_.Put(log_, log);
}

void MemoryContainer::ExpectBoundedWork(uint32_t pageSize) {
    const size_t pages = Get().size() / pageSize;
    memory_.ResetWork();
    Exercise(path_);
    EXPECT_LT(memory_.Work(), 4000 + 100 * (pages + 1));
}

void MemoryContainer::ExpectPromisesKept() const {
    for (const std::string& broken : BrokenPromises(path_, [this] { return Get(); }))
        ADD_FAILURE() << broken;
}

}  // namespace support::container
