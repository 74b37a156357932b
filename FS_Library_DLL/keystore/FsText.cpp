// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsText.h"

#include <cstring>

bool FsText::Grow(size_t units) {
    const size_t capacity = units + units / 2 + 1;
    WChar* grown = static_cast<WChar*>(platform::HeapAllocate(capacity * sizeof(WChar)));
    if (grown == nullptr) return false;
    std::memcpy(grown, text_, (length_ + 1) * sizeof(WChar));
    if (text_ != inline_) platform::HeapRelease(text_);
    text_ = grown;
    capacity_ = capacity;
    return true;
}

WChar* FsHeapCopy(WStringView text) {
    WChar* copy = static_cast<WChar*>(platform::HeapAllocate((text.size() + 1) * sizeof(WChar)));
    if (copy == nullptr) return nullptr;
    text.copy(copy, text.size());
    copy[text.size()] = 0;
    return copy;
}
