#include "platform/RootFolder.h"

namespace platform {
namespace {

thread_local const RootFolder* t_root = nullptr;

}  // namespace

WithinRoot::WithinRoot(const RootFolder* root) noexcept : before_(t_root) {
    t_root = root;
}

WithinRoot::~WithinRoot() {
    t_root = before_;
}

const RootFolder* CurrentRoot() noexcept {
    return t_root;
}

}  // namespace platform
