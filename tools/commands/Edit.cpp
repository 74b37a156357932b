// SPDX-License-Identifier: MIT
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

    cli.Add("create", "Make an empty store")
        .Example("fbr create settings.fbr")
        .Example("fbr create settings.hiv --method offline")
        .Text("STORE", args->store, Need::kRequired, "the store; it must not be there yet")
        .Does([&cli, args] { Create(cli.StoreAt(args->store)); });

    cli.Add("set", "Set a value; makes its key if needed")
        .Example("fbr set settings.fbr 'Software\\Hello' Count dword 42")
        .Example("fbr set settings.fbr 'Software\\Hello' Friends multi_sz Ann Bob")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kRequired, "the value; \"\" for the unnamed one")
        .Text("TYPE", args->type, Need::kRequired,
              "sz, expand_sz, multi_sz, binary, dword, qword, none, or a number")
        .Texts("DATA", args->data,
               "a string, strings, a number (decimal or 0x), or bytes as hexadecimal digits; "
               "put -- before the first word that begins with a dash")
        .Flag("--hex", args->hex, "take DATA for bytes, whatever the type")
        .Does([&cli, args] { Set(cli.StoreAt(args->store), *args); });

    cli.Add("rm", "Remove a value, or a key with its values")
        .Example("fbr rm settings.fbr 'Software\\Hello' Count")
        .Example("fbr rm -r settings.fbr 'Software\\Hello'")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional, "the value; the key itself if not given")
        .Flag("-r,--recursive", args->recursive, "with all keys below it")
        .Does([&cli, args] { Remove(cli.StoreAt(args->store), *args); });

    cli.Add("mv", "Rename a key")
        .Example("fbr mv settings.fbr 'Software\\Hello' Greeting")
        .Example("fbr mv settings.hiv Old New --method offline")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NEWNAME", args->name, Need::kRequired, "its new name, in the same place")
        .Does([&cli, args] { Rename(cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
