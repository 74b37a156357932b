// SPDX-License-Identifier: MIT
// A hive of the offline registry functions for tests: calls that expect success, and a picture of a
// whole tree for comparisons.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "offreg/OfflineRegistry.h"
#include "tests/support/TempDir.h"

namespace offline_test {

using platform::WChar;
using platform::WString;
using support::Bytes;

inline Bytes TextBytes(const WString& text) {
    const auto* start = reinterpret_cast<const uint8_t*>(text.c_str());
    return Bytes(start, start + (text.size() + 1) * sizeof(WChar));
}

// Bytes in which a shifted, cut or repeated piece shows.
inline Bytes Pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251 + i / 65521);
    return bytes;
}

class TestHive {
  public:
    TestHive() { EXPECT_EQ(ORCreateHive(&root_), 0u); }
    explicit TestHive(const WString& path) { EXPECT_EQ(OROpenHive(path.c_str(), &root_), 0u); }
    ~TestHive() {
        if (root_ != nullptr) {
            EXPECT_EQ(ORCloseHive(root_), 0u);
        }
    }
    TestHive(const TestHive&) = delete;
    TestHive& operator=(const TestHive&) = delete;

    ORHKEY Root() const { return root_; }
    // Handles that the hive closes with itself.
    ORHKEY Create(const WString& path, const WChar* className = nullptr) {
        return CreateBelow(root_, path, className);
    }
    ORHKEY CreateBelow(ORHKEY parent, const WString& path, const WChar* className = nullptr) {
        ORHKEY key = nullptr;
        EXPECT_EQ(ORCreateKey(parent, path.c_str(), className, 0, nullptr, &key, nullptr), 0u);
        return key;
    }
    ORHKEY Open(const WString& path) {
        ORHKEY key = nullptr;
        EXPECT_EQ(OROpenKey(root_, path.c_str(), &key), 0u);
        return key;
    }
    void Set(ORHKEY key, const WString& name, uint32_t type, const Bytes& data) {
        EXPECT_EQ(
            ORSetValue(key, name.c_str(), type, data.data(), static_cast<uint32_t>(data.size())),
            0u);
    }
    Bytes Get(ORHKEY key, const WString& name, uint32_t* type = nullptr) {
        uint32_t size = 0;
        EXPECT_EQ(ORGetValue(key, nullptr, name.c_str(), type, nullptr, &size), 0u);
        Bytes data(size);
        EXPECT_EQ(ORGetValue(key, nullptr, name.c_str(), type, data.data(), &size), 0u);
        return data;
    }
    void Save(const WString& path) { EXPECT_EQ(ORSaveHive(root_, path.c_str(), 6, 1), 0u); }

  private:
    ORHKEY root_ = nullptr;
};

// One key or value of a tree.
struct Item {
    WString path;  // the key's; a value adds a colon and its name
    uint32_t type = 0;
    Bytes data;  // a key's class, a value's data

    bool operator==(const Item&) const = default;
};

// Everything below `key`, depth first.
inline void Picture(ORHKEY key, const WString& path, std::vector<Item>* items) {
    std::vector<WChar> name(20000);
    WChar className[256];
    uint32_t classUnits = 256;
    EXPECT_EQ(ORQueryInfoKey(key, className, &classUnits, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr),
              0u);
    items->push_back({path, 0, TextBytes(WString(className, classUnits))});
    for (uint32_t i = 0;; ++i) {
        Item item;
        auto units = static_cast<uint32_t>(name.size());
        uint32_t size = 0;
        if (OREnumValue(key, i, name.data(), &units, &item.type, nullptr, &size) != 0) break;
        item.path = path + WTEXT(":") + WString(name.data(), units);
        item.data.resize(size);
        units = static_cast<uint32_t>(name.size());
        EXPECT_EQ(OREnumValue(key, i, name.data(), &units, nullptr, item.data.data(), &size), 0u);
        items->push_back(std::move(item));
    }
    for (uint32_t i = 0;; ++i) {
        auto units = static_cast<uint32_t>(name.size());
        if (OREnumKey(key, i, name.data(), &units, nullptr, nullptr, nullptr) != 0) break;
        ORHKEY child = nullptr;
        ASSERT_EQ(OROpenKey(key, name.data(), &child), 0u);
        Picture(child, path + WTEXT("\\") + WString(name.data(), units), items);
        ORCloseKey(child);
    }
}
inline std::vector<Item> Picture(const TestHive& hive) {
    std::vector<Item> items;
    Picture(hive.Root(), WTEXT(""), &items);
    return items;
}

}  // namespace offline_test
