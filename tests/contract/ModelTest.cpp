// SPDX-License-Identifier: MIT
// The same random work on a store and on a plain tree in memory: they must stay equal, also for
// open handles, when there are volatile keys beside, and when the store is compacted, checked and
// opened again. A run that goes wrong is cut down to the deeds that matter, and told.
// ZRFS_LONG_TESTS=n does n times as much.
#include <cstdlib>

#include "tests/contract/OpenStore.h"
#include "tests/faults/Registry.h"
#include "tests/support/Shrunk.h"

namespace contract {
namespace {

using faults::FindKey;
using faults::Step;
using Path = std::vector<std::u16string>;
using Content = support::container::Key;

struct Deed {
    enum class What { Work, Hold, UseHeld, Read, Volatile, Look, Reopen };
    What what;
    Step step;
    uint32_t roll;
};

WString Joined(const Path& path) {
    WString text = path.empty() ? WTEXT("\\") : WTEXT("");
    for (const std::u16string& part : path) text += WTEXT("\\") + WString(part.begin(), part.end());
    return text;
}

// A store and what it must hold.
class Run {
  public:
    explicit Run(const Backend& backend) : backend_(backend), place_(backend.makePlace()) {
        Open();
    }
    // Empty, or what is wrong.
    std::string Do(const Deed& deed) {
        switch (deed.what) {
            case Deed::What::Work:
                return Work(deed.step, deed.roll);
            case Deed::What::Hold:
                return Hold(deed.step.path, deed.roll);
            case Deed::What::UseHeld:
                return held_.empty() ? "" : Use(held_[deed.roll % held_.size()], deed.step);
            case Deed::What::Read:
                return Read(deed.step.path);
            case Deed::What::Volatile:
                return MakeVolatile(Text("volatile" + std::to_string(deed.roll % 4)));
            case Deed::What::Look:
                return Look();
            default:
                return Reopen();
        }
    }
    std::string Judge() {
        Content expected = model_, found;
        for (const WString& name : volatile_)
            expected.keys[std::u16string(name.begin(), name.end())];
        const FBR_STATUS status = support::ReadAll(store_->handle, &found);
        if (status != FSSTATUS_SUCCESS) return "reading answers " + std::to_string(status);
        return found == expected ? "" : "another content";
    }

  private:
    struct Held {
        Path path;
        OpenKey key;
    };
    void Open() {
        store_ = std::make_unique<OpenStore>(*place_);
        EXPECT_EQ(store_->Lock(2), FSSTATUS_SUCCESS);
    }
    static std::string Expect(const char* what, FBR_STATUS told, FBR_STATUS expected) {
        if (told == expected) return "";
        return std::string(what) + " answers " + std::to_string(told) + ", not " +
               std::to_string(expected);
    }
    static bool IsWithin(const Path& path, const Path& above) {
        return path.size() >= above.size() && std::equal(above.begin(), above.end(), path.begin());
    }

