// SPDX-License-Identifier: MIT
// Random operations through the engine, held against a model in memory and against the reader that
// shares no code with the engine. A run that fails is made as short as it can be and told step by
// step. Seeds are fixed; ZRFS_LONG_TESTS=n runs n times as many.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "storage/namespace/Listing.h"
#include "storage/namespace/Operations.h"
#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"
#include "tests/storage/Model.h"
#include "tests/support/Shrunk.h"

namespace storage_model {
namespace {

using namespace storage;
using namespace support::container;

// The numbers say which object, name, place and length; they mean something in any state, so that
// a run is one with any of its steps left out.
struct Step {
    uint32_t kind, a, b, c;
};

struct Setup {
    uint32_t pageSize;
    bool foreign, rich;
    bool tight;  // nothing is kept in memory that nobody refers to
};

class Run {
  public:
    explicit Run(const Setup& setup) : setup_(setup), limits_(g_memoryLimits) {
        if (setup.tight) g_memoryLimits = {0, 0};
        const Form form{setup.pageSize, setup.foreign};
        const Item tree = setup.rich ? RichTree(setup.pageSize) : Tree("");
        root_ = Node::From(tree);
        container_.Put(Builder(form, tree).Finish());
        Expect("open", store_.Open(container_.Path()), kOk);
    }
    ~Run() {
        EndWork();
        store_.Close();
        g_memoryLimits = limits_;
    }

    // What was not as the model has it, and what was done until then; "" when all is.
    std::string Do(const std::vector<Step>& steps) {
        for (size_t i = 0; i < steps.size() && wrong_.empty(); ++i) {
            step_ = steps[i];
            (this->*Kinds()[step_.kind].what)();
        }
        if (wrong_.empty()) Reopen();
        return wrong_.empty() ? "" : wrong_ + story_;
    }

    struct Kind {
        void (Run::*what)();
        uint32_t often;
    };
    static const std::vector<Kind>& Kinds() {
        static const std::vector<Kind> kinds = {
            {&Run::Put, 6},       {&Run::PutWhole, 3}, {&Run::Make, 3},
            {&Run::Delete, 5},    {&Run::Move, 5},     {&Run::DeleteWithFiles, 1},
            {&Run::Open, 5},      {&Run::Seek, 6},     {&Run::Read, 8},
            {&Run::Write, 12},    {&Run::SetSize, 2},  {&Run::CloseHandle, 3},
            {&Run::FindFirst, 2}, {&Run::FindNext, 5}, {&Run::Look, 4},
            {&Run::Check, 1},     {&Run::Batch, 1},    {&Run::FinishBatch, 4},
            {&Run::Compact, 1},   {&Run::Reopen, 1}};
        return kinds;
    }

  private:
    struct Handle {
        std::unique_ptr<EngineFile> file;
        Node* node;
        bool write, denyRead, denyWrite;
        uint64_t position = 0;
    };
    struct Search {
        StorageSearchStruct record{};
        Node* directory;
        size_t position;
        std::optional<std::u16string> next;  // its folded name
    };

    template <class A, class B>
    bool Expect(const std::string& what, const A& is, const B& shouldBe) {
        if constexpr (std::is_same_v<A, Status>)
            story_ += "\n    " + what + ": " + std::to_string(is);
        if (is == shouldBe || !wrong_.empty()) return wrong_.empty();
        wrong_ = what;
        if constexpr (std::is_integral_v<A>)
            wrong_ += " is " + std::to_string(is) + ", not " + std::to_string(shouldBe);
        return false;
    }
    // A handle that writes keeps the pages of its object to itself: who needs one of them, on the
    // way through a directory, for the times of an entry, or when entries that stood in a record
    // move to a page, is told so and has changed nothing.
    bool IsKeptOut(Status status, bool byAnyHandle = false) const {
        return status == kSharing &&
               std::any_of(handles_.begin(), handles_.end(), [&](const Handle& handle) {
                   const Node* node = handle.node;
                   return byAnyHandle ||
                          (handle.write && (node->directory || !node->children.empty() ||
                                            (node->parent != nullptr && node->parent->inlined)));
               });
    }
    bool Done(const std::string& what, Status status, Status shouldBe, bool byAnyHandle = false) {
        const bool keptOut = IsKeptOut(status, byAnyHandle);
        return Expect(what, status, keptOut ? status : shouldBe) && status == kOk;
    }
    uint32_t Payload() const { return setup_.pageSize - 32; }

