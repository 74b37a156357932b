// SPDX-License-Identifier: MIT
#include "bench/peers/Work.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace bench {
namespace {

constexpr size_t kMostOverwrites = 40000, kGets = 40000, kHotGets = 100000, kPathGets = 20000;
constexpr uint32_t kHotPlaces = 100, kReopenings = 200, kListed = 200, kCheckedKeys = 2000;
constexpr double kReopeningNs = 1e9;

double WallNs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::nano>(now).count();
}

// Other data of the same sort and size.
void ChangeData(ValueData* value) {
    constexpr uint32_t kString = 1;
    if (value->type != kString) {
        for (uint8_t& byte : value->data) byte ^= 0x5A;
        return;
    }
    for (size_t i = 0; i + 2 < value->data.size(); i += 2)
        value->data[i] = static_cast<uint8_t>('a' + (value->data[i] - 'a' + 1) % 26);
}

// The bytes of an answer must have been fetched, as they are by who uses them.
uint64_t Touch(const Answer& answer) {
    return answer.size + (answer.size > 0 ? *static_cast<const uint8_t*>(answer.data) : 0);
}

bool Same(const Answer& answer, const ValueData& value) {
    return answer.type == value.type && answer.size == value.data.size() &&
           std::memcmp(answer.data, value.data.data(), answer.size) == 0;
}

bool Bears(const Answer& answer, const ValueData& value) {
    return answer.plainName.empty() ? answer.name == value.name
                                    : answer.plainName == value.plainName;
}

}  // namespace

const char* Name(Phase phase) {
    constexpr const char* kNames[] = {"make a key",
                                      "set, own commit",
                                      "overwrite",
                                      "get, open key",
                                      "get, hot",
                                      "get by path",
                                      "enumerate, a value",
                                      "list by place, a value",
                                      "delete a key with its values",
                                      "reopen + 1 get"};
    return kNames[static_cast<int>(phase)];
}

Subject::Subject(const Maker& who, const std::filesystem::path& where)
    : maker(&who), folder(where) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    store = maker->make(folder);
    store->Open();
}

