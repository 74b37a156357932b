// SPDX-License-Identifier: MIT
// Text that is built on the stack while it is short: paths, stored names, patterns.
#pragma once

#include "FS_Library_DLL/HeapString.h"
#include "platform/Heap.h"
#include "platform/Text.h"

using platform::WChar;
using platform::WString;
using platform::WStringView;

// Zero-terminated text of its own. The first kInlineUnits units need no memory; more come from the
// process heap. An operation that finds no memory answers false and changes nothing.
class FsText {
  public:
    static constexpr size_t kInlineUnits = 512;

    FsText() { inline_[0] = 0; }
    ~FsText() {
        if (text_ != inline_) platform::HeapRelease(text_);
    }
    FsText(const FsText&) = delete;
    FsText& operator=(const FsText&) = delete;

    const WChar* Text() const { return text_; }
    WChar* Data() { return text_; }
    size_t Length() const { return length_; }
    WStringView View() const { return {text_, length_}; }

    // Room for `units` units and the terminator.
    bool Reserve(size_t units) { return units < capacity_ || Grow(units); }
    bool Append(WStringView more) {
        if (!Reserve(length_ + more.size())) return false;
        more.copy(text_ + length_, more.size());
        Truncate(length_ + more.size());
        return true;
    }
    bool Assign(WStringView text) {
        if (!Reserve(text.size())) return false;
        length_ = 0;
        return Append(text);
    }
    // Ends the text at `length`, which the caller has filled or which is behind that.
    void Truncate(size_t length) {
        length_ = length;
        text_[length] = 0;
    }

  private:
    bool Grow(size_t units);

    WChar* text_ = inline_;
    size_t length_ = 0;
    size_t capacity_ = kInlineUnits;  // the terminator included
    WChar inline_[kInlineUnits];
};

// A copy on the process heap, zero-terminated; null when there is no memory.
WChar* FsHeapCopy(WStringView text);
