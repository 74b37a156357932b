// SPDX-License-Identifier: MIT
// ls: the subkeys and values of a key.
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Shown.h"
#include "tools/console/Interrupt.h"
#include "tools/format/Json.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/Reach.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

constexpr size_t kWidestColumn = 40;  // names longer than this push their line aside

struct Row {
    std::string name, type, size, data;
    Color color = Color::kNone;
};

size_t Width(const std::string& utf8) {
    return static_cast<size_t>(
        std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void PrintRows(const std::vector<Row>& rows, bool colored) {
    size_t name = 0, type = 0, size = 0;
    for (const Row& row : rows) {
        name = std::max(name, std::min(Width(row.name), kWidestColumn));
        type = std::max(type, row.type.size());
        size = std::max(size, row.size.size());
    }
    for (const Row& row : rows) {
        const size_t pad = name - std::min(name, Width(row.name));
        std::cout << fmt::format("{}{:{}}  {:{}}  {:>{}}  {}\n",
                                 Colored(colored, row.color, row.name), "", pad, row.type, type,
                                 row.size, size, row.data);
    }
}

struct ListArguments {
    std::string store, key;
    bool isLong = false, recursive = false;
};

class Lister {
  public:
    Lister(Cli& cli, const ListArguments& args)
        : cli_(cli),
          args_(args),
          onLoss_([&cli](const std::string& text) { cli.TellLoss(text); }) {}

    void List(const Store& store, const WString& path) {
        const ReadLock lock(store);
        if (!args_.recursive) return Tell(store.OpenKey(path));
        WalkKeys(store, path, {}, [&](const Key& key) {
            if (!cli_.Json()) {
                std::cout << (first_ ? "" : "\n") << ShowKey(key.Path()) << ":\n";
                first_ = false;
            }
            Tell(key);
        });
    }

  private:
    void Tell(const Key& key) const { cli_.Json() ? TellProgram(key) : TellPerson(key); }

    void TellPerson(const Key& key) const {
        std::vector<Row> rows;
        for (const Listed& subkey : ListSubkeys(key, onLoss_))
            rows.push_back(RowOfKey(key, subkey));
        if (!args_.isLong) {
            for (const Row& row : rows)
                std::cout << Colored(cli_.Colored(), row.color, row.name) << '\n';
            rows.clear();
        }
        for (const Listed& value : ListValues(key, onLoss_)) rows.push_back(RowOfValue(key, value));
        PrintRows(rows, cli_.Colored());
    }

    // What a key holds itself.
    struct Held {
        uint64_t bytes = 0, subkeys = 0, values = 0;
    };
    static Held HeldIn(const Key& key) {
        Held held;
        const auto names = ReachableValues(key, {});
        for (const WString& name : names)
            if (const auto value = TryGet(key, name, {})) held.bytes += value->data.size();
        held.subkeys = ListSubkeys(key, {}).size();
        held.values = names.size();
        return held;
    }

    // The time of a key, what its values take, and how much there is in it.
    Row RowOfKey(const Key& key, const Listed& listed) const {
        Row row{ShowSubkeyName(listed.name) + "\\", "?", "?", "", Color::kBlue};
        if (!args_.isLong || !listed.reachable) return row;
        const auto subkey = TryOpen(key, listed.name, onLoss_);
        if (!subkey) return row;
        const Held held = HeldIn(*subkey);
        row.type = ShowTime(subkey->Time());
        row.size = std::to_string(held.bytes);
        row.data = Counted(held.subkeys, "subkey") + ", " + Counted(held.values, "value");
        return row;
    }

    // Of what cannot be had the name is known.
    Row RowOfValue(const Key& key, const Listed& listed) const {
        const auto value = listed.reachable ? TryGet(key, listed.name, onLoss_) : std::nullopt;
        if (!value) return {ShowValueName(listed.name), "?", "?", ""};
        return {ShowValueName(listed.name), TypeName(value->type),
                std::to_string(value->data.size()),
                DataOnOneLine(value->type, value->data, kShownBytes)};
    }

    void TellProgram(const Key& key) const {
        std::string subkeys, values;
        for (const Listed& listed : ListSubkeys(key, onLoss_)) {
            JsonObject object;
            object.Text("name", listed.name);
            const auto subkey =
                listed.reachable ? TryOpen(key, listed.name, onLoss_) : std::nullopt;
            AddTime(object, "time", subkey ? subkey->Time() : std::nullopt);
            if (subkey && args_.isLong) {
                const Held held = HeldIn(*subkey);
                object.Number("bytes", held.bytes).Number("subkeys", held.subkeys);
                object.Number("values", held.values);
            }
            subkeys += (subkeys.empty() ? "" : ",") + object.Done();
        }
        for (const Listed& listed : ListValues(key, onLoss_)) {
            JsonObject object;
            object.Text("name", listed.name);
            if (const auto value =
                    listed.reachable ? TryGet(key, listed.name, onLoss_) : std::nullopt)
                object.Data(value->type, value->data);
            values += (values.empty() ? "" : ",") + object.Done();
        }
        std::cout << JsonObject(JsonObject::Place::kLine)
                         .Text("key", KeyInJson(key.Path()))
                         .Json("subkeys", "[" + subkeys + "]")
                         .Json("values", "[" + values + "]")
                         .Number("status", static_cast<uint64_t>(cli_.Status()))
                         .Done()
                  << '\n';
    }

    Cli& cli_;
    const ListArguments& args_;
    const OnLoss onLoss_;
    bool first_ = true;
};

}  // namespace

void AddListCommand(Cli& cli) {
    const auto args = std::make_shared<ListArguments>();
    cli.Add("ls", "List the subkeys and values of a key")
        .Tells()
        .Example("fbr ls settings.fbr")
        .Example("fbr ls -l settings.fbr 'Software\\Hello'")
        .StoreAndKey(args->store, args->key)
        .Flag("-l,--long", args->isLong,
              "for each subkey, too: when it was changed (UTC), the bytes of its values, and how "
              "many subkeys and values it has")
        .Flag("-R,--recursive", args->recursive, "all keys below it, too")
        .Does([&cli, args] {
            const WString key = KeyArgument(args->key);
            const Store store(cli.StoreAt(args->store), Store::IfMissing::kFail);
            Lister(cli, *args).List(store, key);
        });
}

}  // namespace fbr
