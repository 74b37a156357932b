// SPDX-License-Identifier: MIT
#include "platform/RootFolder.h"

#include "platform/ThreadSlot.h"

namespace platform {
namespace {

ThreadSlot g_root;

}  // namespace

WithinRoot::WithinRoot(const RootFolder* root) noexcept : before_(CurrentRoot()) {
    g_root.Set(reinterpret_cast<uintptr_t>(root));
}

WithinRoot::~WithinRoot() {
    g_root.Set(reinterpret_cast<uintptr_t>(before_));
}

const RootFolder* CurrentRoot() noexcept {
    return reinterpret_cast<const RootFolder*>(g_root.Get());
}

}  // namespace platform
