// SPDX-License-Identifier: MIT
// Commands that sum up what is in a key and below it: stat, hash.
#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Shown.h"
#include "tools/commands/TreeProgress.h"
#include "tools/format/Json.h"
#include "tools/format/Sha256.h"
#include "tools/store/Kind.h"
#include "tools/store/Place.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct ContentArguments {
    std::string store, key;
};

struct Sum {
    uint64_t keys = 0, values = 0, bytes = 0, levels = 0;
};

std::string KindOfStore(const StoreName& name) {
    if (name.method == FS_VR_METHOD_NATIVE) return "the live registry";
    if (name.method == FS_VR_METHOD_CLUSTER) return "on a cluster";
    if (!FileOf(name)) return "behind a server";
    const std::string kind = KindInWords(name);
    return kind.empty() ? "a container" : kind;
}

JsonObject& AddSum(JsonObject& object, const Sum& sum) {
    return object.Number("keys", sum.keys)
        .Number("values", sum.values)
        .Number("bytes", sum.bytes)
        .Number("levels", sum.levels);
}

struct Statistics {
    Sum here, below;  // of `here` the keys are the subkeys
    std::optional<FBR_SYSTEMTIME> time, latest;
};

bool IsBefore(const FBR_SYSTEMTIME& a, const FBR_SYSTEMTIME& b) {
    return TimeInJson(a) < TimeInJson(b);
}

Statistics Measure(const Place& place, const OnLoss& onLoss) {
    Statistics all;
    Progress progress("Measuring:", EntriesToShow(place));
    WalkKeys(place.store, place.key, onLoss, [&](const Key& key) {
        progress.Step();
        const WStringView relative = PathBelow(key.Path(), place.key);
        uint64_t level = relative.empty() ? 0 : 1;
        for (const WChar unit : relative) level += unit == '\\';
        Sum sum;
        for (const WString& name : ReachableValues(key, onLoss)) {
            progress.Step();
            if (IsStoresOwn(place, relative, name)) continue;
            ++sum.values;
            if (const auto value = TryGet(key, name, onLoss)) sum.bytes += value->data.size();
        }
        const auto time = key.Time();
        if (time && (!all.latest || IsBefore(*all.latest, *time))) all.latest = time;
        if (level == 0) {
            all.here = sum;
            all.here.keys = ReachableSubkeys(key, {}).size();
            all.time = time;
        } else {
            ++all.below.keys;
            all.below.values += sum.values;
            all.below.bytes += sum.bytes;
            all.below.levels = std::max(all.below.levels, level);
        }
    });
    return all;
}

void Stat(const Cli& cli, const Place& place, const OnLoss& onLoss) {
    const ReadLock lock(place.store);
    const Statistics all = Measure(place, onLoss);
    const std::string kind = KindOfStore(place.store.FullName());
    const auto file = FileOf(place.store.FullName());
    std::error_code error;
    const uint64_t size =
        file && std::filesystem::is_regular_file(*file, error) ? file_size(*file, error) : 0;
    if (cli.Json()) {
        JsonObject line(JsonObject::Place::kLine), here, below;
        line.Text("store", place.store.Name()).Text("kind", kind).Number("fileBytes", size);
        line.Text("key", KeyInJson(place.key));
        AddTime(line, "time", all.time);
        AddTime(line, "latest", all.latest);
        line.Json("here", AddSum(here, all.here).Done());
        line.Json("below", AddSum(below, all.below).Done());
        line.Number("status", static_cast<uint64_t>(cli.Status()));
        std::cout << line.Done() << '\n';
        return;
    }
    std::cout << fmt::format("store    {}: {}{}\n", place.store.Name(), kind,
                             size == 0 ? "" : ", " + Counted(size, "byte"))
              << fmt::format("key      {}\n", ShowKey(place.key))
              << (all.latest ? fmt::format("changed  {}, below it {} UTC\n", ShowTime(all.time),
                                           ShowTime(all.latest))
                             : "")
              << fmt::format("here     {}, {}, {} of data\n", Counted(all.here.keys, "subkey"),
                             Counted(all.here.values, "value"), Counted(all.here.bytes, "byte"))
              << fmt::format("below    {}, {}, {} of data, {} deep\n",
                             Counted(all.below.keys, "key"), Counted(all.below.values, "value"),
                             Counted(all.below.bytes, "byte"), Counted(all.below.levels, "level"));
}

// Each number says how long what follows is, so that no two contents give the same bytes.
class ContentHash {
  public:
    void Number(uint64_t number) {
        uint8_t bytes[8];
        for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(number >> (8 * i));
        hash_.Add(bytes, sizeof bytes);
    }
    void Text(WStringView text) {
        Number(text.size() * sizeof(WChar));
        hash_.Add(text.data(), text.size() * sizeof(WChar));
    }
    void Data(const Value& value) {
        Number(value.type);
        Number(value.data.size());
        hash_.Add(value.data.data(), value.data.size());
    }
    std::string Done() { return hash_.Done(); }

  private:
    Sha256 hash_;
};

// Keys and values by name, so that neither the kind of the store nor what was written when counts.
void Hash(const Cli& cli, const Place& place, const OnLoss& onLoss) {
    const ReadLock lock(place.store);
    ContentHash hash;
    Progress progress("Hashing:", EntriesToShow(place));
    const auto add = [&](const Key& key) {
        progress.Step();
        const WStringView relative = PathBelow(key.Path(), place.key);
        auto names = ReachableValues(key, onLoss);
        std::erase_if(names,
                      [&](const WString& name) { return IsStoresOwn(place, relative, name); });
        SortNames(names);
        hash.Text(relative);
        hash.Number(names.size());
        for (const WString& name : names) {
            progress.Step();
            hash.Text(name);
            if (const auto value = TryGet(key, name, onLoss)) hash.Data(*value);
        }
    };
    WalkKeys(place.store, place.key, onLoss, add, Order::kByName);
    const std::string text = hash.Done();
    if (!cli.Json()) {
        std::cout << text << "  " << place.store.Name()
                  << (place.key.empty() ? "" : " " + ShowKey(place.key)) << '\n';
        return;
    }
    std::cout << JsonObject(JsonObject::Place::kLine)
                     .Text("store", place.store.Name())
                     .Text("key", KeyInJson(place.key))
                     .Text("sha256", text)
                     .Number("status", static_cast<uint64_t>(cli.Status()))
                     .Done()
              << '\n';
}

}  // namespace

void AddContentCommands(Cli& cli) {
    const auto args = std::make_shared<ContentArguments>();
    const OnLoss onLoss = [&cli](const std::string& text) { cli.TellLoss(text); };
    const auto with = [&cli, args, onLoss](const auto& work) {
        return [&cli, args, onLoss, work] {
            const WString key = KeyArgument(args->key);
            const Store store(cli.StoreAt(args->store), Store::IfMissing::kFail);
            work(cli, Place{store, key}, onLoss);
        };
    };

    cli.Add("stat", "Tell how much a key holds, and when it was changed")
        .Tells()
        .Example("fbr stat settings.fbr")
        .Example("fbr stat settings.fbr Software --json")
        .StoreAndKey(args->store, args->key)
        .Does(with(Stat));

    cli.Add("hash", "Sum up a key and all below it as SHA-256, the same for stores of any kind")
        .Tells()
        .Example("fbr hash settings.fbr")
        .Example("fbr hash settings.reg 'Software\\Hello'")
        .StoreAndKey(args->store, args->key)
        .Does(with(Hash));
}

}  // namespace fbr