    // An object that is no link.
    Node* Any(uint32_t number, bool linkToo = false) {
        std::vector<Node*> nodes;
        root_->All(&nodes);
        if (!linkToo) std::erase_if(nodes, [](const Node* node) { return node->link; });
        return nodes[number % nodes.size()];
    }
    Node* Parent(uint32_t number) {
        Node* parent = Any(number);
        const std::u16string path = parent->Path();
        return std::count(path.begin(), path.end(), u'\\') > 5 ? root_.get() : parent;
    }
    // What an operation that wants to read and write says.
    static Status Sharing(const Node* node, bool write) {
        return node->denyRead > 0 || (write && node->denyWrite > 0) ? kSharing : kOk;
    }
    void Put() {
        const Place place(Parent(step_.a), AnyName(Payload(), step_.b));
        const Node* node = place.node;
        const Bytes body = AnyBody(Payload(), step_.c);
        if (node != nullptr && node->link) return;
        const Status expected = node == nullptr   ? kOk
                                : node->directory ? Status{kExists}
                                                  : Sharing(node, true);
        if (Done("put " + Narrow(place.path), store_.Put(place.path, body), expected))
            place.Filled(false)->body = body;
    }
    // In one step, where nobody is at the file and it is not too large for that.
    void PutWhole() {
        const Place place(Parent(step_.a), AnyName(Payload(), step_.b));
        const Node* node = place.node;
        Bytes body = AnyBody(Payload(), step_.c);
        body.resize(std::min<size_t>(body.size(), 900));
        const Status status =
            PutAt(store_, ToWide(WayTo(place.parent)).c_str(), ToWide(place.name),
                  {body.data(), 0, body.data(), static_cast<uint32_t>(body.size())});
        const bool taken = node != nullptr && (node->directory || node->link);
        if (status == kNotPlain ||
            !Done("put " + Narrow(place.path), status, taken ? kExists : kOk))
            return;
        Node* filled = place.Filled(false);
        Expect("users of what was put", filled->users, 0);
        filled->body = body;
    }
    void Make() {
        const Place place(Parent(step_.a), AnyName(Payload(), step_.b));
        if (Done("make " + Narrow(place.path), store_.MakeDirectory(place.path),
                 place.node != nullptr ? kExists : kOk))
            place.Filled(true);
    }
    void Gone(Node* node) {
        past_[turn_++ % std::size(past_)] = node->Path();
        node->Take();
    }
    void Delete() {
        Node* node = Any(step_.a, true);
        const Status expected = node->parent == nullptr                      ? kNotFound
                                : node->directory && !node->children.empty() ? kNotEmpty
                                : node->AllUsers() != 0                      ? kSharing
                                                                             : kOk;
        if (Done("delete " + Narrow(WayTo(node)), store_.Delete(WayTo(node)), expected)) Gone(node);
    }
    void DeleteWithFiles() {
        Node* node = Any(step_.a);
        if (node->parent == nullptr) return;
        bool plain = node->directory && node->AllUsers() == 0;
        for (const auto& [key, child] : node->children)
            plain = plain && !child->directory && !child->link;
        store_.Container()->containerLock.AssertAlone();
        const Status status = DeleteWithFilesAt(store_, ToWide(node->Path()).c_str());
        if (status != kNotPlain &&
            Done("delete with files " + Narrow(node->Path()), status, plain ? kOk : kNotPlain))
            Gone(node);
    }
    void Move() {
        Node* node = Any(step_.a, true);
        if (node->parent == nullptr) return;
        const std::u16string from = node->Path();
        const Place to(Parent(step_.b),
                       step_.c % 4 == 0 ? node->name : AnyName(Payload(), step_.c));
        const bool taken = to.node != nullptr && (to.node != node || from == to.path);
        const Status expected = to.parent->IsBelow(node) ? kInvalid : taken ? kExists : kOk;
        if (!Done("move " + Narrow(from) + " to " + Narrow(to.path), store_.Move(from, to.path),
                  expected))
            return;
        past_[turn_++ % std::size(past_)] = from;
        auto moved = node->Take();
        moved->name = to.name;
        moved->parent = to.parent;
        to.parent->children[Folded(to.name)] = std::move(moved);
    }

