// SPDX-License-Identifier: MIT
#include "bench/Content.h"

namespace bench {

namespace {

using Dice = std::mt19937;

uint32_t Between(Dice& dice, uint32_t low, uint32_t high) {
    return low + static_cast<uint32_t>(dice() % (high - low + 1));
}

std::vector<uint8_t> RandomBytes(Dice& dice, uint32_t size) {
    std::vector<uint8_t> bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(dice());
    return bytes;
}

std::vector<uint8_t> RandomString(Dice& dice) {
    std::vector<uint8_t> bytes;
    for (uint32_t units = Between(dice, 8, 60); units > 0; --units) {
        bytes.push_back(static_cast<uint8_t>(Between(dice, 'a', 'z')));
        bytes.push_back(0);
    }
    bytes.insert(bytes.end(), 2, 0);
    return bytes;
}

ValueData MakeValue(Dice& dice, uint32_t number) {
    constexpr uint32_t kString = 1, kBinary = 3, kNumber = 4;
    ValueData value;
    value.plainName = "Value " + std::to_string(number);
    value.name = ToText(value.plainName);
    const uint32_t share = Between(dice, 0, 99);
    if (share < 60) {
        value.type = kString;
        value.data = RandomString(dice);
    } else if (share < 85) {
        value.type = kNumber;
        value.data = RandomBytes(dice, 4);
    } else {
        value.type = kBinary;
        value.data =
            RandomBytes(dice, share < 95 ? Between(dice, 16, 256) : Between(dice, 1024, 8192));
    }
    return value;
}

}  // namespace

Text ToText(const std::string& ascii) {
    return Text(ascii.begin(), ascii.end());
}

KeyData MakeKey(Dice& dice, const std::string& path, bool leaf, uint32_t values) {
    KeyData key{ToText(path), path, leaf, {}};
    for (uint32_t i = 0; i < values; ++i) key.values.push_back(MakeValue(dice, i));
    return key;
}

std::vector<KeyData> MakeContent(uint32_t keys) {
    constexpr uint32_t kMiddles = 9, kLeaves = 10;
    Dice dice(20);
    std::vector<KeyData> content;
    const auto add = [&](const std::string& path, bool leaf) {
        if (content.size() < keys) content.push_back(MakeKey(dice, path, leaf, kValuesPerKey));
    };
    for (uint32_t top = 0; content.size() < keys; ++top) {
        const std::string topPath = "\\Vendor " + std::to_string(top);
        add(topPath, false);
        for (uint32_t middle = 0; middle < kMiddles; ++middle) {
            const std::string path = topPath + "\\Product " + std::to_string(middle);
            add(path, false);
            for (uint32_t leaf = 0; leaf < kLeaves; ++leaf)
                add(path + "\\Settings " + std::to_string(leaf), true);
        }
    }
    return content;
}

}  // namespace bench
