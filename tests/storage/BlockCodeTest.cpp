// SPDX-License-Identifier: MIT
// The run-length code of blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <random>

#include "storage/namespace/Stream.h"
#include "tests/support/ContainerBytes.h"

namespace {

using storage::DecodeRuns;
using storage::EncodeRuns;
using support::Bytes;

// Buffers of exactly the length given, so that the sanitizer sees every byte too many.
template <class Coder>
std::optional<Bytes> Through(Coder coder, const Bytes& in, size_t room) {
    const std::unique_ptr<uint8_t[]> from(new uint8_t[in.size()]), to(new uint8_t[room]);
    std::copy(in.begin(), in.end(), from.get());
    auto length = static_cast<uint32_t>(room);
    if (!coder(from.get(), static_cast<uint32_t>(in.size()), to.get(), &length))
        return std::nullopt;
    return Bytes(to.get(), to.get() + length);
}

TEST(BlockCode, WritesTheBytesOfTheFormat) {
    struct {
        Bytes plain, code;
    } cases[] = {
        {{}, {0xFF, 0}},
        {{1, 1, 1}, {1, 1, 1, 0xFF, 0}},
        {{1, 1, 1, 1}, {0xFF, 4, 1, 0xFF, 0}},
        {{0xFF}, {0xFF, 1, 0xFF, 0xFF, 0}},
        {{0, 0xFF, 0xFF, 0}, {0, 0xFF, 2, 0xFF, 0, 0xFF, 0}},
        {Bytes(127, 9), {0xFF, 127, 9, 0xFF, 0}},
        {Bytes(128, 9), {0xFF, 0x80, 1, 9, 0xFF, 0}},
        {Bytes(16384, 9), {0xFF, 0x80, 0x80, 1, 9, 0xFF, 0}},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(Through(EncodeRuns, one.plain, 64), one.code);
        EXPECT_EQ(Through(DecodeRuns, one.code, 20000), one.plain);
    }
}

TEST(BlockCode, GivesBackWhatWasCodedInExactlyTheRoomNeeded) {
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        Bytes plain, reference;
        for (size_t runs = random() % 20; runs > 0; --runs)
            plain.insert(plain.end(), random() % 4 == 0 ? random() % 700 : random() % 6,
                         random() % 3 == 0 ? 0xFF : static_cast<uint8_t>(random() % 4));
        Bytes code = Through(EncodeRuns, plain, 20000).value_or(Bytes());
        ASSERT_TRUE(support::container::DecodeRunLengths(code, &reference));
        EXPECT_EQ(reference, plain);
        EXPECT_EQ(Through(EncodeRuns, plain, code.size()), code);
        EXPECT_EQ(Through(EncodeRuns, plain, code.size() - 1), std::nullopt);
        EXPECT_TRUE(plain.empty() || !Through(DecodeRuns, code, plain.size() - 1));
        // What stands behind the end, as padding does, is not looked at.
        code.insert(code.end(), random() % 2 * 30, 0xFF);
        EXPECT_EQ(Through(DecodeRuns, code, plain.size()), plain);
    }
}

TEST(BlockCode, RefusesCodeThatLies) {
    const Bytes cases[] = {
        {},                                                   // no end
        {1, 2, 3},                                            // no end
        {0xFF},                                               // no count
        {0xFF, 0x80},                                         // half a count
        {0xFF, 0x80, 0x80, 0x80, 0x80, 0x80, 1, 7, 0xFF, 0},  // a count past 32 bits
        {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 7, 0xFF, 0},     // the same in five bytes
        {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 7, 0xFF, 0},     // 2^32 - 1 bytes
        {0xFF, 5},                                            // no byte
        {0xFF, 5, 7},                                         // no end
    };
    for (const Bytes& code : cases) EXPECT_EQ(Through(DecodeRuns, code, 4096), std::nullopt);
    // The output only counted must not wrap.
    uint32_t length = UINT32_MAX;
    const uint8_t twice[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 7, 7, 0xFF, 0};
    EXPECT_FALSE(DecodeRuns(twice, sizeof twice, nullptr, &length));
}

}  // namespace
