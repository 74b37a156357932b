// SPDX-License-Identifier: MIT
// What calls of the native functions are built from: counted names and buffers for answers.
#pragma once

#include <cstdint>
#include <cstring>

#include "FS_Library_DLL/registry/NtDllFunctions.h"
#include "platform/Heap.h"

namespace nt {

// A counted string over a name that ends in a zero, which must outlive it.
class Name {
  public:
    Name(const NtDllFunctions& ntDll, const wchar_t* text) {
        if (ntDll.RtlInitUnicodeString != nullptr) ntDll.RtlInitUnicodeString(&text_, text);
    }
    PUNICODE_STRING Get() { return &text_; }

  private:
    UNICODE_STRING text_{};
};

// The name of an object, absolute or relative to an open one, for the calls that open objects.
class ObjectName {
  public:
    ObjectName(const NtDllFunctions& ntDll, const wchar_t* text, HANDLE root) : name_(ntDll, text) {
        attributes_.Length = sizeof attributes_;
        attributes_.RootDirectory = root;
        attributes_.ObjectName = name_.Get();
        attributes_.Attributes = OBJ_CASE_INSENSITIVE;
    }
    ObjectName(const ObjectName&) = delete;
    ObjectName& operator=(const ObjectName&) = delete;
    POBJECT_ATTRIBUTES Get() { return &attributes_; }

  private:
    Name name_;
    OBJECT_ATTRIBUTES attributes_{};
};

// A zeroed buffer for one answer; small ones lie in the object itself.
class Buffer {
  public:
    Buffer() = default;
    ~Buffer() { platform::HeapRelease(large_); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    // Makes the buffer `bytes` long and zero. False when there is no memory.
    bool Reset(uint32_t bytes) {
        platform::HeapRelease(large_);
        large_ = nullptr;
        size_ = 0;
        if (bytes > sizeof inline_) {
            large_ = platform::HeapAllocateZeroed(bytes);
            if (large_ == nullptr) return false;
        } else {
            std::memset(inline_, 0, bytes);
        }
        size_ = bytes;
        return true;
    }

    void* Data() { return large_ != nullptr ? large_ : inline_; }
    uint32_t Size() const { return size_; }

    // `bytes` bytes at `offset`; null where the buffer does not hold them.
    const uint8_t* At(uint32_t offset, uint32_t bytes) {
        if (offset > size_ || bytes > size_ - offset) return nullptr;
        return static_cast<const uint8_t*>(Data()) + offset;
    }
    // The number at `offset`, 0 where the buffer does not hold it.
    template <class T>
    T Number(uint32_t offset) {
        T value = 0;
        if (const uint8_t* from = At(offset, sizeof value)) std::memcpy(&value, from, sizeof value);
        return value;
    }

  private:
    alignas(16) uint8_t inline_[512];
    void* large_ = nullptr;
    uint32_t size_ = 0;
};

}  // namespace nt
