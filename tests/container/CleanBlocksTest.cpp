// SPDX-License-Identifier: MIT
// What is known of the file is what stands in it, however much of it there is.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "storage/core/CleanBlocks.h"
#include "storage/core/Format.h"
#include "tests/support/FileWrapper.h"

namespace {

constexpr uint32_t kPage = 512, kPages = 60000;  // more than fits, whatever is kept of them

struct File final : support::ForwardingFile {
    File() : ForwardingFile(nullptr) {}
    std::vector<uint8_t> bytes = std::vector<uint8_t>(kPage * kPages - 100);

    platform::Error Read(uint64_t offset, void* buffer, uint32_t count, uint32_t* done) override {
        *done = static_cast<uint32_t>(
            std::min<uint64_t>(count, bytes.size() - std::min<uint64_t>(offset, bytes.size())));
        if (*done != 0) std::memcpy(buffer, bytes.data() + offset, *done);
        return 0;
    }
    bool IsWritable() const override { return true; }
};

// Pages of records of any length, some with zeros at their end, and full pages.
std::vector<uint8_t> MakePage(std::mt19937& dice) {
    std::vector<uint8_t> page(kPage);
    const bool ofRecords = dice() % 4 != 0;
    const uint32_t end = ofRecords ? 36 + dice() % (kPage - 36 + 1) : kPage;
    const uint32_t zeros = dice() % 8 == 0 ? std::min<uint32_t>(end - 36, dice() % 200) : 0;
    for (uint32_t i = 36; i < end - zeros; ++i) page[i] = static_cast<uint8_t>(dice());
    page[0] = ofRecords ? storage::kHeaderPage : storage::kDataPage;
    storage::Store(page.data(), offsetof(storage::HeaderPageHeader, endOffset),
                   static_cast<uint16_t>(end));
    return page;
}

TEST(CleanBlocks, HoldWhatStandsInTheFile) {
    std::mt19937 dice(7);
    File file;
    storage::CleanBlocks blocks;
    const auto put = [&](uint32_t page, uint32_t count) {
        const std::vector<uint8_t> bytes = MakePage(dice);
        const uint64_t at = uint64_t{page} * kPage;
        count = static_cast<uint32_t>(std::min<uint64_t>(count, file.bytes.size() - at));
        std::memcpy(file.bytes.data() + at, bytes.data(), count);
        blocks.Note(at, count == kPage ? bytes.data() : nullptr, kPage);
    };
    uint32_t page = 0;
    uint64_t reads = 0, copies = 0;
    for (int step = 0; step < 400000; ++step) {
        page = dice() % 3 != 0 ? (page + 1 + dice() % 3) % kPages : dice() % kPages;
        const uint32_t what = dice() % 1000;
        if (what < 300) {
            put(page, what == 0 ? dice() % kPage : kPage);
        } else if (what == 999 && step % 20 == 0) {
            for (int i = 0; i < 50; ++i) file.bytes[dice() % file.bytes.size()] ^= 1;
            blocks.Forget();
        } else if (what < 400) {
            uint8_t run[17 * kPage], wanted[sizeof run];
            uint32_t done = 0;
            const uint32_t count = kPage * (1 + dice() % 17);
            const uint32_t copied = blocks.Copy(uint64_t{page} * kPage, run, count);
            file.Read(uint64_t{page} * kPage, wanted, count, &done);
            if (copied < count)
                blocks.Offer(uint64_t{page} * kPage, wanted, done / kPage * kPage);
            else
                ++copies;
            std::memset(wanted + done, 0, count - done);
            ASSERT_LE(copied, count);
            ASSERT_EQ(std::memcmp(run, wanted, copied), 0) << "page " << page << " step " << step;
        } else {
            bool wasRead = false;
            uint32_t error = 0;
            const storage::PageBytes found = blocks.Find(&file, uint64_t{page} * kPage, kPage,
                                                         dice() % 8 == 0, &wasRead, &error);
            reads += wasRead;
            ASSERT_NE(found.bytes, nullptr);
            uint8_t whole[kPage] = {};
            std::memcpy(whole, found.bytes, found.count);
            uint8_t wanted[kPage] = {};
            uint32_t done = 0;
            file.Read(uint64_t{page} * kPage, wanted, kPage, &done);
            ASSERT_EQ(std::memcmp(whole, wanted, kPage), 0) << "page " << page << " step " << step;
        }
    }
    EXPECT_LT(reads, 200000u);
    EXPECT_GT(copies, 1000u);
}

}  // namespace
