// Commands that change a store: create, set, rm, mv.
#include <fmt/format.h>

#include <memory>

#include "tools/commands/Cli.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

struct Arguments {
    std::string store, key, type;
    std::optional<std::string> name;
    std::vector<std::string> data;
    bool hex = false, recursive = false;
};

void Create(const StoreName& name) {
    const auto file = FileOf(name);
    std::error_code ignored;
    if (file && std::filesystem::exists(*file, ignored)) {
        throw StoreError(fmt::format("cannot create store {}: {}", name.path,
                                     StatusText(FSSTATUS_ALREADY_EXISTS)),
                         FSSTATUS_ALREADY_EXISTS);
    }
    Store(name, Store::IfMissing::kCreate).Close();
}

void Set(const StoreName& store, const Arguments& args) {
    const auto type = ParseType(args.type);
    if (!type) {
        throw UsageError(
            fmt::format("expected sz, expand_sz, multi_sz, binary, dword, qword, none "
                        "or a number for TYPE, not \"{}\"",
                        args.type));
    }
    const WString key = KeyArgument(args.key), name = Wide(*args.name);
    const Bytes data = DataFromWords(*type, args.hex, args.data);

    Store open(store, Store::IfMissing::kFail);
    {
        const WriteLock lock(open);
        open.CreateKey(key).Set(name, *type, data);
    }
    open.Close();
}

[[noreturn]] void NotFound(const std::string& what) {
    throw StoreError(fmt::format("cannot remove {}: {}", what, StatusText(FSSTATUS_NOT_FOUND)),
                     FSSTATUS_NOT_FOUND);
}

void RemoveKey(const Store& store, const WString& path, bool recursive) {
    if (recursive) {
        if (!store.DeleteTree(path)) {
            NotFound(fmt::format("key {} in {}", ShowKey(path), store.Name()));
        }
        return;
    }
    if (path.empty()) throw UsageError("expected a key below the root: the root cannot be removed");
    const Key key = store.OpenKey(path);
    // Asked first: the library would remove the values before it finds the subkeys.
    if (key.HasSubkeys()) {
        throw StoreError(
            fmt::format("cannot remove key {} in {}: {}; it has subkeys: use -r", ShowKey(path),
                        store.Name(), StatusText(FSSTATUS_DIR_NOT_EMPTY)),
            FSSTATUS_DIR_NOT_EMPTY);
    }
    key.Delete();
}

void Remove(const StoreName& name, const Arguments& args) {
    const WString path = KeyArgument(args.key);
    const WString value = Wide(args.name.value_or(""));
    if (args.name && args.recursive) throw UsageError("expected -r with a key, not with a value");

    Store store(name, Store::IfMissing::kFail);
    {
        const WriteLock lock(store);
        if (!args.name) {
            RemoveKey(store, path, args.recursive);
        } else if (!store.OpenKey(path).DeleteValue(value)) {
            NotFound(fmt::format("value \"{}\" of key {} in {}", *args.name, ShowKey(path),
                                 store.Name()));
        }
    }
    store.Close();
}

void Rename(const StoreName& name, const Arguments& args) {
    const WString path = KeyArgument(args.key), newName = Wide(*args.name);
    if (newName.empty() || newName.find('\\') != WString::npos) {
        throw UsageError("expected a name without a backslash for NEWNAME");
    }
    if (path.empty()) throw UsageError("expected a key below the root: the root has no name");
    Store store(name, Store::IfMissing::kFail);
    {
        const WriteLock lock(store);
        store.OpenKey(path).Rename(newName);
    }
    store.Close();
}

}  // namespace

void AddEditCommands(Cli& cli) {
    const auto args = std::make_shared<Arguments>();

    CLI::App* create = cli.Command("create", "Make an empty store");
    cli.AddText(create, "STORE", args->store, "the store; it must not be there yet")->required();
    create->callback([&cli, args] { Create(cli.StoreAt(args->store)); });

    CLI::App* set = cli.Command("set", "Set a value; makes its key if needed");
    cli.AddText(set, "STORE", args->store, "the store")->required();
    cli.AddText(set, "KEY", args->key, "the key")->required();
    cli.AddOptionalText(set, "NAME", args->name, "the value; \"\" for the unnamed one")->required();
    cli.AddText(set, "TYPE", args->type,
                "sz, expand_sz, multi_sz, binary, dword, qword, none, or a number")
        ->required();
    cli.AddTexts(set, "DATA", args->data,
                 "a string, strings, a number (decimal or 0x), or bytes as hexadecimal digits; put "
                 "-- in front of the words of a command that begin with a dash");
    set->add_flag("--hex", args->hex, "take DATA for bytes, whatever the type");
    set->callback([&cli, args] { Set(cli.StoreAt(args->store), *args); });

    CLI::App* rm = cli.Command("rm", "Remove a value, or a key with its values");
    cli.AddText(rm, "STORE", args->store, "the store")->required();
    cli.AddText(rm, "KEY", args->key, "the key")->required();
    cli.AddOptionalText(rm, "NAME", args->name, "the value; the key itself if not given");
    rm->add_flag("-r,--recursive", args->recursive, "with all keys below it");
    rm->callback([&cli, args] { Remove(cli.StoreAt(args->store), *args); });

    CLI::App* mv = cli.Command("mv", "Rename a key");
    cli.AddText(mv, "STORE", args->store, "the store")->required();
    cli.AddText(mv, "KEY", args->key, "the key")->required();
    cli.AddOptionalText(mv, "NEWNAME", args->name, "its new name, in the same place")->required();
    mv->callback([&cli, args] { Rename(cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