    std::string Work(const Step& step, uint32_t roll) {
        // What is there is found by any spelling. A rename carries the handles of its own along.
        WString path = Joined(step.path);
        const bool there = FindKey(&model_, step.path) != nullptr;
        if (there && step.kind != Step::Kind::Rename && roll % 3 == 0)
            for (auto& unit : path) unit = unit >= 'a' && unit <= 'z' ? unit - 32 : unit;
        const Text name(WString(step.name.begin(), step.name.end()));
        uint32_t word = 0;
        switch (step.kind) {
            case Step::Kind::Compact:
                FBR_Compact(store_->handle, &word);  // some kinds have nothing to compact
                return "";
            case Step::Kind::Set:
                return Set(step, path, name, there);
            case Step::Kind::DeleteValue: {
                const bool had = faults::Apply(step, &model_);
                const OpenKey key(store_->handle, store_->Open(path));
                if (!there || key == 0)
                    return Expect("open", store_->TryOpen(path), FSSTATUS_NOT_FOUND);
                return Expect("delete value", store_->DeleteValue(key, name),
                              had ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
            }
            case Step::Kind::DeleteKey:
                return DeleteTree(step, path);
            default:
                return there ? Rename(step, path, name) : "";
        }
    }
    std::string Set(const Step& step, const WString& path, const Text& name, bool there) {
        FBR_STATUS told = FSSTATUS_SUCCESS;
        const OpenKey key(store_->handle, step.path.empty()
                                              ? store_->Root()
                                              : store_->Make(path, 0, FSCREATEOPTIONS_NONE, &told));
        faults::Apply(step, &model_);
        const bool exists = there && !step.path.empty();
        const std::string wrong =
            Expect("create", told, exists ? FSSTATUS_ALREADY_EXISTS : FSSTATUS_SUCCESS);
        if (!wrong.empty()) return wrong;
        return Expect("set", store_->Set(key, name, step.value.data, step.value.type),
                      FSSTATUS_SUCCESS);
    }
    std::string DeleteTree(const Step& step, const WString& path) {
        const Path above(step.path.begin(), step.path.end() - 1);
        const bool hasParent = FindKey(&model_, above) != nullptr;
        const FBR_STATUS expected = faults::Apply(step, &model_)             ? FSSTATUS_SUCCESS
                                    : hasParent || !backend_.Is("container") ? FSSTATUS_NOT_FOUND
                                                                             : FSSTATUS_FAILED;
        const FBR_STATUS told = store_->DeleteTree(path);
        std::erase_if(held_, [&](const Held& held) { return IsWithin(held.path, step.path); });
        return Expect("delete tree", told, expected);
    }
    std::string Rename(const Step& step, const WString& path, const Text& name) {
        const Path above(step.path.begin(), step.path.end() - 1);
        const std::u16string& last = step.path.back();
        if (step.name == last) return "";
        // The names that sort up to the new one end with the old one: the key stays in its place.
        const auto& siblings = FindKey(&model_, above)->keys;
        if (backend_.Is("renameInPlaceDuplicates") && last < step.name &&
            siblings.upper_bound(last) == siblings.lower_bound(step.name))
            return "";
        const OpenKey key(store_->handle, store_->Open(path));
        const bool done = faults::Apply(step, &model_);
        const FBR_STATUS told = store_->Rename(key, name);
        const bool tripped = backend_.Is("renameTripsOverDeleted") && told == FSSTATUS_NOT_FOUND;
        for (Held& held : held_)
            if (done && IsWithin(held.path, step.path)) held.path[above.size()] = step.name;
        if (tripped) held_.clear();
        return done && tripped
                   ? ""
                   : Expect("rename", told, done ? FSSTATUS_SUCCESS : FSSTATUS_ALREADY_EXISTS);
    }

    // A handle that is kept, or a duplicate of one.
    std::string Hold(const Path& path, uint32_t roll) {
        if (path.empty() || FindKey(&model_, path) == nullptr) return "";
        if (held_.size() > 4) held_.erase(held_.begin());
        OpenKey key(store_->handle, store_->Open(Joined(path)));
        if (roll % 2 == 0) {
            FBR_KEY copy = 0;
            const FBR_STATUS told = store_->Duplicate(key, &copy);
            if (told != FSSTATUS_SUCCESS) return Expect("duplicate", told, FSSTATUS_SUCCESS);
            key = OpenKey(store_->handle, copy);
        }
        held_.push_back({path, std::move(key)});
        return "";
    }
    std::string Use(const Held& held, const Step& step) {
        if (store_->FullName(held.key) != Joined(held.path)) return "a handle leads elsewhere";
        FindKey(&model_, held.path)->values[u"held"] = step.value;
        return Expect("set by a handle",
                      store_->Set(held.key, "held", step.value.data, step.value.type),
                      FSSTATUS_SUCCESS);
    }
    std::string Read(const Path& path) {
        const Content* expected = FindKey(&model_, path);
        if (expected == nullptr)
            return Expect("open", store_->TryOpen(Joined(path)), FSSTATUS_NOT_FOUND);
        if (path.empty()) return Judge();
        Content found;
        const OpenKey key(store_->handle, store_->Open(Joined(path)));
        const FBR_STATUS status = support::ReadKey(store_->handle, key, &found);
        if (status != FSSTATUS_SUCCESS) return Expect("read", status, FSSTATUS_SUCCESS);
        return found == *expected ? "" : "a key of another content";
    }
    // Made again it may not be volatile any more.
    std::string MakeVolatile(const WString& name) {
        if (volatile_.count(name) != 0) return "";
        const FBR_STATUS made = backend_.Is("offline") ? FSSTATUS_INVALID_NAME : FSSTATUS_SUCCESS;
        if (made == FSSTATUS_SUCCESS) volatile_.insert(name);
        return Expect("create volatile", store_->TryMake(name, 0, FSCREATEOPTIONS_VOLATILE), made);
    }
    std::string Look() {
        uint32_t corrupted = 0;
        const FBR_STATUS told = FBR_IsCorrupted(store_->handle, &corrupted);
        return corrupted != 0 ? "it is corrupted" : Expect("look", told, FSSTATUS_SUCCESS);
    }
    std::string Reopen() {
        held_.clear();
        std::string wrong = Judge();
        store_.reset();
        if (backend_.Is("volatileEndsWithStore")) volatile_.clear();
        if (wrong.empty() && place_->Method() == FS_VR_METHOD_TARN)
            wrong =
                Expect("check", FBR_CheckFileEx(place_->Path().c_str(), nullptr), FSSTATUS_SUCCESS);
        Open();
        return wrong.empty() ? Judge() : wrong;
    }

    const Backend backend_;
    const std::unique_ptr<Place> place_;
    std::unique_ptr<OpenStore> store_;
    Content model_;
    std::set<WString> volatile_;
    std::vector<Held> held_;
};

std::vector<Deed> Deeds(uint32_t seed, int count) {
    std::mt19937 random(seed);
    std::vector<Deed> deeds;
    Content model;
    using enum Deed::What;
    constexpr Deed::What kWhat[] = {Work, Work, Work, Work, Work, Hold, UseHeld, UseHeld, Read};
    for (int i = 1; i <= count; ++i) {
        Step step = faults::RandomStep(&random, model);
        const uint32_t roll = static_cast<uint32_t>(random());
        Deed::What what = kWhat[roll / 64 % std::size(kWhat)];
        if (i % 20 == 0) what = i % 40 == 0 ? Volatile : Look;
        if (i % 150 == 0) what = Reopen;
        if (what == Work) faults::Apply(step, &model);
        deeds.push_back({what, std::move(step), roll});
    }
    return deeds;
}

std::string Wrong(const Backend& backend, const std::vector<Deed>& deeds) {
    Run run(backend);
    for (const Deed& deed : deeds) {
        const std::string wrong = run.Do(deed);
        if (!wrong.empty()) return wrong;
    }
    return run.Judge();
}

std::string Told(const Deed& deed) {
    constexpr const char* kNames[] = {"work", "hold", "use", "read", "volatile", "look", "reopen"};
    constexpr const char* kKinds[] = {"set", "delete value", "delete key", "rename", "compact"};
    std::string text = kNames[static_cast<int>(deed.what)];
    if (deed.what == Deed::What::Work) text = kKinds[static_cast<int>(deed.step.kind)];
    return "\n  " + text + " " + platform::ToUtf8(Joined(deed.step.path)) + " " +
           std::string(deed.step.name.begin(), deed.step.name.end()) + " (" +
           std::to_string(deed.step.value.data.size()) + " bytes, " + std::to_string(deed.roll) +
           ")";
}

class Model : public StoreTest, public testing::WithParamInterface<Backend> {
  protected:
    Model() : StoreTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Stores, Model, testing::ValuesIn(AllBackends()),
                         [](const auto& param) { return param.param.name; });

TEST_P(Model, RandomWorkLeavesStoreAndModelEqual) {
    const uint32_t seed = static_cast<uint32_t>(testing::UnitTest::GetInstance()->random_seed());
    const char* times = std::getenv("ZRFS_LONG_TESTS");
    std::vector<Deed> deeds = Deeds(seed, 500 * (times == nullptr ? 1 : std::atoi(times)));
    std::string wrong = Wrong(GetParam(), deeds);
    if (wrong.empty()) return;
    deeds = support::Shrunk(deeds,
                            [&](const auto& fewer) { return !Wrong(GetParam(), fewer).empty(); });
    std::string all;
    for (const Deed& deed : deeds) all += Told(deed);
    FAIL() << wrong << "; repeat with --gtest_random_seed=" << seed
           << ". Of the deeds these will do, " << Wrong(GetParam(), deeds) << ":" << all;
}

}  // namespace
}  // namespace contract
