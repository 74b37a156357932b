// SPDX-License-Identifier: MIT
#include "fuzz/ContainerInput.h"

#include <cstdint>

#include "platform/Clock.h"
#include "tests/support/Damage.h"

namespace fuzz {

namespace container = support::container;

namespace {

constexpr size_t kFewestBytes = 256;  // of a page

struct Files {
    support::TempDir dir{};
    std::filesystem::path container = dir / "c.dat", log = dir / "c.log";
    support::MemoryFiles memory{};
};

Files& TheFiles() {
    static Files files;
    return files;
}

// What can be reached, up to a number of entries, for a damaged tree may come back to itself.
void ReadSome(container::EngineStore* store, const std::u16string& path, int* left) {
    std::vector<std::pair<std::u16string, uint32_t>> entries;
    store->List(path, &entries, 1000);
    for (const auto& [name, attributes] : entries) {
        if (--*left < 0) return;
        const std::u16string child = path + u"\\" + name;
        double times[3];
        storage::StorageGetFileTimes(store->Container(), container::ToWide(child).c_str(),
                                     &times[0], &times[1], &times[2]);
        Bytes body;
        store->Get(child, &body, 50000);
        if ((attributes & 2) != 0) ReadSome(store, child, left);
    }
}

}  // namespace

ContainerInput::ContainerInput(const Bytes& container, const Bytes& log)
    : pages_(container.size() / kFewestBytes + log.size() / kFewestBytes) {
    TheFiles().memory.Put(TheFiles().container, container);
    if (!log.empty()) TheFiles().memory.Put(TheFiles().log, log);
}

ContainerInput::~ContainerInput() {
    TheFiles().memory.Remove(TheFiles().log);
}

const std::filesystem::path& ContainerInput::Path() const {
    return TheFiles().container;
}

Bytes ContainerInput::Contents() const {
    return TheFiles().memory.Get(Path());
}

void ContainerInput::RequireBoundedWork(const char* what) {
    Require(TheFiles().memory.Work() < 1000 + 300 * pages_, what);
}

container::CheckOutcome ContainerInput::Check(uint32_t flags) {
    TheFiles().memory.ResetWork();
    container::CheckOutcome outcome = container::CheckContainer(Path(), flags);
    RequireBoundedWork("too much work for a check");
    return outcome;
}

void ContainerInput::RequirePromise() {
    for (const std::string& broken :
         container::BrokenPromises(Path(), [this] { return Contents(); }))
        Require(false, broken.c_str());
}

void ContainerInput::UseBlindly() {
    TheFiles().memory.ResetWork();
    container::EngineStore store;
    if (store.Open(Path()) != storage::kOk) return RequireBoundedWork("too much work to fail");
    RequireBoundedWork("too much work to open");
    int left = 300;
    ReadSome(&store, u"", &left);
    store.Put(u"\\put", Bytes(3000, 1));
    store.MakeDirectory(u"\\made");
    store.Put(u"\\made\\in it", Bytes(30, 1));
    store.Move(u"\\made", u"\\moved");
    store.Delete(u"\\put");
    uint8_t done = 0;
    storage::StorageCompact(store.Container(), &done);
    store.Close();
}

}  // namespace fuzz

// Half of the inputs are struck as a container: pages, links, kinds, the map. The rest is left to
// the library.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t room);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t room,
                                          unsigned int seed) {
    if (seed % 2 == 0 || size < 3 * fuzz::kFewestBytes) return LLVMFuzzerMutate(data, size, room);
    const uint8_t exponent = data[0] != 0 ? data[0] : data[1];
    const uint32_t pageSize = exponent >= 8 && exponent <= 12 ? 1u << exponent : 256;
    if (size < 3 * pageSize) return LLVMFuzzerMutate(data, size, room);
    support::Bytes file(data, data + size);
    support::container::Damage damage(file, pageSize, data[0] == 0, seed);
    for (unsigned int strikes = seed / 2 % 3 + 1; strikes > 0; --strikes) damage.Strike();
    std::copy(file.begin(), file.end(), data);
    return size;
}
