// Commands that look at a store: ls, tree, get.
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/Reach.h"

namespace fbr {
namespace {

constexpr size_t kShownBytes = 32;    // of binary data in a list
constexpr size_t kWidestColumn = 40;  // names longer than this push their line aside

struct Row {
    std::string name, type, size, data;
};

size_t Width(const std::string& utf8) {
    return static_cast<size_t>(
        std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// A value that is called "(Default)", beside the unnamed one, stands in quotes.
std::string ShowName(WStringView name) {
    if (name.empty()) return "(Default)";
    return name == WTEXT("(Default)") ? "\"(Default)\"" : Printable(name);
}

std::string ShowKeyName(WStringView name) {
    return name.empty() ? "\"\"" : Printable(name);
}

void PrintRows(const std::vector<Row>& rows) {
    size_t name = 0, type = 0, size = 0;
    for (const Row& row : rows) {
        name = std::max(name, std::min(Width(row.name), kWidestColumn));
        type = std::max(type, row.type.size());
        size = std::max(size, row.size.size());
    }
    for (const Row& row : rows) {
        const size_t pad = name - std::min(name, Width(row.name));
        std::cout << fmt::format("{}{:{}}  {:{}}  {:>{}}  {}\n", row.name, "", pad, row.type, type,
                                 row.size, size, row.data);
    }
}

// Of what cannot be had the name is known.
Row RowOf(const Key& key, const Listed& listed, const OnLoss& onLoss) {
    const auto value = listed.reachable ? TryGet(key, listed.name, onLoss) : std::nullopt;
    if (!value) return {ShowName(listed.name), "?", "?", ""};
    return {ShowName(listed.name), TypeName(value->type), std::to_string(value->data.size()),
            DataOnOneLine(value->type, value->data, kShownBytes)};
}

void List(const Store& store, const WString& path, const OnLoss& onLoss) {
    const ReadLock lock(store);
    const Key key = store.OpenKey(path);
    for (const Listed& subkey : ListSubkeys(key, onLoss))
        std::cout << ShowKeyName(subkey.name) << "\\\n";
    std::vector<Row> rows;
    for (const Listed& value : ListValues(key, onLoss)) rows.push_back(RowOf(key, value, onLoss));
    PrintRows(rows);
}

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
        std::cout << indent << (last ? "└── " : "├── ") << ShowKeyName(subkey.name)
                  << (key ? ValueCount(*key, onLoss) : "") << '\n';
        if (!key || branches.size() >= depth) continue;
        indent += last ? "    " : "│   ";
        auto subkeys = ListSubkeys(*key, onLoss);
        branches.push_back({std::move(*key), std::move(subkeys), 0, indent.size()});
    }
}

void Print(const Store& store, const WString& path, const WString& name, bool raw,
           const OnLoss& onLoss) {
    const ReadLock lock(store);
    const Key key = store.OpenKey(path);
    uint64_t missing = 0;
    const Value value = key.Get(name, &missing);
    if (missing != 0) onLoss(ShowShortData(key, name, value, missing));
    if (raw) {
        std::cout.write(reinterpret_cast<const char*>(value.data.data()),
                        static_cast<std::streamsize>(value.data.size()));
    } else {
        std::cout << DataInFull(value.type, value.data) << '\n';
    }
}

struct Arguments {
    std::string store, key, name;
    uint64_t depth = UINT64_MAX;
    bool raw = false;
};

}  // namespace

void AddBrowseCommands(Cli& cli) {
    const auto args = std::make_shared<Arguments>();
    const auto open = [&cli, args] {
        return Store(cli.StoreAt(args->store), Store::IfMissing::kFail);
    };
    const OnLoss onLoss = [&cli](const std::string& text) { cli.TellLoss(text); };

    cli.Add("ls", "List the subkeys and values of a key")
        .Example("fbr ls settings.fbr")
        .Example("fbr ls settings.fbr 'Software\\Hello'")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kOptional, "the key; the root if not given")
        .Does([=] { List(open(), KeyArgument(args->key), onLoss); });

    cli.Add("tree", "Draw the keys below a key, with their value counts")
        .Example("fbr tree settings.fbr --depth 2")
        .Example("fbr tree settings.fbr 'Software\\Hello'")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kOptional, "the key; the root if not given")
        .Number("--depth", args->depth, "levels to draw; all if not given")
        .Does([=] { DrawTree(open(), KeyArgument(args->key), args->depth, onLoss); });

    cli.Add("get", "Print one value")
        .Example("fbr get settings.fbr 'Software\\Hello' Count")
        .Example("fbr get settings.fbr 'Software\\Hello' Icon --raw > icon.bin")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional, "the value; the unnamed one if not given")
        .Flag("--raw", args->raw, "write the bytes as they are")
        .Does([=] { Print(open(), KeyArgument(args->key), Wide(args->name), args->raw, onLoss); });
}

}  // namespace fbr
