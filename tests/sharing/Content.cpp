#include "tests/sharing/Content.h"

#include <algorithm>
#include <thread>

namespace sharing {
namespace {

std::string Ascii(const std::u16string& text) {
    return std::string(text.begin(), text.end());
}

}  // namespace

std::string OwnKey(uint32_t writer) {
    return "\\writer" + std::to_string(writer);
}

std::string PairKey(uint32_t pair) {
    return "\\pair" + std::to_string(pair);
}

std::string FromKey(uint32_t number) {
    return "\\from" + std::to_string(number / 50);
}

std::string OwnName(uint32_t sequence) {
    return "v" + std::to_string(sequence % kOwnValues);
}

uint32_t SizeOf(uint32_t sequence) {
    constexpr uint32_t kSizes[] = {40, 470, 60, 1000, 4000, 36, 12000, 200, 2500};
    return kSizes[sequence * 7 % std::size(kSizes)];
}

FBR_STATUS ChangeShared(Store* store, uint32_t writer, uint32_t sequence) {
    const Seal seal{writer, sequence};
    const std::string own = OwnKey(writer), name = OwnName(sequence);
    FBR_STATUS status = store->Set(own, name, Sealed(own, name, seal, SizeOf(sequence)));
    const std::string pair = PairKey(sequence % kPairs);
    for (const char* half : {"a", "b"})
        if (status == FSSTATUS_SUCCESS)
            status = store->Set(pair, half, Sealed(pair, half, seal, SizeOf(sequence + 3)));
    // Something that comes and goes, so that names and pages move.
    const std::string guest = own + "\\guest" + std::to_string(sequence / 2 % 5);
    if (status == FSSTATUS_SUCCESS)
        status = sequence % 2 == 0 ? store->Set(guest, "v", Sealed(guest, "v", seal, 100))
                                   : FBR_DeleteDirNamedEx(Wide(guest).c_str(), store->handle);
    return status;
}

void MakeShared(const std::string& path, uint32_t writers) {
    Store store(path);
    ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    for (uint32_t writer = 0; writer < writers; ++writer)
        for (uint32_t sequence = 0; sequence < kOwnValues; ++sequence)
            ASSERT_EQ(ChangeShared(&store, writer, sequence), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
}

void JudgeShared(const Key& root, Tally* tally) {
    std::string wrong;
    uint32_t keys = 0;
    for (const auto& [name, key] : root.keys) {
        const std::string path = "\\" + Ascii(name);
        const bool pair = path.starts_with("\\pair");
        ++keys;
        if (key.values.size() != (pair ? 2 : kOwnValues))
            tally->Wrong(path + " has " + std::to_string(key.values.size()) + " values");
        std::vector<std::optional<Seal>> seals;
        for (const auto& [valueName, value] : key.values) {
            seals.push_back(ReadSeal(value.data, path, Ascii(valueName), &wrong));
            if (!seals.back()) tally->Wrong(wrong);
        }
        if (pair && seals.size() == 2 && seals[0] != seals[1]) tally->Wrong(path + " is torn");
        for (const auto& [guestName, guest] : key.keys)
            for (const auto& [valueName, value] : guest.values)
                if (!ReadSeal(value.data, path + "\\" + Ascii(guestName), Ascii(valueName), &wrong))
                    tally->Wrong(wrong);
    }
    if (keys <= kPairs) tally->Wrong("keys are missing");
}

void ExpectChanges(const std::string& path, uint32_t writer, uint64_t done) {
    Store store(path);
    const uint32_t next = kOwnValues + static_cast<uint32_t>(done);
    uint32_t lost = 0;
    std::string first;
    for (uint32_t sequence = next - kOwnValues; sequence < next; ++sequence) {
        Bytes data;
        std::string wrong = "cannot be read";
        std::optional<Seal> seal;
        if (store.Get(OwnKey(writer), OwnName(sequence), &data) == FSSTATUS_SUCCESS)
            seal = ReadSeal(data, OwnKey(writer), OwnName(sequence), &wrong);
        if (seal == Seal{writer, sequence}) continue;
        if (seal) wrong = "number " + std::to_string(seal->sequence);
        if (lost++ == 0) first = OwnName(sequence) + ": " + wrong;
    }
    EXPECT_EQ(lost, 0u) << "of writer " << writer << ", first " << first;
}

void ExpectValuesFrom(const std::string& path, const std::string& number, int count) {
    Store store(path);
    int lost = 0;
    for (int i = 0; i < count; ++i) {
        const std::string name = number + "-" + std::to_string(i);
        const std::string key = FromKey(static_cast<uint32_t>(i));
        Bytes data;
        const bool good =
            store.Get(key, name, &data) == FSSTATUS_SUCCESS && data == Sealed(key, name, {}, 300);
        if (!good) ++lost;
    }
    EXPECT_EQ(lost, 0) << "of " << count << " from number " << number;
}

void ExpectOneLock(Troupe* troupe, const std::string& path, const std::string& folder,
                   const std::string& name) {
    SCOPED_TRACE(name);
    const std::string ready = troupe->File("ready");
    std::filesystem::remove(ready);
    Player* holder = troupe->Start("sharing-hold", {path, "1", ready});
    ASSERT_TRUE(WaitForFile(ready));
    Player* user = troupe->Start("sharing-set-from", {folder, name, "x", "3", "0"});
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_FALSE(user->HasReported()) << "it has a lock of its own";
    holder->Kill();
    const std::optional<Tally> tally = user->FinishSoon();
    ASSERT_TRUE(tally.has_value()) << "it waits for nobody";
    EXPECT_TRUE(tally->Good() && tally->done == 3) << tally->Line();
}

}  // namespace sharing
