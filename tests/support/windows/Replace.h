// SPDX-License-Identifier: MIT
// Puts single platform functions in place for the time of a scope.
#pragma once

#include <memory>
#include <utility>

#include "FS_Library_DLL/registry/NtDllFunctions.h"
#include "Shared/services/ServicesCollection.h"

namespace support {

// One entry of the table of native functions.
template <class Function>
class ReplacedEntry {
  public:
    ReplacedEntry(Function NtDllFunctions::*entry, Function other)
        : entry_(entry), before_(std::exchange(GetNtDllFunctions()->*entry, other)) {}
    ~ReplacedEntry() { GetNtDllFunctions()->*entry_ = before_; }
    ReplacedEntry(const ReplacedEntry&) = delete;
    ReplacedEntry& operator=(const ReplacedEntry&) = delete;

  private:
    Function NtDllFunctions::*entry_;
    Function before_;
};

// One of the interfaces of the platform.
template <class Interface>
class ReplacedInterface {
  public:
    explicit ReplacedInterface(std::shared_ptr<Interface> other)
        : before_(Services::ServicesCollection::Instance()->Replace(std::move(other))) {}
    ~ReplacedInterface() { Services::ServicesCollection::Instance()->Replace(before_); }
    ReplacedInterface(const ReplacedInterface&) = delete;
    ReplacedInterface& operator=(const ReplacedInterface&) = delete;

  private:
    std::shared_ptr<Interface> before_;
};

}  // namespace support
