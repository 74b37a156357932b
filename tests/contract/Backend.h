// SPDX-License-Identifier: MIT
// The kinds of stores that the contract's tests run against, and where they differ by design.
#pragma once

#include <filesystem>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "include/ZrFsLibrary.h"
#include "platform/Text.h"

namespace contract {

using platform::WString;

// Where one store lies, gone with the object. It may be opened and closed any number of times.
class Place {
  public:
    virtual ~Place() = default;
    // The path string and the method for FBR_InitialiseEx.
    virtual WString Path() const = 0;
    virtual FBR_METHOD Method() const = 0;
    // Called after each opening and before each closing, for what the test system does not do by
    // itself.
    virtual void Opened(FBR_STORE) {}
    virtual void Closing(FBR_STORE) {}
    // What others see of it. The file, where the store is one; what has a name beside it (of the
    // live registry, below it), or itself; and what they can do to it.
    virtual std::filesystem::path File() const { return {}; }
    virtual bool There(const std::string& name) const {
        return std::filesystem::exists(name.empty() ? File() : File().parent_path() / name);
    }
    virtual void Drop() { std::filesystem::remove_all(File()); }
    // Takes native functions away, by their names, after those that were taken before are back.
    // Where statuses follow, in hexadecimal, they answer these in turn and are then back.
    virtual void Take(const std::vector<std::string>&) {}
};

struct Backend {
    // The kind's name in failures.
    friend void PrintTo(const Backend& backend, std::ostream* out) { *out << backend.name; }
    bool Is(const std::string& trait) const { return traits.contains(trait); }

    std::string name;
    std::unique_ptr<Place> (*makePlace)();
    // What it is: "container", "offline", "cluster", "registry", "hive", "live", "byPath", and
    // "near" or "remote", "far" where a call takes its time, and "apart" where its provider is a
    // library with a log of its own; and what is allowed to differ, by the words of
    // docs/backends.md.
    std::set<std::string> traits;
    // Threads of its own may meet at locks of the run-time library, which then open something
    // for good.
    bool leavesNoHandle = true;
};

// What a test must leave as it found it, as text: the number of open handles and, where there are
// such things, the thread's token and the privileges that are on.
std::string ProcessState();

// The kinds that this system has. A new one needs an entry there and nothing else.
const std::vector<Backend>& AllBackends();

}  // namespace contract
