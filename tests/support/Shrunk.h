// SPDX-License-Identifier: MIT
// A failing run of random steps, cut down to those that matter.
#pragma once

#include <cstddef>
#include <utility>

namespace support {

// `items` without those without which it fails all the same: halves first, then ever smaller parts.
template <class Items, class Fails>
Items Shrunk(Items items, Fails fails) {
    for (size_t piece = items.size() / 2; piece > 0; piece /= 2)
        for (size_t at = 0; at + piece <= items.size();) {
            Items fewer = items;
            const auto from = fewer.begin() + static_cast<ptrdiff_t>(at);
            fewer.erase(from, from + static_cast<ptrdiff_t>(piece));
            if (fails(fewer))
                items = std::move(fewer);
            else
                at += piece;
        }
    return items;
}

}  // namespace support
