// SPDX-License-Identifier: MIT
// What every store promises, and what each kind has of its own: the sections of the scripts. That
// lists of changes do what each of them says is in ModelTest.cpp.
#include "tests/contract/OpenStore.h"
#include "tests/contract/Script.h"

namespace contract {
namespace {

class Contract : public StoreTest {
  public:
    Contract(Section section, const Backend& backend)
        : StoreTest(backend, !section.Keeps(backend)), section_(std::move(section)) {}
    void TestBody() override { Play(section_, backend_); }

  private:
    const Section section_;
};

const bool kRegistered = [] {
    const auto scripts = std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/contract/scripts";
    for (const auto& file : std::filesystem::directory_iterator(scripts))
        for (const Section& section : SectionsOf(file))
            for (const Backend& backend : AllBackends())
                if (section.Suits(backend))
                    testing::RegisterTest(
                        "Contract", (section.name + "/" + backend.name).c_str(), nullptr, nullptr,
                        __FILE__, __LINE__,
                        [=]() -> StoreTest* { return new Contract(section, backend); });
    return true;
}();

}  // namespace
}  // namespace contract
