// SPDX-License-Identifier: MIT
// What a repair promises of any container: that it is sound from then on, by the engine's own
// judgement, and of use.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/container/EngineStore.h"
#include "tests/support/MemoryFiles.h"

namespace support::container {

// What one run of check and repair told.
struct CheckOutcome {
    struct Event {
        uint32_t code, a, b;
        uint8_t clean;
    };
    storage::Status status = 0;
    std::vector<Event> events;
    std::u16string name;  // given with the last bad entry

    // The pages told of with a code, rising.
    std::vector<uint32_t> Pages(uint32_t code) const;
    bool FoundNothing() const { return Pages(8).empty() && Pages(9).empty() && Pages(15).empty(); }
    // Pages that nothing refers to, with what is wrong about them, and nothing else: all that a
    // kill or a failure may leave.
    bool FoundOnlyLostPages() const;
    std::string Findings() const;
};

inline constexpr uint32_t kDeepCheck = 3, kRepair = 2;
// `cancelAtCode`, when not 0, is the callback code at which the run is cancelled.
CheckOutcome CheckContainer(const std::filesystem::path& path, uint32_t flags,
                            uint32_t cancelAtCode = 0);

// The container's bytes without the counter that tells others of a change.
Bytes WithoutCounter(Bytes bytes);

// The tree of the container at `path`, which holds `bytes`. All of it is to agree.
Reading ReadSound(const std::filesystem::path& path, const Bytes& bytes);

// All that can be done with a container made of the rich tree, whatever became of it; the statuses
// do not matter.
void Exercise(const std::filesystem::path& path);

// Opens the container, reads all of it, writes to it and checks it again. Every sentence is
// something that did not go as it must; empty when all did.
std::vector<std::string> UseContainer(const std::filesystem::path& path);

// Of a container just repaired with status 0: a check and a second repair find nothing and change
// no byte but the transaction counter, and it can be used. `contents` gives the file's bytes.
std::vector<std::string> BrokenPromises(const std::filesystem::path& path,
                                        const std::function<Bytes()>& contents);

// A container in files of memory, and the log beside it if there is one.
class MemoryContainer {
  public:
    const std::filesystem::path& Path() const { return path_; }
    const std::filesystem::path& LogPath() const { return log_; }
    MemoryFiles& Files() { return memory_; }
    void Put(const Bytes& bytes, const Bytes& log = {});
    Bytes Get() const { return memory_.Get(path_); }
    Bytes Log() const { return memory_.Get(log_); }
    CheckOutcome Check(uint32_t flags = kDeepCheck, uint32_t cancelAtCode = 0) const {
        return CheckContainer(path_, flags, cancelAtCode);
    }
    Reading ReadSound() const { return container::ReadSound(path_, Get()); }
    // All that can be done with it ends after work that its page count bounds.
    void ExpectBoundedWork(uint32_t pageSize);
    // A repair that is over has kept its promises.
    void ExpectPromisesKept() const;

  private:
    TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat", log_ = dir_ / "c.log";
    MemoryFiles memory_;
};

}  // namespace support::container
