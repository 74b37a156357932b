#include "tests/sharing/SealedValue.h"

#include "tests/support/ContainerBytes.h"

namespace sharing {
namespace {

using support::container::Get32;
using support::container::Put32;

constexpr uint32_t kMagic = 0x5EA1DA7A;

uint32_t Hash(const uint8_t* bytes, size_t size, uint32_t hash = 0x811C9DC5) {
    for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 0x01000193;
    return hash;
}
uint32_t Hash(const std::string& text) {
    return Hash(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

// Fields: mark, key, name, writer, number, size, check sum over the rest, and over these six.
uint32_t SumOf(const Bytes& data) {
    return Hash(data.data(), 24, Hash(data.data() + 28, data.size() - 28));
}

}  // namespace

Bytes Sealed(const std::string& key, const std::string& name, Seal seal, uint32_t size) {
    Bytes data(std::max(size, kSealBytes));
    uint32_t state = Hash(key) ^ Hash(name) ^ seal.writer * 0x9E3779B9u ^ seal.sequence;
    for (size_t i = 28; i < data.size(); ++i) {
        state = state * 1664525 + 1013904223;
        data[i] = static_cast<uint8_t>(state >> 24);
    }
    const uint32_t fields[] = {kMagic,      Hash(key),     Hash(name),
                               seal.writer, seal.sequence, static_cast<uint32_t>(data.size())};
    for (size_t i = 0; i < std::size(fields); ++i) Put32(data.data(), 4 * i, fields[i]);
    Put32(data.data(), 24, SumOf(data));
    return data;
}

std::optional<Seal> ReadSeal(const Bytes& data, const std::string& key, const std::string& name,
                             std::string* wrong) {
    const auto bad = [&](const std::string& what) {
        *wrong = key + " " + name + ": " + what;
        return std::nullopt;
    };
    if (data.empty()) return bad("empty");
    if (data.size() < kSealBytes || Get32(data.data(), 0) != kMagic) return bad("no seal");
    if (Get32(data.data(), 4) != Hash(key)) return bad("of another key");
    if (Get32(data.data(), 8) != Hash(name)) return bad("of another name");
    if (Get32(data.data(), 20) != data.size()) return bad("of another size");
    if (Get32(data.data(), 24) != SumOf(data)) return bad("mixed");
    return Seal{Get32(data.data(), 12), Get32(data.data(), 16)};
}

}  // namespace sharing
