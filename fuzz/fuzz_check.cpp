// SPDX-License-Identifier: MIT
// Any bytes as a container: checked, repaired, and held to what a repair promises.
#include "fuzz/ContainerInput.h"

using fuzz::Bytes;
using fuzz::Require;
namespace container = support::container;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::ContainerInput input(Bytes(data, data + size));
    const storage::Status checked = input.Check(container::kDeepCheck).status;
    Require(input.Contents() == Bytes(data, data + size), "a check writes nothing");
    const storage::Status repaired = input.Check(container::kRepair).status;
    // A log that is pending may be any nonsense, which a repair refuses.
    if (repaired == storage::kCorrupt) return 0;
    Require(checked == storage::kOk || checked == storage::kNotContainer, "status of a check");
    // One that is replayed may have taken the root away, which a check sees from then on.
    Require(repaired == checked || repaired == input.Check(container::kDeepCheck).status,
            "a repair ends as the check did");
    if (repaired == storage::kOk) input.RequirePromise();
    return 0;
}
