// SPDX-License-Identifier: MIT
// Text of the process heap, as the interface gives it to callers.
#pragma once

#include "platform/Heap.h"
#include "platform/Text.h"

// Owns such a text; `text` is what an operation fills.
class HeapString {
  public:
    HeapString() = default;
    ~HeapString() { platform::HeapRelease(text); }
    HeapString(const HeapString&) = delete;
    HeapString& operator=(const HeapString&) = delete;

    // Gives the text held back and takes another, which may be null.
    void Reset(platform::WChar* other = nullptr) {
        platform::HeapRelease(text);
        text = other;
    }

    platform::WChar* text = nullptr;
};
