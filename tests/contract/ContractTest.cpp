// SPDX-License-Identifier: MIT
// What every store promises, and what each kind has of its own: the sections of the scripts. That
// lists of changes do what each of them says is in ModelTest.cpp.
#include <algorithm>

#include "tests/contract/OpenStore.h"
#include "tests/contract/Script.h"

namespace contract {
namespace {

bool Suits(const Section& section, const Backend& backend) {
    return std::ranges::all_of(section.traits, [&](const std::string& trait) {
        return trait[0] == '~' || backend.Is(trait.substr(1)) == (trait[0] == '?');
    });
}

// Whether handles stay behind.
bool Keeps(const Section& section, const Backend& backend) {
    return std::ranges::any_of(section.traits, [&](const std::string& trait) {
        return trait[0] == '~' && backend.Is(trait.substr(1));
    });
}

class Contract : public StoreTest {
  public:
    Contract(Section section, const Backend& backend)
        : StoreTest(backend, !Keeps(section, backend)), section_(std::move(section)) {}
    void TestBody() override { Play(section_, backend_); }

  private:
    const Section section_;
};

const bool kRegistered = [] {
    const auto scripts = std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/contract/scripts";
    for (const auto& file : std::filesystem::directory_iterator(scripts))
        for (const Section& section : support::SectionsOf(file))
            for (const Backend& backend : AllBackends())
                if (Suits(section, backend))
                    testing::RegisterTest(
                        "Contract", (section.name + "/" + backend.name).c_str(), nullptr, nullptr,
                        __FILE__, __LINE__,
                        [=]() -> StoreTest* { return new Contract(section, backend); });
    return true;
}();

}  // namespace
}  // namespace contract
