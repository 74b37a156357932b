// Containers made by the builder, damaged, and given to check and repair.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/container/Promise.h"
#include "tests/container/Shapes.h"

namespace check {

using storage::Status;
using support::Bytes;
namespace container = support::container;
using Outcome = container::CheckOutcome;

// The same but for the counter that tells others of a change.
inline bool SameButCounter(Bytes a, Bytes b, uint32_t pageSize = 512) {
    for (Bytes* bytes : {&a, &b}) container::Put32(bytes->data() + pageSize, 156, 0);
    return a == b;
}

class Patient {
  public:
    explicit Patient(const Bytes& bytes) { support::WriteBytes(path_, bytes); }

    Outcome Run(uint32_t flags, uint32_t cancelAtCode = 0) {
        return container::CheckContainer(path_, flags, cancelAtCode);
    }
    Outcome Check() { return Run(container::kDeepCheck); }
    Outcome Repair() { return Run(container::kRepair); }
    Bytes Contents() { return support::ReadBytes(path_); }
    const std::filesystem::path& Path() const { return path_; }
    const support::TempDir& Dir() const { return dir_; }
    container::Reading Read() { return container::ReadContainer(Contents()); }

    void ExpectMended() {
        for (const std::string& broken :
             container::BrokenPromises(path_, [this] { return Contents(); }))
            ADD_FAILURE() << broken;
    }

  private:
    support::TempDir dir_;
    const std::filesystem::path path_ = dir_ / "c.dat";
};

}  // namespace check
