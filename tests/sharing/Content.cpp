// SPDX-License-Identifier: MIT
#include "tests/sharing/Content.h"

#include <algorithm>

#include "tests/container/Promise.h"

namespace sharing {
namespace {

using support::container::Get32;
using support::container::Narrow;
using support::container::Put32;

constexpr uint32_t kSealBytes = 32;
constexpr const char* kGuest = "guest";

std::string PairKey(uint32_t pair) {
    return "\\pair" + std::to_string(pair % kPairs);
}
std::string NumberedKey(int number) {
    return "\\from" + std::to_string(number / 50);
}

}  // namespace

Bytes Sealed(const std::string& key, const std::string& name, Seal seal, uint32_t size) {
    Bytes data(std::max(size, kSealBytes));
    const std::string place = key + " " + name;
    std::seed_seq seed(place.begin(), place.end());
    std::mt19937 random(seed);
    uint32_t state = random() ^ seal.writer * 0x9E3779B9u ^ seal.sequence ^ size << 16;
    for (uint8_t& byte : data)
        byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    Put32(data.data(), 0, seal.writer);
    Put32(data.data(), 4, seal.sequence);
    return data;
}

std::optional<Seal> ReadSeal(const Bytes& data, const std::string& key, const std::string& name) {
    if (data.size() < kSealBytes) return std::nullopt;
    const Seal seal{Get32(data.data(), 0), Get32(data.data(), 4)};
    if (data != Sealed(key, name, seal, static_cast<uint32_t>(data.size()))) return std::nullopt;
    return seal;
}

FBR_STATUS Store::Set(const std::string& path, const std::string& name, Seal seal, uint32_t size) {
    FBR_STATUS told = FSSTATUS_SUCCESS;
    const support::OpenKey key(handle, Make(path, 0, FSCREATEOPTIONS_NONE, &told));
    if (told != FSSTATUS_SUCCESS && told != FSSTATUS_ALREADY_EXISTS) return told;
    return support::Store::Set(key, name, Sealed(path, name, seal, size));
}

FBR_STATUS Store::Get(const std::string& path, const std::string& name, Bytes* data) {
    FBR_KEY opened = 0;
    const FBR_STATUS told = FBR_OpenDirEx(0, support::Text(path).c_str(), &opened, handle);
    const support::OpenKey key(handle, opened);
    return told == FSSTATUS_SUCCESS ? Get(opened, name, data) : told;
}

FBR_STATUS Store::Get(FBR_KEY key, const std::string& name, Bytes* data) {
    uint64_t size = 0;
    data->resize(1 << 16);
    const FBR_STATUS told = Query(key, name, data->data(), data->size(), &size);
    data->resize(told == FSSTATUS_SUCCESS ? size : 0);
    return told;
}

uint32_t SizeOf(uint32_t sequence) {
    constexpr uint32_t kSizes[] = {40, 470, 60, 1000, 4000, 36, 12000, 200, 2500};
    return kSizes[sequence * 7 % std::size(kSizes)];
}

FBR_STATUS ChangeShared(Store* store, uint32_t writer, uint32_t sequence) {
    const Seal seal{writer, sequence};
    const std::string own = OwnKey(writer), pair = PairKey(sequence);
    FBR_STATUS status = store->Set(own, OwnName(sequence), seal, SizeOf(sequence));
    for (const char* half : {"a", "b"})
        if (status == FSSTATUS_SUCCESS) status = store->Set(pair, half, seal, SizeOf(sequence + 3));
    if (status != FSSTATUS_SUCCESS) return status;
    // Something that comes and goes, so that names and pages move: a key, or a value.
    const std::string guest = own + "\\guest" + std::to_string(sequence / 4 % 5);
    switch (sequence % 4) {
        case 0:
            return store->Set(guest, "v", seal, 100);
        case 1:
            return store->DeleteTree(guest);
        case 2:
            return store->Set(own, kGuest, seal, SizeOf(sequence));
        default:
            return store->DeleteValue(support::OpenKey(store->handle, store->Open(own)), kGuest);
    }
}

bool ChangeUnderLock(Store* store, uint32_t writer, Tally* tally) {
    if (!tally->Went(store->Lock(), "lock")) return true;
    const uint32_t sequence = kOwnValues + static_cast<uint32_t>(tally->done);
    return tally->Did(ChangeShared(store, writer, sequence), "change") &&
           tally->Went(store->Unlock(), "release");
}

void MakeShared(const std::string& path, uint32_t writers) {
    Store store(path);
    ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    for (uint32_t writer = 0; writer < writers; ++writer)
        for (uint32_t sequence = 0; sequence < kOwnValues; ++sequence)
            ASSERT_EQ(ChangeShared(&store, writer, sequence), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
}

void JudgeShared(const Key& root, Tally* tally) {
    const auto seals = [tally](const std::string& path, const Key& key) {
        std::vector<std::optional<Seal>> found;
        for (const auto& [name, value] : key.values) {
            found.push_back(ReadSeal(value.data, path, Narrow(name)));
            if (!found.back()) tally->Wrong(path + " " + Narrow(name) + " is not whole");
        }
        return found;
    };
    for (const auto& [name, key] : root.keys) {
        const std::string path = "\\" + Narrow(name);
        const bool pair = path.starts_with("\\pair");
        if (key.values.size() - key.values.count(u"guest") != (pair ? 2 : kOwnValues))
            tally->Wrong(path + " has " + std::to_string(key.values.size()) + " values");
        const auto found = seals(path, key);
        if (pair && found.size() == 2 && found[0] != found[1]) tally->Wrong(path + " is torn");
        for (const auto& [below, guest] : key.keys) seals(path + "\\" + Narrow(below), guest);
    }
    if (root.keys.size() <= kPairs) tally->Wrong("keys are missing");
}

void ExpectChanges(const std::string& path, uint32_t writer, uint64_t done) {
    Store store(path);
    const uint32_t next = kOwnValues + static_cast<uint32_t>(done);
    for (uint32_t sequence = next - kOwnValues; sequence < next; ++sequence) {
        Bytes data;
        EXPECT_EQ(store.Get(OwnKey(writer), OwnName(sequence), &data), FSSTATUS_SUCCESS);
        EXPECT_EQ(ReadSeal(data, OwnKey(writer), OwnName(sequence)), (Seal{writer, sequence}))
            << "of writer " << writer << ", " << OwnName(sequence);
    }
}

bool SetNumbered(const std::string& path, const std::string& user, int number, Tally* tally) {
    Store store(path);
    return tally->Went(store.status, "open") && tally->Went(store.Lock(), "lock") &&
           tally->Did(store.Set(NumberedKey(number), user + "-" + std::to_string(number), {}, 300),
                      "set") &&
           tally->Went(store.Unlock(), "release") && tally->Went(store.Close(), "close");
}

void ExpectNumbered(const std::string& path, const std::string& user, int count) {
    Store store(path);
    int lost = 0;
    for (int i = 0; i < count; ++i) {
        const std::string key = NumberedKey(i), name = user + "-" + std::to_string(i);
        Bytes data;
        store.Get(key, name, &data);
        lost += data != Sealed(key, name, {}, 300);
    }
    EXPECT_EQ(lost, 0) << "of " << count << " from user " << user;
}

OpenKeys OpenShared(Store* store, uint32_t writers) {
    OpenKeys keys;
    for (uint32_t i = 0; i < writers; ++i) keys[OwnKey(i)] = store->Open(OwnKey(i));
    for (uint32_t i = 0; i < kPairs; ++i) keys[PairKey(i)] = store->Open(PairKey(i));
    return keys;
}

void Reader::Step(Store* store, const OpenKeys& keys) {
    const uint32_t roll = static_cast<uint32_t>(random_());
    const uint32_t pick = random_() % (writers_ + 1);
    if (pick == writers_)
        GetOne(store, keys, PairKey(roll), roll % 8 < 4 ? "a" : "b");
    else if (roll % 16 == 0)
        List(store, keys, OwnKey(pick));
    else
        GetOne(store, keys, OwnKey(pick), roll % 16 < 5 ? kGuest : OwnName(roll / 16));
}

void Reader::GetOne(Store* store, const OpenKeys& keys, const std::string& key,
                    const std::string& name) {
    Bytes data;
    const FBR_STATUS status =
        random_() % 2 == 0 ? store->Get(key, name, &data) : store->Get(keys.at(key), name, &data);
    if (name == kGuest && status == FSSTATUS_NOT_FOUND) return;
    if (!tally_->Did(status, "get " + key + " " + name)) return;
    const std::optional<Seal> seal = ReadSeal(data, key, name);
    if (!seal) return tally_->Wrong(key + " " + name + " is not whole");
    uint32_t& seen = seen_[key + " " + name];
    if (key.starts_with("\\writer") && seal->sequence < seen)
        tally_->Wrong(key + " " + name + " is older than it was");
    seen = seal->sequence;
}

void Reader::List(Store* store, const OpenKeys& keys, const std::string& key) {
    support::Names names;
    const FBR_STATUS status = FBR_EnumerateAllValues(keys.at(key), names, store->handle);
    if (!tally_->Did(status == FSSTATUS_NO_MORE_ENTRIES ? FSSTATUS_SUCCESS : status, "list"))
        return;
    std::erase(names, support::Text(kGuest));
    std::sort(names.begin(), names.end());
    const bool once = std::unique(names.begin(), names.end()) == names.end();
    if (names.size() != kOwnValues || !once)
        tally_->Wrong(key + " lists " + std::to_string(names.size()) + " values");
}

void ExpectSound(const std::string& path, bool orLostPages) {
    const auto check = support::container::CheckContainer(path, support::container::kDeepCheck);
    EXPECT_EQ(check.status, storage::kOk);
    EXPECT_TRUE(orLostPages ? check.FoundOnlyLostPages() : check.FoundNothing())
        << check.Findings();
}

}  // namespace sharing
