// SPDX-License-Identifier: MIT
// Any bytes as a container with a pending log: opened, which replays it, and in a second copy
// repaired. The last byte picks the form of the log; for one in a file of its own, the two before
// it tell where in the input that file begins, in units of 64 bytes.
#include <algorithm>

#include "fuzz/ContainerInput.h"
#include "storage/core/Format.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;
namespace container = support::container;

enum class Form { Beside, InFile, Chained };
constexpr size_t kTail = 3, kUnit = 64;

// Makes the log one that is looked for.
void SetPending(Bytes* bytes, Form form) {
    if (bytes->size() < 4) return;
    const bool foreign = (*bytes)[0] == 0;
    const uint32_t exponent = (*bytes)[0] + (*bytes)[1];
    const size_t at = size_t{1} << (exponent & 31);
    if (exponent < 8 || exponent > 16 || bytes->size() < 2 * at) return;
    uint8_t* super = bytes->data() + at;
    container::Put16(super, offsetof(storage::Superblock, logPending), 0x101);
    container::Put16(super, offsetof(storage::Superblock, inFileLog), form == Form::InFile ? 1 : 0);
    const uint32_t flags = form == Form::Chained ? 2 : 0;
    container::Put32(super, offsetof(storage::Superblock, flags), foreign ? flags << 24 : flags);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kTail) return 0;
    const uint8_t* end = data + size - kTail;
    const Form form = static_cast<Form>(end[2] % 3);
    const size_t body = size - kTail;
    const size_t split =
        form == Form::Beside ? std::min(body, container::Get16(end, 0) * kUnit) : body;
    Bytes file(data, data + split);
    const Bytes log(data + split, end);
    SetPending(&file, form);
    {
        fuzz::ContainerInput opened(file, log);
        opened.UseBlindly();
    }
    fuzz::ContainerInput repaired(file, log);
    if (repaired.Check(container::kRepair).status == storage::kOk) repaired.RequirePromise();
    return 0;
}
