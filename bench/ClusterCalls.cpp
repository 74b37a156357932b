// SPDX-License-Identifier: MIT
// What calls on a store on a cluster cost, beside the bare requests that they stand on: on as many
// members of this machine as the first argument says, three without one.
#include <fmt/format.h>

#include "bench/Report.h"
#include "tests/cluster/RunningCluster.h"
#include "tests/support/Store.h"

namespace {

using bench::Timer;
using support::Text;

constexpr int kBatches = 20, kEach = 50;

// Microseconds of one of `each` calls, the median of the batches.
template <class Call>
double Measure(int each, Call call) {
    Timer timer;
    for (int batch = 0; batch < kBatches; ++batch) {
        timer.Start();
        for (int i = 0; i < each; ++i) call(batch * each + i);
        timer.Stop(static_cast<uint64_t>(each));
    }
    return timer.MedianNs() / 1000;
}

class Bare {
  public:
    explicit Bare(const cluster_test::RunningCluster& cluster) : records_(cluster) {}
    void Put(int i) { records_.Put("bare/" + std::to_string(i), std::string(20, 'x')); }
    void Get(int i) { records_.Below("bare/" + std::to_string(i)); }
    void Delete(int i) { records_.Delete("bare/" + std::to_string(i) + "/"); }
    void All() { records_.Below("bare/"); }

  private:
    cluster_test::Records records_;
};

void Line(const char* what, double ours, double bare) {
    fmt::print("| {:40} | {:8.0f} | {:8.0f} | {:5.1f} |\n", what, ours, bare, ours / bare);
}

}  // namespace

int main(int argc, char** argv) {
    const cluster_test::RunningCluster cluster(argc > 1 ? std::stoul(argv[1]) : 3);
    Bare bare(cluster);
    support::Store store(cluster.Path("bench"), FS_VR_METHOD_CLUSTER);
    fmt::print("{} members, microseconds\n\n| {:40} | {:>8} | {:>8} | {:>5} |\n", cluster.Members(),
               "call", "ours", "bare", "times");
    const double lock = Measure(5, [&](int) { store.Lock(), store.Unlock(); });
    store.Lock();
    const FBR_KEY key = store.Make("k");
    const support::Bytes data(20, 'x');
    const double put = Measure(kEach, [&](int i) { bare.Put(i); });
    Line("lock and unlock", lock, put);
    const auto nameOf = [](int i) { return Text(std::to_string(i)); };
    Line("set", Measure(kEach, [&](int i) { store.Set(key, nameOf(i), data); }), put);
    Line("make a key", Measure(kEach, [&](int i) { store.TryMake(nameOf(i), key); }), put);
    char room[64];
    uint64_t size = 0;
    const auto query = [&](int i) { store.Query(key, nameOf(i), room, sizeof room, &size); };
    Line("query under the lock", Measure(kEach, query),
         Measure(kEach, [&](int i) { bare.Get(i); }));
    store.Unlock();
    Line("query", Measure(kEach, query), Measure(kEach, [&](int i) { bare.Get(i); }));
    Line("names of 1,000 values", Measure(2, [&](int) { store.Values(key); }),
         Measure(2, [&](int) { bare.All(); }));
    store.Lock();
    const double gone = Measure(kEach, [&](int i) { bare.Delete(i); });
    Line("delete a value", Measure(kEach, [&](int i) { store.DeleteValue(key, nameOf(i)); }), gone);
    Line("delete a key",
         Measure(kEach, [&](int i) { store.DeleteTree("\\k\\" + std::to_string(i)); }), gone);
    store.Unlock();
    return 0;
}
