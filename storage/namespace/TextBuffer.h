// SPDX-License-Identifier: MIT
// Text that keeps its room from one use to the next.
#pragma once

#include <cstring>

#include "storage/namespace/FileObject.h"

namespace storage {

inline platform::WStringView TextOf(const TextBuffer& buffer) {
    return {buffer.text, buffer.units};
}

// Makes room for `units` and a terminator; the content is undefined afterwards. False when there
// is no memory: nothing has changed then.
inline bool ReserveText(TextBuffer* buffer, size_t units) {
    if (units < buffer->room) return true;
    if (units >= UINT32_MAX / 2) return false;
    const uint32_t room = static_cast<uint32_t>(units) + 1 + static_cast<uint32_t>(units / 4);
    WChar* text = static_cast<WChar*>(platform::HeapAllocate(size_t{room} * sizeof(WChar)));
    if (text == nullptr) return false;
    platform::HeapRelease(buffer->text);
    buffer->text = text;
    buffer->room = room;
    return true;
}

// Two parts, one behind the other.
inline bool AssignText(TextBuffer* buffer, platform::WStringView first,
                       platform::WStringView second = {}) {
    const size_t units = first.size() + second.size();
    if (!ReserveText(buffer, units)) return false;
    if (!first.empty()) std::memcpy(buffer->text, first.data(), first.size() * sizeof(WChar));
    if (!second.empty())
        std::memcpy(buffer->text + first.size(), second.data(), second.size() * sizeof(WChar));
    buffer->text[units] = 0;
    buffer->units = static_cast<uint32_t>(units);
    return true;
}

inline void ReleaseText(TextBuffer* buffer) {
    platform::HeapRelease(buffer->text);
    *buffer = TextBuffer{};
}

}  // namespace storage
