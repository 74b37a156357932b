// SPDX-License-Identifier: MIT
// Fields of the remote protocol's payloads, written and read. Little-endian, nothing aligned.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/Text.h"

namespace ipc {

// The requests; the reply to each has the next code.
enum class Request : uint32_t {
    InitialiseEx = 0,
    DeInitialiseEx,
    CheckFile,
    IsCorrupted,
    Compact,
    DeleteValue,
    SetValue,
    QueryValue,
    CreateDirEx,
    OpenDirEx,
    DeleteDirEx,
    DeleteDirNamedEx,
    RenameDirEx,
    CloseDirEx,
    EnumIntFileEx,
    EnumIntDirEx,
    GetName_DirEx,
    GetFullName_DirEx,
    DuplicateDirHandleEx,
    GetDirTimesEx,
    EnumerateAllValues,
    EnumerateAllKeys,
};
inline constexpr uint32_t kRequestCount = 22;

inline constexpr uint32_t kPacketMagic = 42;
inline constexpr uint32_t kPacketHeaderSize = 8;  // u32 magic, u32 total size
// The largest packet either side takes, header included, and what of it is payload.
inline constexpr uint32_t kLargestPacket = 64u << 20;
inline constexpr uint32_t kLargestPayload = kLargestPacket - kPacketHeaderSize;

// Builds a payload. May throw std::bad_alloc.
class WireWriter {
  public:
    explicit WireWriter(uint32_t code) { U32(code); }

    WireWriter& U16(uint16_t value) { return Number(value, 2); }
    WireWriter& U32(uint32_t value) { return Number(value, 4); }
    WireWriter& U64(uint64_t value) { return Number(value, 8); }
    WireWriter& Bytes(const void* data, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        payload_.insert(payload_.end(), bytes, bytes + size);
        return *this;
    }
    // The byte count, terminator included, then the text with its terminator.
    WireWriter& String(platform::WStringView text) {
        U32(static_cast<uint32_t>((text.size() + 1) * 2));
        for (const platform::WChar unit : text) U16(unit);
        return U16(0);
    }
    std::vector<uint8_t>& Payload() { return payload_; }

  private:
    WireWriter& Number(uint64_t value, int size) {
        for (int i = 0; i < size; ++i) payload_.push_back(static_cast<uint8_t>(value >> 8 * i));
        return *this;
    }
    std::vector<uint8_t> payload_;
};

// Reads a payload front to back. Once a field does not fit, Good is false and stays so, and every
// further field reads as zero or empty.
class WireReader {
  public:
    explicit WireReader(std::span<const uint8_t> payload) : rest_(payload) {}

    bool Good() const { return good_; }
    // Nothing is left, and everything fitted.
    bool AtEnd() const { return good_ && rest_.empty(); }
    size_t Left() const { return rest_.size(); }

    uint16_t U16() { return static_cast<uint16_t>(Number(2)); }
    uint32_t U32() { return static_cast<uint32_t>(Number(4)); }
    uint64_t U64() { return Number(8); }
    std::span<const uint8_t> Bytes(size_t size) {
        if (size > rest_.size()) {
            good_ = false;
            rest_ = {};
            return {};
        }
        const auto bytes = rest_.first(size);
        rest_ = rest_.subspan(size);
        return bytes;
    }
    // The text up to its first zero; one must stand within the byte count.
    platform::WString String() {
        const auto bytes = Bytes(U32());
        platform::WString text;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
            const auto unit = static_cast<platform::WChar>(bytes[i] | bytes[i + 1] << 8);
            if (unit == 0) return text;
            text.push_back(unit);
        }
        good_ = false;
        return {};
    }

  private:
    uint64_t Number(size_t size) {
        uint64_t value = 0;
        const auto bytes = Bytes(size);
        for (size_t i = 0; i < bytes.size(); ++i) value |= uint64_t{bytes[i]} << 8 * i;
        return value;
    }
    std::span<const uint8_t> rest_;
    bool good_ = true;
};

}  // namespace ipc
