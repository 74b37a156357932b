// SPDX-License-Identifier: MIT
// Processes that save one hive at once, and that are killed while they save.
#include <cstring>
#include <memory>
#include <random>
#include <thread>

#include "tests/offline/SavedValue.h"
#include "tests/support/ChildProcess.h"

using namespace offline_test;
using support::TempDir;

namespace {

namespace fs = std::filesystem;

// Adds 1 to the value, as often as the second argument says; the exit code is the number of times
// that the store said yes, or 200 and a status that is none of the two to be expected.
const support::ChildRole kCount("count", [](const std::vector<std::string>& arguments) {
    const WString path = platform::FromUtf8(arguments[0]);
    int done = 0;
    for (int i = std::stoi(arguments[1]); i > 0; --i) {
        Offline store(path);
        if (store.status != FSSTATUS_SUCCESS) continue;
        const auto data = store.Get(store.Root(), "v");
        uint32_t number = 0;
        if (data && data->size() == 4) std::memcpy(&number, data->data(), 4);
        ++number;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&number);
        store.Set(store.Root(), "v", Bytes(bytes, bytes + 4));
        const FBR_STATUS status = store.Close();
        if (status == FSSTATUS_SUCCESS) ++done;
        if (status != FSSTATUS_SUCCESS && status != FSSTATUS_SHARING_VIOLATION)
            return 200 + static_cast<int>(status);
    }
    return done;
});

TEST(OfflineStoreProcesses, OfManyThatSaveAtOnceEachYesIsKept) {
    TempDir dir;
    ASSERT_EQ(Save(dir.File("user.dat"), {0, 0, 0, 0}), FSSTATUS_SUCCESS);
    constexpr int kChildren = 4;
    std::vector<std::unique_ptr<support::ChildProcess>> children;
    for (int i = 0; i < kChildren; ++i) {
        children.push_back(std::make_unique<support::ChildProcess>(
            "count", std::vector<std::string>{(dir / "user.dat").string(), "60"}));
    }
    uint32_t sum = 0;
    for (const auto& child : children) {
        const int yes = child->Wait();
        EXPECT_LE(yes, 60);
        sum += static_cast<uint32_t>(yes);
    }
    const Bytes data = Load(dir.File("user.dat"));
    uint32_t number = 0;
    ASSERT_EQ(data.size(), sizeof number);
    std::memcpy(&number, data.data(), sizeof number);
    EXPECT_EQ(number, sum);
    EXPECT_GE(sum, 20u);
    EXPECT_EQ(FilesIn(dir), 1u);
}

const support::ChildRole kFill("fill", [](const std::vector<std::string>& arguments) {
    const WString path = platform::FromUtf8(arguments[0]);
    for (uint8_t i = 1;; ++i) {
        if (Save(path, Bytes(300000, i)) != FSSTATUS_SUCCESS) return 1;
    }
});

TEST(OfflineStoreProcesses, AKillLeavesTheOldOrTheNewFile) {
    TempDir dir;
    const WString path = dir.File("user.dat");
    ASSERT_EQ(Save(path, Bytes(300000, 0)), FSSTATUS_SUCCESS);
    std::mt19937 random(7);
    for (int round = 0; round < 30; ++round) {
        const auto before = fs::last_write_time(dir / "user.dat");
        support::ChildProcess child("fill", {(dir / "user.dat").string()});
        ASSERT_TRUE(support::Eventually([&] {
            std::error_code ignored;
            return fs::last_write_time(dir / "user.dat", ignored) != before;
        }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
        child.Kill();
        const Bytes data = Load(path);
        ASSERT_EQ(data.size(), 300000u);
        ASSERT_EQ(std::count(data.begin(), data.end(), data[0]), 300000);
    }
    // What a kill may leave besides has a name that tells what it is.
    for (const auto& entry : fs::directory_iterator(dir.Path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name.starts_with("user.dat") || name.starts_with("~hive")) << name;
    }
}

}  // namespace
