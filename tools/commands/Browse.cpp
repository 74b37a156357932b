// SPDX-License-Identifier: MIT
// Commands that look at a store: tree, get.
#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Shown.h"
#include "tools/format/Json.h"
#include "tools/format/ValueText.h"
#include "tools/store/Reach.h"

namespace fbr {
namespace {

// One key on the way from the top of a tree to the line being drawn.
struct Branch {
    Key key;
    std::vector<Listed> subkeys;
    size_t next = 0;
    size_t indent = 0;  // length of the lines to the left of its subkeys
};

std::string ValueCount(const Key& key, const OnLoss& onLoss) {
    const size_t count = CountValues(key, onLoss);
    if (count == 0) return "";
    return fmt::format(" ({} value{})", count, count == 1 ? "" : "s");
}

void DrawTree(const Store& store, const WString& path, uint64_t depth, const OnLoss& onLoss) {
    const ReadLock lock(store);
    std::string indent;
    std::vector<Branch> branches;
    Key top = store.OpenKey(path);
    std::cout << ShowKey(path) << ValueCount(top, onLoss) << '\n';
    if (depth == 0) return;
    auto names = ListSubkeys(top, onLoss);
    branches.push_back({std::move(top), std::move(names)});
    while (!branches.empty()) {
        Branch& branch = branches.back();
        indent.resize(branch.indent);
        if (branch.next == branch.subkeys.size()) {
            branches.pop_back();
            continue;
        }
        const Listed& subkey = branch.subkeys[branch.next++];
        const bool last = branch.next == branch.subkeys.size();
        auto key = subkey.reachable ? TryOpen(branch.key, subkey.name, onLoss) : std::nullopt;
        std::cout << indent << (last ? "└── " : "├── ") << ShowSubkeyName(subkey.name)
                  << (key ? ValueCount(*key, onLoss) : "") << '\n';
        if (!key || branches.size() >= depth) continue;
        indent += last ? "    " : "│   ";
        auto subkeys = ListSubkeys(*key, onLoss);
        branches.push_back({std::move(*key), std::move(subkeys), 0, indent.size()});
    }
}

std::string JsonOf(const Cli& cli, const Store& store, const WString& path, const WString& name,
                   const Value& value) {
    return JsonObject(JsonObject::Place::kLine)
        .Text("store", store.Name())
        .Text("key", KeyInJson(path))
        .Text("name", name)
        .Data(value.type, value.data)
        .Number("status", static_cast<uint64_t>(cli.Status()))
        .Done();
}

void Print(const Cli& cli, const Store& store, const WString& path, const WString& name, bool raw,
           const OnLoss& onLoss) {
    const ReadLock lock(store);
    const Key key = store.OpenKey(path);
    uint64_t missing = 0;
    const Value value = key.Get(name, &missing);
    if (missing != 0) onLoss(ShowShortData(key, name, value, missing));
    if (cli.Json()) {
        std::cout << JsonOf(cli, store, path, name, value) << '\n';
    } else if (raw) {
        std::cout.write(reinterpret_cast<const char*>(value.data.data()),
                        static_cast<std::streamsize>(value.data.size()));
    } else {
        std::cout << DataInFull(value.type, value.data) << '\n';
    }
}

struct BrowseArguments {
    std::string store, key, name;
    uint64_t depth = UINT64_MAX;
    bool raw = false;
};

}  // namespace

void AddBrowseCommands(Cli& cli) {
    const auto args = std::make_shared<BrowseArguments>();
    const auto open = [&cli, args] {
        return Store(cli.StoreAt(args->store), Store::IfMissing::kFail);
    };
    const OnLoss onLoss = [&cli](const std::string& text) { cli.TellLoss(text); };

    cli.Add("tree", "Draw the keys below a key, with their value counts")
        .Example("fbr tree settings.fbr --depth 2")
        .Example("fbr tree settings.fbr 'Software\\Hello'")
        .StoreAndKey(args->store, args->key)
        .Number("--depth", args->depth, "levels to draw; all if not given")
        .Does([=] { DrawTree(open(), KeyArgument(args->key), args->depth, onLoss); });

    cli.Add("get", "Print one value")
        .Example("fbr get settings.fbr 'Software\\Hello' Count")
        .Example("fbr get settings.fbr 'Software\\Hello' Icon --raw > icon.bin")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional, "the value; the unnamed one if not given")
        .Flag("--raw", args->raw, "write the bytes as they are")
        .Tells()
        .Does([=, &cli] {
            Print(cli, open(), KeyArgument(args->key), Wide(args->name), args->raw, onLoss);
        });
}

}  // namespace fbr
