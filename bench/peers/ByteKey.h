// SPDX-License-Identifier: MIT
// Keys and values as the stores of plain bytes keep them: paths beside numbers of eight bytes, and
// values under the key's number and their name, so that those of one key stand together.
#pragma once

#include <cstring>

#include "bench/peers/Store.h"

namespace bench {

inline constexpr size_t kNumberBytes = 8, kTypeBytes = 4;

// The highest byte first, so that the order of the bytes is that of the numbers.
inline void PutNumber(std::string* bytes, Store::Handle number) {
    for (int shift = 56; shift >= 0; shift -= 8)
        bytes->push_back(static_cast<char>(number >> shift));
}

inline Store::Handle TakeNumber(std::string_view bytes) {
    Store::Handle number = 0;
    for (size_t i = 0; i < kNumberBytes; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

// `stored` is the type and the data.
inline Answer TakeValue(std::string_view stored) {
    Answer answer;
    if (stored.size() < kTypeBytes) throw std::runtime_error("a value without a type");
    std::memcpy(&answer.type, stored.data(), kTypeBytes);
    answer.data = stored.data() + kTypeBytes;
    answer.size = stored.size() - kTypeBytes;
    return answer;
}

}  // namespace bench
