// SPDX-License-Identifier: MIT
#include "tests/support/FileWrapper.h"

#include <algorithm>
#include <vector>

namespace support {
namespace {

std::vector<FileWrapper*>& Scopes() {
    static std::vector<FileWrapper*> scopes;
    return scopes;
}

platform::PageFile* WrapInAll(platform::PageFile* opened, const platform::WChar* path) {
    for (FileWrapper* scope : Scopes()) opened = scope->Wrap(opened, path);
    return opened;
}

}  // namespace

FileWrapper::FileWrapper() {
    Scopes().push_back(this);
    platform::SetPageFileWrapper(WrapInAll);
}

FileWrapper::~FileWrapper() {
    Scopes().erase(std::find(Scopes().begin(), Scopes().end(), this));
    if (Scopes().empty()) platform::SetPageFileWrapper(nullptr);
}

}  // namespace support
