// SPDX-License-Identifier: MIT
// Any bytes as a coded block: decoded as the plain reading of the format has it, within the room
// there is; and any bytes come back from their own code. The first two bytes are the room.
#include <memory>

#include "fuzz/Require.h"
#include "storage/namespace/Stream.h"
#include "tests/support/ContainerBytes.h"

namespace {

using fuzz::Require;
using support::Bytes;

// A buffer of exactly `room` bytes, so that the sanitizer sees every byte too many.
bool Decode(const Bytes& code, uint32_t room, Bytes* plain) {
    const std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    uint32_t length = room;
    if (!storage::DecodeRuns(code.data(), static_cast<uint32_t>(code.size()), out.get(), &length))
        return false;
    Require(length <= room, "more than the room was filled");
    plain->assign(out.get(), out.get() + length);
    return true;
}

void DecodeAny(const Bytes& code, uint32_t room) {
    uint32_t needed = 1 << 20;  // what the second reading is asked to hold in memory
    const bool counted =
        storage::DecodeRuns(code.data(), static_cast<uint32_t>(code.size()), nullptr, &needed);
    Bytes plain, expected;
    const bool decoded = Decode(code, room, &plain);
    if (decoded) Require(counted && needed == plain.size(), "the length was counted wrong");
    if (!counted) return;
    Require(decoded == (needed <= room), "room decides whether a code can be decoded");
    Require(support::container::DecodeRunLengths(code, &expected) && expected.size() == needed,
            "the plain reading says otherwise");
    if (decoded) Require(plain == expected, "the plain reading has other bytes");
}

void CodeAndBack(const Bytes& plain) {
    Bytes code(plain.size() * 3 + 2);
    uint32_t length = static_cast<uint32_t>(code.size());
    Require(storage::EncodeRuns(plain.data(), static_cast<uint32_t>(plain.size()), code.data(),
                                &length),
            "three bytes for each and two are room enough");
    code.resize(length);
    Require(code == support::container::EncodeRunLengths(plain), "another code was expected");
    Bytes back;
    Require(Decode(code, static_cast<uint32_t>(plain.size()), &back) && back == plain,
            "the bytes did not come back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const Bytes bytes(data + 2, data + size);
    DecodeAny(bytes, support::container::Get16(data, 0));
    CodeAndBack(bytes);
    return 0;
}