Subject::~Subject() {
    store.reset();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

Work::Work(std::vector<KeyData> content, bool brief)
    : content_(std::move(content)), gone_(content_.size()), brief_(brief) {
    for (uint32_t key = 0; key < content_.size(); ++key)
        for (uint32_t value = 0; value < content_[key].values.size(); ++value)
            all_.push_back({key, value});
}

void Work::DrawPlaces(size_t count) {
    places_.resize(count);
    for (Place& place : places_) place = all_[dice_() % all_.size()];
}

void Work::Prepare(Phase phase) {
    if (phase == Phase::Set) {
        places_ = all_;
        set_ = true;
    } else if (phase == Phase::Overwrite) {
        places_ = all_;
        std::shuffle(places_.begin(), places_.end(), dice_);
        places_.resize(std::min(places_.size(), kMostOverwrites));
        for (const Place& place : places_) ChangeData(&content_[place.key].values[place.value]);
    } else if (phase == Phase::Hot) {
        DrawPlaces(kHotPlaces);
        const std::vector<Place> hot = places_;
        places_.resize(brief_ ? kHotGets / 10 : kHotGets);
        for (Place& place : places_) place = hot[dice_() % hot.size()];
    } else if (phase == Phase::Delete) {
        deleting_.clear();
        for (uint32_t key = 0; key < content_.size(); ++key)
            if (content_[key].leaf && !gone_[key]) deleting_.push_back(key);
        std::shuffle(deleting_.begin(), deleting_.end(), dice_);
        deleting_.resize(std::min(deleting_.size(), (content_.size() + 3) / 4));
        for (uint32_t key : deleting_) gone_[key] = true;
        std::erase_if(all_, [&](const Place& place) { return gone_[place.key]; });
    } else {
        const size_t count = phase == Phase::Reopen ? kReopenings
                             : phase == Phase::Path ? kPathGets
                                                    : kGets;
        DrawPlaces(brief_ ? count / 10 : count);
    }
}

Sample Work::Run(Phase phase, Subject& subject) {
    const bool reopen = phase == Phase::Reopen;
    const bool changes = phase == Phase::Make || phase == Phase::Set || phase == Phase::Overwrite ||
                         phase == Phase::Delete;
    const Span span = changes ? Span::Changes : Span::Reads;
    if (reopen) {
        subject.store->Close();
        subject.handles.clear();
        // One that does not count puts in order what the closing left in the heap.
        subject.store->Open();
        subject.store->Close();
    } else {
        subject.store->Begin(span);
        // What counts is to go on, not the way to where it begins.
        if (phase == Phase::List) subject.store->ListOne(ListedKey(subject), FirstListed());
    }
    Sample sample;
    sample.wallNs = -WallNs();
    sample.cpuNs = -ThreadNs();
    MarkBegin();
    sample.operations = Do(phase, subject);
    MarkEnd(static_cast<uint32_t>(phase), sample.operations,
            (subject.maker->name + "|" + Name(phase)).c_str());
    sample.cpuNs += ThreadNs();
    sample.wallNs += WallNs();
    if (reopen) {
        subject.store->Open();
        OpenAll(subject);
    } else {
        subject.store->End(span);
    }
    if (brief_) return sample;
    subject.store->Begin(Span::Reads);
    Check(subject);
    subject.store->End(Span::Reads);
    return sample;
}

uint64_t Work::Do(Phase phase, Subject& subject) {
    switch (phase) {
        case Phase::Make:
            return MakeKeys(subject);
        case Phase::Set:
        case Phase::Overwrite:
            return SetPlaces(subject);
        case Phase::Get:
        case Phase::Hot:
            return GetPlaces(subject);
        case Phase::Path:
            return GetByPath(subject);
        case Phase::Enumerate:
            return EnumerateKeys(subject);
        case Phase::List:
            return ListValues(subject);
        case Phase::Delete:
            return DeleteKeys(subject);
        case Phase::Reopen:
            return Reopen(subject);
    }
    return 0;
}

uint64_t Work::MakeKeys(Subject& subject) {
    for (const KeyData& key : content_) subject.handles.push_back(subject.store->MakeKey(key));
    return content_.size();
}

uint64_t Work::SetPlaces(Subject& subject) {
    for (const Place& place : places_) subject.store->Set(subject.handles[place.key], At(place));
    return places_.size();
}

uint64_t Work::GetPlaces(Subject& subject) {
    for (const Place& place : places_)
        seen_ += Touch(subject.store->Get(subject.handles[place.key], At(place)));
    return places_.size();
}

uint64_t Work::GetByPath(Subject& subject) {
    for (const Place& place : places_) {
        const Store::Handle handle = subject.store->OpenKey(content_[place.key]);
        seen_ += Touch(subject.store->Get(handle, At(place)));
        subject.store->CloseKey(handle);
    }
    return places_.size();
}

uint64_t Work::EnumerateKeys(Subject& subject) {
    struct Seen {
        uint64_t values, bytes;
    } seen{0, 0};
    const auto visit = [](void* context, const Answer& answer) {
        Seen* sum = static_cast<Seen*>(context);
        ++sum->values;
        sum->bytes += Touch(answer) + answer.name.size() + answer.plainName.size();
    };
    for (uint32_t key = 0; key < content_.size(); ++key)
        if (!gone_[key] && !content_[key].values.empty())
            subject.store->Enumerate(subject.handles[key], visit, &seen);
    seen_ += seen.bytes;
    return seen.values;
}

uint32_t Work::ListedValues() const {
    return static_cast<uint32_t>(content_[places_[0].key].values.size());
}

uint32_t Work::FirstListed() const {
    return (ListedValues() - std::min(ListedValues(), kListed)) / 2;
}

Store::Handle Work::ListedKey(const Subject& subject) const {
    return subject.handles[places_[0].key];
}

uint64_t Work::ListValues(Subject& subject) {
    const uint32_t count = std::min(ListedValues(), kListed), first = FirstListed();
    for (uint32_t i = 0; i < count; ++i)
        if (!subject.store->ListOne(ListedKey(subject), first + i)) return 0;
    return count;
}

uint64_t Work::DeleteKeys(Subject& subject) {
    for (uint32_t key : deleting_) subject.store->DeleteKey(subject.handles[key], content_[key]);
    return deleting_.size();
}

// As often as time allows: a hive is read as a whole.
uint64_t Work::Reopen(Subject& subject) {
    const double end = WallNs() + kReopeningNs;
    uint64_t done = 0;
    for (const Place& place : places_) {
        subject.store->Open();
        const Store::Handle handle = subject.store->OpenKey(content_[place.key]);
        seen_ += Touch(subject.store->Get(handle, At(place)));
        subject.store->CloseKey(handle);
        subject.store->Close();
        ++done;
        if (WallNs() > end) break;
    }
    return done;
}

void Work::OpenAll(Subject& subject) const {
    for (uint32_t key = 0; key < content_.size(); ++key)
        subject.handles.push_back(gone_[key] ? 0 : subject.store->OpenKey(content_[key]));
}

void Work::OpenMore(Subject& subject, uint32_t count) const {
    for (uint32_t i = 0; i < count; ++i) subject.store->OpenKey(content_[i % content_.size()]);
}

void Work::Check(Subject& subject) const {
    const size_t step = content_.size() / kCheckedKeys + 1;
    for (size_t key = 0; key < content_.size(); key += step) {
        if (!gone_[key]) {
            CheckKey(subject, static_cast<uint32_t>(key));
        } else if (subject.store->OpenKey(content_[key]) != 0) {
            throw std::runtime_error(subject.maker->name + " still has a deleted key");
        }
    }
}

void Work::CheckKey(Subject& subject, uint32_t key) const {
    struct State {
        const std::vector<ValueData>& values;
        std::vector<const ValueData*> byName;  // as the store may list them in any order
        size_t found;
        bool good;
    } state{content_[key].values, {}, 0, true};
    for (const ValueData& value : state.values) state.byName.push_back(&value);
    const auto less = [](const ValueData* a, const ValueData* b) { return a->name < b->name; };
    std::sort(state.byName.begin(), state.byName.end(), less);
    subject.store->Enumerate(
        subject.handles[key],
        [](void* context, const Answer& answer) {
            State* all = static_cast<State*>(context);
            const Text name = answer.plainName.empty() ? Text(answer.name)
                                                       : ToText(std::string(answer.plainName));
            const auto at = std::lower_bound(
                all->byName.begin(), all->byName.end(), name,
                [](const ValueData* value, const Text& sought) { return value->name < sought; });
            all->good &= at != all->byName.end() && Bears(answer, **at) && Same(answer, **at);
            ++all->found;
        },
        &state);
    // Each name is there once, so that the right number of right ones is all of them.
    if (!state.good || state.found != (set_ ? state.values.size() : 0))
        throw std::runtime_error(subject.maker->name + " holds something else than was set");
    if (set_ && !state.values.empty()) {
        const ValueData& one = state.values[key % state.values.size()];
        if (!Same(subject.store->Get(subject.handles[key], one), one))
            throw std::runtime_error(subject.maker->name + " gets something else than was set");
    }
}

std::map<Phase, Calls> CountPhases(const Maker& maker, const std::vector<KeyData>& content,
                                   const std::filesystem::path& folder) {
    const auto byMark = CountCalls([&] {
        Work work(content, true);
        Subject subject(maker, folder);
        for (Phase phase : kTablePhases) {
            work.Prepare(phase);
            work.Run(phase, subject);
        }
    });
    std::map<Phase, Calls> byPhase;
    for (const auto& [mark, calls] : byMark) byPhase[static_cast<Phase>(mark)] = calls;
    return byPhase;
}

}  // namespace bench
