// Random damage to containers of all shapes: whatever it was, a repair keeps its promise.
#include <random>

#include "tests/storage/check/CheckHarness.h"

namespace {

namespace container = support::container;
using check::Outcome;
using check::Patient;
using container::Builder;
using support::Bytes;

class Damage {
  public:
    Damage(Builder* builder, uint32_t seed) : builder_(*builder), random_(seed) {}

    void Strike() {
        const uint32_t size = builder_.TheForm().pageSize;
        uint8_t* page = AnyPage();
        switch (random_() % 9) {
            case 0:
                page[random_() % size] ^= static_cast<uint8_t>(1u << random_() % 8);
                break;
            case 1:
                page[random_() % 36] = static_cast<uint8_t>(random_());
                break;
            case 2:
                container::Put32(page, 4 * (random_() % 7 + 1), AnyNumber());
                break;
            case 3:
                container::Put32(page, 4 * (random_() % (size / 4)), AnyNumber());
                break;
            case 4:
                container::Put16(page, 32, random_() % (size + 40));
                break;
            case 5:
                builder_.SetSlot(1 + random_() % (builder_.PageCount() - 1), AnyKind());
                break;
            case 6:
                container::Put16(page, 0, AnyKind());
                break;
            case 7:
                std::memset(page + random_() % size / 2, 0, size / 2);
                break;
            default:
                for (uint32_t i = 0; i < size; ++i) page[i] = static_cast<uint8_t>(random_());
        }
    }

  private:
    // Any page but the first two, which are struck less: without them all is lost.
    uint8_t* AnyPage() {
        uint32_t page = random_() % builder_.PageCount();
        if (page < 3 && random_() % 8 != 0) page = builder_.PageCount() - 1;
        return builder_.Page(page);
    }
    uint32_t AnyNumber() {
        return random_() % 4 == 0 ? random_() : random_() % (builder_.PageCount() + 3);
    }
    uint16_t AnyKind() {
        constexpr uint16_t kKinds[] = {0, 31, 32, 33, 34, 36, 37, 40, 43, 9, 65520, 77};
        return kKinds[random_() % std::size(kKinds)];
    }

    Builder& builder_;
    std::mt19937 random_;
};

class CheckDamage : public testing::TestWithParam<uint32_t> {};

TEST_P(CheckDamage, IsMendedOnceAndForAll) {
    const uint32_t pageSize = GetParam();
    uint32_t lost = 0;
    constexpr uint32_t kRounds = 150;
    for (uint32_t seed = 1; seed <= kRounds && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        container::Form form;
        form.pageSize = pageSize;
        form.foreign = seed % 5 == 0;
        form.freePages = seed % 4;
        Builder builder(form, container::RichTree(pageSize));
        Damage damage(&builder, seed);
        for (uint32_t i = 0; i <= seed % 7; ++i) damage.Strike();
        Patient patient(builder.Finish());
        const Outcome check = patient.Check();
        const Outcome repair = patient.Repair();
        EXPECT_EQ(check.status, repair.status);
        if (repair.status == storage::kNotContainer) {
            ++lost;
            continue;
        }
        ASSERT_EQ(repair.status, 0);
        patient.ExpectMended();
        if (HasFailure()) support::WriteBytes("/tmp/damaged.dat", builder.Finish());
    }
    EXPECT_LT(lost, kRounds / 4);
}

INSTANTIATE_TEST_SUITE_P(PageSizes, CheckDamage, testing::Values(256, 512, 4096));

}  // namespace
