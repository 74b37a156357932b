// A process that writes is killed at any moment. Another one takes the lock, repairs the store and
// goes on: of the values whose setting had been done none may be missing.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/container/EngineStore.h"
#include "tests/faults/Registry.h"
#include "tests/support/ChildProcess.h"

namespace faults {
namespace {

constexpr uint32_t kValues = 40;

// The work of both processes: value number i % kValues is set for the i-th time round.
Bytes DataOf(uint32_t i) {
    return Bytes(i * 37 % 2500 + 1, static_cast<uint8_t>(i));
}
WString KeyOf(uint32_t i) {
    return WTEXT("\\key ") + WString(1, static_cast<platform::WChar>('a' + i % kValues % 7));
}
WString NameOf(uint32_t i) {
    return WString(1 + i % kValues, 'v');
}
FBR_STATUS SetOne(Store* store, uint32_t i) {
    const FBR_KEY key = store->Make(KeyOf(i));
    const FBR_STATUS status = store->Set(key, NameOf(i), DataOf(i));
    FBR_CloseDirEx(key, store->handle);
    return status;
}

// How far the work has come, in a file that outlives the process.
uint32_t ReadProgress(const std::filesystem::path& path) {
    const Bytes bytes = support::ReadBytes(path);
    return bytes.size() < 4 ? 0 : support::container::Get32(bytes.data(), bytes.size() / 4 * 4 - 4);
}

// Arguments: the store, the file for the progress, the first number.
const support::ChildRole kWriter("writer", [](const std::vector<std::string>& arguments) {
    Store store(support::Wide(arguments[0]));
    std::FILE* progress = std::fopen(arguments[1].c_str(), "ab");
    if (store.Lock() != FSSTATUS_SUCCESS || progress == nullptr) return 1;
    for (uint32_t i = static_cast<uint32_t>(std::stoul(arguments[2]));; ++i) {
        if (SetOne(&store, i) != FSSTATUS_SUCCESS) return 2;
        std::fwrite(&i, sizeof i, 1, progress);
        std::fflush(progress);
    }
});

// The last time up to `done` that value `slot` was set, 0 for never.
uint32_t LastSet(uint32_t slot, uint32_t done) {
    if (done < slot) return 0;
    return done - (done - slot) % kValues;
}

TEST(Kill, LosesNothingThatWasDone) {
    support::TempDir dir;
    const std::filesystem::path path = dir / "s.fbr", progress = dir / "progress";
    std::mt19937 random(11);
    uint32_t done = 0;
    for (uint32_t round = 0; round < 6 * support::container::LongTests(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Store watching(support::Wide(path));
        {
            support::ChildProcess writer(
                "writer", {path.string(), progress.string(), std::to_string(done + 1)});
            const uint32_t goal = done + 1 + random() % 150;
            ASSERT_TRUE(support::Eventually([&] { return ReadProgress(progress) >= goal; }));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
            writer.Kill();
        }
        done = ReadProgress(progress);
        // The lock of the dead process is had at once, and all of its work is seen.
        ASSERT_EQ(watching.Lock(), FSSTATUS_SUCCESS);
        ASSERT_EQ(watching.Close(), FSSTATUS_SUCCESS);
        ASSERT_EQ(FBR_CheckAndRepairFileEx(support::Wide(path).c_str(), nullptr), FSSTATUS_SUCCESS);
        Store store(support::Wide(path));
        ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
        for (uint32_t slot = 0; slot < kValues; ++slot) {
            const uint32_t last = LastSet(slot, done);
            // The one that was in hand may be of before, of after, or of both.
            if (last == 0 || (done + 1) % kValues == slot) continue;
            const FBR_KEY key = store.Open(KeyOf(last));
            EXPECT_EQ(store.Get(key, NameOf(last)), DataOf(last)) << slot;
            FBR_CloseDirEx(key, store.handle);
        }
        for (int i = 0; i < 60; ++i) ASSERT_EQ(SetOne(&store, ++done), FSSTATUS_SUCCESS);
        ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
        const auto reading = support::container::ReadContainer(support::ReadBytes(path));
        ASSERT_TRUE(reading.Sound()) << reading.Report();
    }
}

}  // namespace
}  // namespace faults
