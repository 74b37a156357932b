// Random work on streams, held against plain byte vectors.
#include <random>

#include "tests/storage/streams/StreamHarness.h"

namespace {

using streams::File;
using streams::Pattern;
using streams::Store;
using support::Bytes;
namespace container = support::container;

// One file, its twin in memory, and what happens to both.
class Twin {
  public:
    Twin(Store& store, const char* name, uint32_t seed)
        : store_(store), name_(name), random_(seed), file_(store.Create(name)) {}

    void Step() {
        switch (random_() % 16) {
            case 0:
                return Truncate();
            case 1:
                return Empty();
            case 2:
                return CloseAndOpen();
            case 3:
                return Seek(random_() % (model_.size() * 2 + 2));
            case 4:
                return Seek(model_.size());
            case 5:
            case 6:
            case 7:
                return Seek(random_() % (model_.size() + 1));
            case 8:
            case 9:
            case 10:
                return Read(Length());
            default:
                return Write(Length());
        }
    }
    void CheckAll() {
        file_.Seek(0);
        position_ = 0;
        Read(static_cast<uint32_t>(model_.size()) + 1);
    }
    void Close() { EXPECT_EQ(file_.Close(), 0); }
    void Open() {
        file_ = store_.OpenFile(name_.c_str(), true);
        position_ = 0;
    }
    const Bytes& Model() const { return model_; }
    std::u16string Path() const { return u"\\" + std::u16string(name_.begin(), name_.end()); }

  private:
    // Mostly small, sometimes around whole pages, rarely many of them.
    uint32_t Length() {
        const uint32_t payload = store_.Payload();
        switch (random_() % 8) {
            case 0:
                return payload - 1 + random_() % 3;
            case 1:
                return payload * (1 + random_() % 4);
            case 2:
                return random_() % (20 * std::min(payload, 4000u));
            default:
                return random_() % 100;
        }
    }
    void Seek(uint64_t position) {
        // A gap of many large pages would make the test slow and say no more.
        position_ = std::min<uint64_t>(position, 60 * uint64_t{store_.Payload()});
        file_.Seek(position_);
    }
    void Write(uint32_t length) {
        const Bytes bytes = Pattern(length, random_());
        file_.Write(bytes);
        if (length == 0 && position_ <= model_.size()) return;
        if (model_.size() < position_ + length) model_.resize(position_ + length, 0);
        std::copy(bytes.begin(), bytes.end(),
                  model_.begin() + static_cast<std::ptrdiff_t>(position_));
        position_ += length;
    }
    void Read(uint32_t length) {
        const uint64_t begin = std::min<uint64_t>(position_, model_.size());
        const uint64_t end = std::min<uint64_t>(begin + length, model_.size());
        const Bytes read = file_.Read(length);
        ASSERT_EQ(read, Bytes(model_.begin() + static_cast<std::ptrdiff_t>(begin),
                              model_.begin() + static_cast<std::ptrdiff_t>(end)));
        position_ += read.size();
    }
    void Truncate() {
        const size_t size = random_() % 3 == 0 ? model_.size() / store_.Payload() * store_.Payload()
                                               : random_() % (model_.size() + 1);
        file_.SetSize(size);
        if (size < model_.size()) position_ = std::min<uint64_t>(position_, size);
        model_.resize(size);
        Seek(position_);
    }
    void Empty() {
        if (random_() % 3 != 0) return;
        Close();
        file_ = store_.Create(name_.c_str(), true);
        model_.clear();
        position_ = 0;
    }
    void CloseAndOpen() {
        Close();
        Open();
    }

    Store& store_;
    std::string name_;
    std::mt19937 random_;
    File file_;
    Bytes model_;
    uint64_t position_ = 0;
};

class StreamModel : public testing::TestWithParam<uint32_t> {};

TEST_P(StreamModel, BehavesLikeAnArrayOfBytes) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        Store store(GetParam());
        Twin a(store, "a", seed), b(store, "b", seed + 100);
        for (int round = 0; round < 8; ++round) {
            for (int step = 0; step < 60 && !testing::Test::HasFailure(); ++step)
                (step % 3 == 0 ? b : a).Step();
            a.CheckAll();
            b.CheckAll();
            a.Close();
            b.Close();
            const container::Reading reading = store.Closed();
            ASSERT_TRUE(reading.Sound()) << "seed " << seed << "\n" << reading.Report();
            for (const Twin* twin : {&a, &b})
                ASSERT_EQ(reading.At(twin->Path())->body, twin->Model());
            store.Open();
            a.Open();
            b.Open();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(PageSizes, StreamModel, testing::Values(256, 512, 1024, 4096, 65536));

TEST(StreamBig, TenMebibytesGoInOutAndAwayInAStraightLine) {
    Store store(512);
    const Bytes bytes = Pattern(10 << 20), other = Pattern(10 << 20, 2);
    store.Put("v", bytes);
    EXPECT_EQ(store.Get("v"), bytes);
    store.Reopen();
    EXPECT_EQ(store.Get("v"), bytes);
    {
        File file = store.OpenFile("v", true);
        file.Write(other);  // over what is there
        file.Seek(0);
        for (uint32_t at = 0; at < other.size(); at += 100000)
            ASSERT_EQ(file.Read(100000),
                      Bytes(other.begin() + at,
                            other.begin() + std::min<size_t>(at + 100000, other.size())));
        EXPECT_EQ(file.Close(), 0);
    }
    store.Put("v", other);  // emptied first
    const container::Reading reading = store.Closed();
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    EXPECT_EQ(reading.At(u"\\v")->body, other);
    store.Open();
    EXPECT_EQ(store.Delete("v"), 0);
    EXPECT_LT(store.Closed().usedPages, 20u);
    store.Open();
}

}  // namespace