    void Open() {
        Node* node = Any(step_.a);
        if (handles_.size() > 4 || batch_ != nullptr) return;
        const bool write = step_.b % 3 != 0, denyRead = step_.b % 13 == 1,
                   denyWrite = step_.b % 11 == 1;
        Handle handle{std::make_unique<EngineFile>(store_, WayTo(node), write, denyRead, denyWrite),
                      node, write, denyRead, denyWrite};
        const Status expected = Sharing(node, write);
        if (!Done("open " + Narrow(node->Path()) + (write ? " to write" : ""),
                  handle.file->Opened(), expected))
            return;
        ++node->users;
        node->denyRead += denyRead;
        node->denyWrite += denyWrite;
        handles_.push_back(std::move(handle));
    }
    // One of the open ones, if there is any.
    Handle* Chosen() { return handles_.empty() ? nullptr : &handles_[step_.a % handles_.size()]; }
    void Seek() {
        Handle* handle = Chosen();
        if (handle == nullptr) return;
        // A gap of many large pages would make the test slow and say no more.
        const uint64_t size = handle->node->body.size();
        const uint64_t places[] = {size, step_.c % (size + 1), step_.c % (size * 2 + 2),
                                   step_.c % (size + setup_.pageSize)};
        handle->position = std::min<uint64_t>(places[step_.b % 4], 60 * uint64_t{Payload()});
        handle->file->SeekFar(handle->position);
    }
    void CloseHandle() {
        if (handles_.empty()) return;
        Expect("close " + Narrow(Chosen()->node->Path()), Chosen()->file->Close(), kOk);
        Forget(step_.a % handles_.size());
    }
    void Forget(size_t index) {
        const Handle& handle = handles_[index];
        --handle.node->users;
        handle.node->denyRead -= handle.denyRead;
        handle.node->denyWrite -= handle.denyWrite;
        handles_.erase(handles_.begin() + static_cast<std::ptrdiff_t>(index));
    }
    uint32_t Length() const {
        const uint32_t lengths[] = {Payload() - 1 + step_.c % 3, Payload() * (1 + step_.c % 4),
                                    step_.c % (20 * std::min(Payload(), 4000u))};
        return step_.b % 8 < 3 ? lengths[step_.b % 8] : step_.c % 100;
    }
    void Read() {
        Handle* handle = Chosen();
        if (handle == nullptr || Length() == 0) return;
        const Bytes& body = handle->node->body;
        const uint64_t begin = std::min<uint64_t>(handle->position, body.size());
        const uint64_t end = std::min<uint64_t>(begin + Length(), body.size());
        Bytes read;
        const Status status = handle->file->Read(Length(), &read);
        Expect("read status of " + Narrow(handle->node->Path()), status,
               begin == end ? kEndOfData : kOk);
        Expect("what was read", read,
               Bytes(body.begin() + static_cast<std::ptrdiff_t>(begin),
                     body.begin() + static_cast<std::ptrdiff_t>(end)));
        handle->position += read.size();
    }
    void Write() {
        Handle* handle = Chosen();
        if (handle == nullptr) return;
        Bytes& body = handle->node->body;
        const Bytes piece = Pattern(Length(), step_.c);
        const Status expected = handle->write ? kOk : kAccess;
        if (!Expect("write " + Narrow(handle->node->Path()), handle->file->Write(piece),
                    expected) ||
            !handle->write || (piece.empty() && handle->position <= body.size()))
            return;
        support::Overwrite(&body, handle->position, piece.data(), piece.size());
        body.resize(std::max<size_t>(body.size(), handle->position));
        handle->position += piece.size();
    }
    void SetSize() {
        Handle* handle = Chosen();
        if (handle == nullptr || !handle->write) return;
        Bytes& body = handle->node->body;
        const uint64_t size =
            step_.b % 3 == 0 ? body.size() / Payload() * Payload() : step_.c % (body.size() + 1);
        if (!Expect("cut " + Narrow(handle->node->Path()), handle->file->SetSize(size), kOk))
            return;
        // Who empties a file leaves the places of others in it as they are.
        for (Handle& other : handles_)
            if (other.node == handle->node && size != 0 && size < body.size())
                other.position = std::min(other.position, size);
        body.resize(size);
    }

