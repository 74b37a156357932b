// SPDX-License-Identifier: MIT
#include "storage/namespace/BlockCode.h"

#include <algorithm>

#include "storage/core/PageIo.h"
#include "storage/namespace/Stream.h"

namespace storage {

CodeFunction StorageCompressFunction = nullptr;
DecodeFunction StorageExpandFunction = nullptr;

namespace {

constexpr uint8_t kRunMark = 0xFF;
constexpr uint32_t kLongestPlainRun = 3;
constexpr uint32_t kLengthBytes = 4;  // in front of the output of StorageCompressFunction

// Output with a bound.
class Writer {
  public:
    Writer(uint8_t* bytes, uint32_t room) : bytes_(bytes), room_(room) {}
    bool Put(uint8_t byte, uint32_t count = 1) {
        if (count > room_ - used_) return false;
        // Without a buffer the output is only counted.
        if (bytes_ != nullptr) std::memset(bytes_ + used_, byte, count);
        used_ += count;
        return true;
    }
    // Base 128, low bits first, the top bit on all bytes but the last.
    bool PutNumber(uint32_t number) {
        for (; number >= 0x80; number >>= 7)
            if (!Put(static_cast<uint8_t>(number | 0x80))) return false;
        return Put(static_cast<uint8_t>(number));
    }
    uint32_t Used() const { return used_; }

  private:
    uint8_t* bytes_;
    uint32_t room_;
    uint32_t used_ = 0;
};

bool PutRun(Writer* out, uint8_t byte, uint32_t count) {
    if (byte != kRunMark && count <= kLongestPlainRun) return out->Put(byte, count);
    return out->Put(kRunMark) && out->PutNumber(count) && out->Put(byte);
}

bool TakeNumber(const uint8_t** at, const uint8_t* end, uint32_t* number) {
    uint64_t value = 0;
    for (int shift = 0; shift < 35; shift += 7) {
        if (*at == end) return false;
        const uint8_t byte = *(*at)++;
        value |= uint64_t{byte & 0x7Fu} << shift;
        if ((byte & 0x80) != 0) continue;
        *number = static_cast<uint32_t>(value);
        return value <= UINT32_MAX;
    }
    return false;
}

uint32_t InContainerOrder(const StorageContext* context, uint32_t value) {
    return context->byteSwapped ? Swap32(value) : value;
}

bool EncodeByFunction(FileBlock* block, uint32_t* length) {
    if (StorageCompressFunction == nullptr) return false;
    uint32_t coded = block->capacity + kStoredSlack - kLengthBytes;
    if (StorageCompressFunction(block->data, block->dataLength, block->stored + kLengthBytes,
                                &coded, block->object->level) != 0)
        return false;
    if (coded > block->capacity + kStoredSlack - kLengthBytes) return false;
    Store<uint32_t>(block->stored, 0, InContainerOrder(block->object->context, block->dataLength));
    *length = coded + kLengthBytes;
    return true;
}

bool DecodeByFunction(FileBlock* block) {
    uint32_t length = 0;
    if (StorageExpandFunction == nullptr ||
        DecodedLength(block->object->context, kFunctionMethod, block->stored, block->storedLength,
                      &length) != kOk ||
        length > block->capacity)
        return false;
    // The function is told the whole stored length, though its source begins behind the length
    // bytes: that is its contract. The slack of the buffer makes the bytes past the end readable.
    std::memset(block->stored + block->storedLength, 0, kStoredSlack);
    block->dataLength = length;
    return StorageExpandFunction(block->stored + kLengthBytes, block->storedLength, block->data,
                                 &block->dataLength) == 0 &&
           block->dataLength <= block->capacity;
}

bool EncodeBy(FileBlock* block, uint32_t method, uint32_t* length) {
    if (method == kFunctionMethod) return EncodeByFunction(block, length);
    if (method != kRunsMethod) return false;
    *length = block->capacity + kStoredSlack;
    return EncodeRuns(block->data, block->dataLength, block->stored, length);
}

}  // namespace

bool EncodeRuns(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                uint32_t* destinationLength) {
    Writer out(destination, *destinationLength);
    for (uint32_t at = 0; at < sourceLength;) {
        uint32_t end = at + 1;
        while (end < sourceLength && source[end] == source[at]) ++end;
        if (!PutRun(&out, source[at], end - at)) return false;
        at = end;
    }
    if (!out.Put(kRunMark) || !out.Put(0)) return false;
    *destinationLength = out.Used();
    return true;
}

bool DecodeRuns(const uint8_t* source, uint32_t sourceLength, uint8_t* destination,
                uint32_t* destinationLength) {
    Writer out(destination, *destinationLength);
    const uint8_t* const end = source + sourceLength;
    for (const uint8_t* at = source; at != end;) {
        uint8_t byte = *at++;
        uint32_t count = 1;
        if (byte == kRunMark) {
            if (!TakeNumber(&at, end, &count)) return false;
            if (count == 0) {
                *destinationLength = out.Used();
                return true;
            }
            if (at == end) return false;
            byte = *at++;
        }
        if (!out.Put(byte, count)) return false;
    }
    return false;
}

bool EncodeBlock(FileBlock* block) {
    const bool plain = (block->flags & kBlockPlainOnce) != 0 || block->dataLength == 0;
    block->flags &= ~static_cast<uint32_t>(kBlockPlainOnce);
    uint32_t length = 0;
    if (!plain && block->stored != block->data &&
        EncodeBy(block, block->object->writeMethod, &length) && length < block->dataLength) {
        block->storedLength = length;
        return true;
    }
    block->storedLength = block->dataLength;
    if (block->stored != block->data) std::memcpy(block->stored, block->data, block->dataLength);
    return false;
}

Status DecodeBlock(FileBlock* block, uint32_t method) {
    block->dataLength = block->storedLength;
    if (block->storedLength == 0) return kOk;
    switch (method) {
        case kPlainMethod:
            if (block->stored != block->data)
                std::memcpy(block->data, block->stored, block->storedLength);
            return kOk;
        case kFunctionMethod:
            return DecodeByFunction(block) ? kOk : kBadBlock;
        case kRunsMethod:
            block->dataLength = block->capacity;
            return DecodeRuns(block->stored, block->storedLength, block->data, &block->dataLength)
                       ? kOk
                       : kBadBlock;
        default:
            return kBadBlock;
    }
}

Status DecodedLength(const StorageContext* context, uint32_t method, const uint8_t* stored,
                     uint32_t length, uint32_t* decoded) {
    *decoded = length;
    if (method == kFunctionMethod) {
        if (length < kLengthBytes) return kBadBlock;
        *decoded = InContainerOrder(context, LoadU32(stored, 0));
    } else if (method == kRunsMethod) {
        *decoded = UINT32_MAX;
        if (!DecodeRuns(stored, length, nullptr, decoded)) return kBadBlock;
    }
    return kOk;
}

}  // namespace storage
