// SPDX-License-Identifier: MIT
// Commands that change a store: create, set, rm.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

#include "FS_Library_DLL/SharedStore.h"
#include "tools/commands/Cli.h"
#include "tools/commands/Ends.h"
#include "tools/console/ReadFile.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/NewKeys.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

struct EditArguments {
    std::string store, key, type;
    std::optional<std::string> name;
    std::vector<std::string> data;
    std::optional<std::string> file;
    bool hex = false, recursive = false, wholeStore = false;
};

// Bytes as they are, but text and numbers as a person writes them into a file.
Bytes DataFromFile(uint32_t type, bool hex, const std::string& file) {
    const std::string bytes = ReadInput(file);
    if (!hex && !IsWritten(type)) return {bytes.begin(), bytes.end()};
    try {
        std::string text = Utf8(DecodeTextFile(bytes, [](std::string_view) { return false; }));
        return DataFromText(type, hex, text);
    } catch (const FormatError& error) {
        throw DataError(fmt::format("{}: {}", file, error.what()));
    }
}

std::string TypesInWords() {
    return fmt::format("{}", fmt::join(TypeWords(), ", "));
}

void Create(const StoreName& name) {
    const auto file = FileOf(name);
    std::error_code ignored;
    const auto fail = [&] {
        throw StoreError(fmt::format("cannot create store {}: {}", name.Shown(),
                                     StatusText(FSSTATUS_ALREADY_EXISTS)),
                         FSSTATUS_ALREADY_EXISTS);
    };
    if (file && std::filesystem::exists(*file, ignored)) fail();
    Store store(name, Store::IfMissing::kCreate);
    if (SharedStore* const shared = store.Shared()) {
        if (shared->IsMade()) fail();
        const WriteLock lock(store);  // makes it
    }
    store.Close();
}

void Set(const StoreName& store, const EditArguments& args) {
    const auto type = ParseType(args.type);
    if (!type) {
        throw UsageError(
            fmt::format("expected {} or a number for TYPE, not \"{}\"", TypesInWords(), args.type));
    }
    const WString key = KeyArgument(args.key), name = Wide(*args.name);
    if (args.file && !args.data.empty()) throw UsageError("expected either DATA or --from-file");
    const Bytes data = args.file ? DataFromFile(*type, args.hex, *args.file)
                                 : DataFromWords(*type, args.hex, args.data);

    Store open(store, Store::IfMissing::kFail);
    ExpectNotStoresOwn({open, key}, name);
    {
        const WriteLock lock(open);
        NewKeys made(open, key);
        open.CreateKey(key).Set(name, *type, data);
        made.Stay();
    }
    open.Close();
}

[[noreturn]] void NotFound(const std::string& what) {
    throw StoreError(fmt::format("cannot remove {}: {}", what, StatusText(FSSTATUS_NOT_FOUND)),
                     FSSTATUS_NOT_FOUND);
}

// A key that is the root by a slip takes all along.
void ExpectRootIsMeant(const WString& path, const EditArguments& args) {
    if (!path.empty() && args.wholeStore)
        throw UsageError("expected \"\\\" for KEY with --whole-store");
    if (!path.empty() || args.name) return;
    if (!args.recursive)
        throw UsageError("expected a key below the root: the root cannot be removed");
    if (!args.wholeStore)
        throw UsageError(
            "expected a key below the root: this would empty the store, which rm -r --whole-store "
            "does");
}

void RemoveKey(const Store& store, const WString& path, bool recursive) {
    if (recursive) {
        if (!store.DeleteTree(path)) {
            NotFound(fmt::format("key {} in {}", ShowKey(path), store.Name()));
        }
        return;
    }
    Key key = store.OpenKey(path);
    // Asked first: the library would remove the values before it finds the subkeys.
    if (key.HasSubkeys()) {
        throw StoreError(
            fmt::format("cannot remove key {} in {}: {}; it has subkeys: use -r", ShowKey(path),
                        store.Name(), StatusText(FSSTATUS_DIR_NOT_EMPTY)),
            FSSTATUS_DIR_NOT_EMPTY);
    }
    key.Delete();
}

void Remove(const StoreName& name, const EditArguments& args) {
    const WString path = KeyArgument(args.key);
    const WString value = Wide(args.name.value_or(""));
    if (args.name && args.recursive) throw UsageError("expected -r with a key, not with a value");
    ExpectRootIsMeant(path, args);

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

}  // namespace

void AddEditCommands(Cli& cli) {
    const auto args = std::make_shared<EditArguments>();

    cli.Add("create", "Make an empty store")
        .Example("fbr create settings.fbr")
        .Example("fbr create settings.hiv --method offline")
        .Text("STORE", args->store, Need::kRequired, "the store; it must not be there yet")
        .Does([&cli, args] { Create(cli.StoreToMake(args->store)); });

    cli.Add("set", "Set a value; makes its key if needed")
        .Example("fbr set settings.fbr 'Software\\Hello' Count dword 42")
        .Example("fbr set settings.fbr 'Software\\Hello' Icon binary --from-file icon.png")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kRequired, "the value; \"\" for the unnamed one")
        .Text("TYPE", args->type, Need::kRequired, (TypesInWords() + ", or a number").c_str())
        .Texts("DATA", args->data,
               "a string, strings, a number (decimal or 0x), or bytes as hexadecimal digits; "
               "put -- before the first word that begins with a dash")
        .Flag("--hex", args->hex, "take DATA for bytes, whatever the type")
        .Text("--from-file FILE", args->file, Need::kOptional,
              "DATA from a file, - for standard input: text and numbers as one writes them, of "
              "multi_sz a string a line, bytes as they are")
        .Does([&cli, args] { Set(cli.StoreAt(args->store), *args); });

    cli.Add("rm", "Remove a value, or a key with its values")
        .Example("fbr rm settings.fbr 'Software\\Hello' Count")
        .Example("fbr rm -r settings.fbr 'Software\\Hello'")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kRequired, "the key")
        .Text("NAME", args->name, Need::kOptional, "the value; the key itself if not given")
        .Flag("-r,--recursive", args->recursive, "with all keys below it")
        .Flag("--whole-store", args->wholeStore,
              "with -r and the root, \"\\\", for KEY: all that is in the store")
        .Does([&cli, args] { Remove(cli.StoreAt(args->store), *args); });
}

}  // namespace fbr