    void FindFirst() {
        Node* directory = Any(step_.a);
        if (search_ != nullptr || batch_ != nullptr) return EndSearch();
        search_ = std::make_unique<Search>();
        search_->directory = directory;
        ++directory->users;
        Note(0);
        Shown(StorageFindFirst(store_, &search_->record, ToWide(directory->Path() + u"\\*").c_str(),
                               0xFFFFFFFF, kFindFullName | kFindTimes));
    }
    void FindNext() {
        if (search_ != nullptr) Shown(StorageFindNext(store_, &search_->record));
    }
    void Note(size_t position) {
        search_->position = position;
        const auto& children = search_->directory->children;
        search_->next.reset();
        if (position < children.size())
            search_->next =
                std::next(children.begin(), static_cast<std::ptrdiff_t>(position))->first;
    }
    // Goes on with the entry that was next when the last one was shown, or where that would stand.
    void Shown(Status status) {
        const auto& children = search_->directory->children;
        if (IsKeptOut(status, true)) return EndSearch();
        if (search_->next)
            search_->position = static_cast<size_t>(
                std::distance(children.begin(), children.lower_bound(*search_->next)));
        const bool more = search_->position < children.size();
        if (!Done("search", status, more ? kOk : kNoMore, true)) return EndSearch();
        const auto at = std::next(children.begin(), static_cast<std::ptrdiff_t>(search_->position));
        const Node& node = *at->second;
        Expect("found name", ToUnits(search_->record.name) == node.name, true);
        const bool open = node.users != 0;  // its size may be known to its handles only
        if (!open) Expect("found size", search_->record.size, node.body.size());
        Note(search_->position + 1);
    }
    void EndSearch() {
        if (search_ == nullptr) return;
        --search_->directory->users;
        StorageFindClose(store_, &search_->record);
        search_.reset();
    }
    // Paths that were, and may be again.
    void Look() {
        const std::u16string& path = past_[step_.a % std::size(past_)];
        const Node* node = root_.get();
        for (size_t at = 0; at < path.size() && node != nullptr;) {
            const size_t end = std::min(path.find(u'\\', at + 1), path.size());
            node = node->link ? nullptr : node->Child(path.substr(at + 1, end - at - 1));
            at = end;
        }
        // The way of a link is another's tale.
        if (node == nullptr && setup_.rich) return;
        Done("look at " + Narrow(path), store_.Attributes(path), node != nullptr ? kOk : kNotFound,
             true);
    }

