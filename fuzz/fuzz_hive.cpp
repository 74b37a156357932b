// SPDX-License-Identifier: MIT
// Any bytes as a hive: what is read is walked, written, and must come back the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Shared/security/SecurityText.h"
#include "offreg/HiveFormat.h"
#include "offreg/HiveReader.h"
#include "offreg/HiveWriter.h"

namespace {

using namespace offreg;

void Require(bool holds) {
    if (!holds) std::abort();
}

// The sum of the base block is made right, or nearly every input would end there.
Bytes Sealed(const uint8_t* data, size_t size) {
    Bytes file(data, data + size);
    if (size >= format::kBlockSize) {
        format::Store(file.data() + format::base::kChecksum, format::Checksum(file.data()));
    }
    return file;
}

void UseSecurity(const Key& key) {
    if (key.security == nullptr) return;
    platform::WString text;
    security::Bytes parsed;
    if (security::FormatSecurityText(*key.security->descriptor, 0x1F, &text) == 0) {
        Require(security::ParseSecurityText(text.c_str(), &parsed) == 0);
    }
}

// Number of keys and values. Every key must be found by its name.
size_t Walk(Hive& hive) {
    size_t count = 0;
    std::vector<Key*> pending = {&hive.Root()};
    while (!pending.empty()) {
        Key& key = *pending.back();
        pending.pop_back();
        count += 1 + key.values.Count();
        UseSecurity(key);
        for (size_t i = 0; i < key.values.Count(); ++i) {
            Require(key.values.Find(key.values.At(i)->name) != nullptr);
        }
        for (size_t i = 0; i < key.subkeys.Count(); ++i) {
            Key* subkey = key.subkeys.At(i);
            Require(key.subkeys.Find(subkey->name) != nullptr);
            pending.push_back(subkey);
        }
    }
    return count;
}

// Takes the tree away from its leaves up.
void Demolish(Hive& hive) {
    std::vector<Key*> way = {&hive.Root()};
    while (!way.empty()) {
        Key& key = *way.back();
        if (key.subkeys.Count() != 0) {
            way.push_back(key.subkeys.At(0));
            continue;
        }
        way.pop_back();
        while (key.values.Count() != 0) key.values.Remove(key.values.At(0));
        if (key.parent != nullptr) hive.RemoveKey(key);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Bytes file = Sealed(data, size);
    Hive hive;
    if (ReadHive(file.data(), file.size(), hive) != 0) return 0;
    const size_t count = Walk(hive);
    Bytes written;
    Require(WriteHive(hive, 1, WTEXT("fuzz"), &written) == 0);
    Hive again;
    LeftOut leftOut;
    Require(ReadHive(written.data(), written.size(), again, &leftOut) == 0 && leftOut.count == 0);
    Require(Walk(again) == count);
    Demolish(hive);
    return 0;
}
