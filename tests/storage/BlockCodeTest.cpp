// SPDX-License-Identifier: MIT
// The run-length code of blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "storage/namespace/Stream.h"
#include "tests/support/ContainerBytes.h"

namespace {

using support::Bytes;

// Buffers of exactly the length given, so that the sanitizer sees every byte too many.
bool Encode(const Bytes& plain, uint32_t room, Bytes* code) {
    std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    uint32_t length = room;
    if (!storage::EncodeRuns(plain.data(), static_cast<uint32_t>(plain.size()), out.get(), &length))
        return false;
    code->assign(out.get(), out.get() + length);
    return true;
}

bool Decode(const Bytes& code, uint32_t room, Bytes* plain) {
    std::unique_ptr<uint8_t[]> in(new uint8_t[code.size()]);
    std::copy(code.begin(), code.end(), in.get());
    std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    uint32_t length = room;
    if (!storage::DecodeRuns(in.get(), static_cast<uint32_t>(code.size()), out.get(), &length))
        return false;
    plain->assign(out.get(), out.get() + length);
    return true;
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
        Bytes code, plain;
        ASSERT_TRUE(Encode(one.plain, 64, &code));
        EXPECT_EQ(code, one.code);
        ASSERT_TRUE(Decode(one.code, 20000, &plain));
        EXPECT_EQ(plain, one.plain);
    }
}

TEST(BlockCode, GivesBackWhatWasCodedInExactlyTheRoomNeeded) {
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        Bytes plain;
        const size_t runs = random() % 20;
        for (size_t i = 0; i < runs; ++i)
            plain.insert(plain.end(), random() % 4 == 0 ? random() % 700 : random() % 6,
                         random() % 3 == 0 ? 0xFF : static_cast<uint8_t>(random() % 4));
        Bytes code, back, reference;
        ASSERT_TRUE(Encode(plain, 20000, &code));
        ASSERT_TRUE(support::container::DecodeRunLengths(code, &reference));
        EXPECT_EQ(reference, plain);
        const uint32_t codeRoom = static_cast<uint32_t>(code.size());
        const uint32_t plainRoom = static_cast<uint32_t>(plain.size());
        EXPECT_TRUE(Encode(plain, codeRoom, &back));
        EXPECT_FALSE(Encode(plain, codeRoom - 1, &back));
        ASSERT_TRUE(Decode(code, plainRoom, &back));
        EXPECT_EQ(back, plain);
        if (plainRoom > 0) {
            EXPECT_FALSE(Decode(code, plainRoom - 1, &back));
        }
        // What stands behind the end, as padding does, is not looked at.
        code.insert(code.end(), 30, 0xFF);
        EXPECT_TRUE(Decode(code, plainRoom, &back));
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
    Bytes plain;
    for (const Bytes& code : cases) EXPECT_FALSE(Decode(code, 4096, &plain));
    // The output only counted must not wrap.
    uint32_t length = UINT32_MAX;
    const uint8_t twice[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 7, 7, 0xFF, 0};
    EXPECT_FALSE(storage::DecodeRuns(twice, sizeof twice, nullptr, &length));
}

}  // namespace