    void Check() {
        if (IsKeptOut(kSharing)) return;
        std::vector<Node*> nodes;
        root_->All(&nodes);
        for (const Node* node : nodes) {
            Bytes body;
            if (!node->link && node->denyRead == 0) {
                Expect("status", store_.Get(WayTo(node), &body), kOk);
                Expect("body of " + Narrow(WayTo(node)), body, node->body);
            }
            if (node->link || (!node->directory && node->users != 0)) continue;
            ListPlace place;
            platform::WStringView name;
            uint32_t index = 0;
            const platform::WString pattern = ToWide(node->Path() + u"\\*");
            for (const auto& [key, child] : node->children) {
                Expect("list", StorageNameAt(store_, pattern.c_str(), ~0u, index++, &place, &name),
                       kOk);
                Expect("entry", std::u16string(name.begin(), name.end()), child->name);
            }
            const Status end = StorageNameAt(store_, pattern.c_str(), ~0u, index, &place, &name);
            // A directory whose own stream somebody has open may not be read in beside him.
            if (end != kSharing || node->users == 0) Expect("end", end, kNoMore);
        }
    }
    void EndWork() {
        EndBatch(true);
        EndSearch();
        while (!handles_.empty()) {
            Expect("close", handles_.back().file->Close(), kOk);
            Forget(handles_.size() - 1);
        }
    }
    void Batch() {
        if (batch_ != nullptr) return;
        EndWork();
        store_.Container()->containerLock.AssertAlone();
        if (Expect("begin", BeginBatch(store_), kOk)) batch_ = Node::From(Judged());
    }
    void EndBatch(bool keep) {
        if (batch_ == nullptr) return;
        store_.Container()->containerLock.AssertAlone();
        Expect("end", storage::EndBatch(store_, keep), kOk);
        if (!keep) root_ = std::move(batch_);
        batch_.reset();
    }
    void FinishBatch() { EndBatch(step_.a % 2 != 0); }
    void Compact() {
        EndWork();
        Expect("compact", StorageCompact(store_, nullptr), kOk);
    }
    // What other eyes find in the file, which is as the model has it.
    Item Judged() {
        const Reading reading = ReadContainer(container_.Get());
        Expect(reading.wrong, reading.wrong.empty(), true);
        const std::string difference = Difference(*root_, reading.root);
        Expect(difference, difference.empty(), true);
        return reading.root;
    }
    // What is open at the close of the container is closed with it.
    void Reopen() {
        EndBatch(true);
        Expect("close", store_.Close(), kOk);
        while (!handles_.empty()) {
            handles_.back().file->LetGo();
            Forget(handles_.size() - 1);
        }
        if (search_ != nullptr) Expect("given up", search_->record.search == nullptr, true);
        EndSearch();
        Judged();
        const CheckOutcome check = container_.Check();
        Expect("a check: " + check.Findings(), check.FoundNothing(), true);
        Expect("open", store_.Open(container_.Path()), kOk);
    }

    const Setup setup_;
    const MemoryLimits limits_;
    MemoryContainer container_;
    EngineStore store_;
    std::unique_ptr<Node> root_, batch_;
    std::vector<Handle> handles_;
    std::unique_ptr<Search> search_;
    std::u16string past_[8];
    size_t turn_ = 0;
    Step step_{};
    std::string wrong_, story_;
};

std::string Failure(const Setup& setup, const std::vector<Step>& steps) {
    return Run(setup).Do(steps);
}

std::vector<Step> RandomSteps(uint32_t seed, size_t count) {
    std::mt19937 random(seed);
    std::vector<uint32_t> often;
    for (const Run::Kind& kind : Run::Kinds()) often.push_back(kind.often);
    std::discrete_distribution<uint32_t> kinds(often.begin(), often.end());
    std::vector<Step> steps;
    for (size_t i = 0; i < count; ++i)
        steps.push_back({kinds(random), static_cast<uint32_t>(random()),
                         static_cast<uint32_t>(random()), static_cast<uint32_t>(random())});
    return steps;
}

class Model : public testing::TestWithParam<Setup> {};

TEST_P(Model, HoldsWhatTheEngineHolds) {
    for (uint32_t seed = 1; seed <= Rounds(GetParam().pageSize < 65536 ? 20 : 4); ++seed) {
        std::vector<Step> steps = RandomSteps(seed, 400);
        if (Failure(GetParam(), steps).empty()) continue;
        steps = support::Shrunk(
            steps, [](const auto& fewer) { return !Failure(GetParam(), fewer).empty(); });
        FAIL() << "seed " << seed << ": " << Failure(GetParam(), steps);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Setups, Model,
    testing::Values(Setup{256, false, false, false}, Setup{256, true, false, false},
                    Setup{256, true, true, false}, Setup{512, false, false, true},
                    Setup{512, false, true, false}, Setup{512, true, false, false},
                    Setup{4096, false, true, true}, Setup{65536, false, true, false}),
    [](const auto& param) {
        const Setup& s = param.param;
        return std::to_string(s.pageSize) + (s.foreign ? "Foreign" : "") + (s.rich ? "Rich" : "") +
               (s.tight ? "Tight" : "");
    });

}  // namespace
}  // namespace storage_model
