// SPDX-License-Identifier: MIT
// find: keys and values by their names, data, types and times.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Shown.h"
#include "tools/console/Interrupt.h"
#include "tools/format/Json.h"
#include "tools/format/Matching.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/store/Place.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

struct FindArguments {
    std::string store, key;
    std::optional<std::string> name, data, type, since;
    bool regex = false;
};

// What the words ask for.
struct Wanted {
    std::optional<Pattern> name, data;
    std::optional<uint32_t> type;
    std::optional<int64_t> since;

    bool NameFits(WStringView one) const { return !name || name->Fits(one); }
    bool TimeFits(const Key& key, const OnLoss& onLoss) const {
        if (!since) return true;
        const auto time = key.Time();
        if (!time) onLoss(key.Show() + " may have been changed since, for its time cannot be had");
        return time && SecondsSince1970(time->wYear, time->wMonth, time->wDay, time->wHour,
                                        time->wMinute, time->wSecond) >= *since;
    }
    // A key has neither type nor data.
    bool Keys() const { return !data && !type; }
};

int64_t Now() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

Wanted WantedBy(const FindArguments& args) {
    Wanted wanted;
    try {
        if (args.name)
            wanted.name =
                args.regex ? Pattern::Regex(Wide(*args.name)) : Pattern::Glob(Wide(*args.name));
        if (args.data)
            wanted.data =
                args.regex ? Pattern::Regex(Wide(*args.data)) : Pattern::Piece(Wide(*args.data));
    } catch (const PatternError& error) {
        throw UsageError(error.what());
    }
    if (args.type && !(wanted.type = ParseType(*args.type)))
        throw UsageError(fmt::format("expected {} or a number after --type, not \"{}\"",
                                     fmt::join(TypeWords(), ", "), *args.type));
    if (args.since && !(wanted.since = ParseMoment(*args.since, Now())))
        throw UsageError(
            "expected a time as 2026-11-22, \"2026-11-22 08:18\" or 3d after --since, "
            "not \"" +
            *args.since + "\"");
    return wanted;
}

// Each match is out before the next one is looked for, unless they come thick and fast.
class Matches {
  public:
    explicit Matches(const Cli& cli) : cli_(cli) {}

    void Key(const fbr::Key& key) {
        if (cli_.Json()) {
            JsonObject line(JsonObject::Place::kLine);
            line.Text("key", KeyInJson(key.Path()));
            AddTime(line, "time", key.Time());
            return Out(line.Done());
        }
        Out(Colored(cli_.Colored(), Color::kBlue, ShowKey(key.Path()) + "\\"));
    }

    void Value(const fbr::Key& key, const WString& name, const fbr::Value& value) {
        if (cli_.Json())
            return Out(JsonObject(JsonObject::Place::kLine)
                           .Text("key", KeyInJson(key.Path()))
                           .Text("name", name)
                           .Data(value.type, value.data)
                           .Done());
        const std::string shown = name.empty() ? "(Default)" : "\"" + Printable(name) + "\"";
        Out(ShowKey(key.Path()) + " " + shown + " " + ShowTypeAndData(value));
    }

    uint64_t Count() const { return count_; }

  private:
    void Out(const std::string& line) {
        constexpr auto kPause = std::chrono::milliseconds(50);
        std::cout << line << '\n';
        const auto now = std::chrono::steady_clock::now();
        if (++count_ == 1 || now >= next_) {
            std::cout.flush();
            next_ = now + kPause;
        }
        if (!std::cout) throw std::runtime_error("cannot write to standard output");
    }

    const Cli& cli_;
    uint64_t count_ = 0;
    std::chrono::steady_clock::time_point next_;
};

// Ends a search whose answer is known.
struct Enough {};

void Search(const Cli& cli, const Place& place, const Wanted& wanted, Matches& matches,
            const OnLoss& onLoss) {
    WalkKeys(place.store, place.key, onLoss, [&](const Key& key) {
        if (cli.Quiet() && matches.Count() != 0) throw Enough();
        if (!wanted.TimeFits(key, onLoss)) return;
        const WStringView relative = PathBelow(key.Path(), place.key);
        const WStringView own = relative.substr(relative.rfind(WChar{'\\'}) + 1);
        if (wanted.Keys() && !relative.empty() && wanted.NameFits(own)) matches.Key(key);
        for (const WString& name : ReachableValues(key, onLoss)) {
            if (!wanted.NameFits(name) || IsStoresOwn(place, relative, name)) continue;
            const auto value = TryGet(key, name, onLoss);
            if (!value || (wanted.type && *wanted.type != value->type)) continue;
            if (wanted.data && !wanted.data->FitsData(value->type, value->data)) continue;
            matches.Value(key, name, *value);
        }
    });
}

void Find(Cli& cli, const FindArguments& args) {
    const Wanted wanted = WantedBy(args);
    const WString key = KeyArgument(args.key);
    const Store store(cli.StoreAt(args.store), Store::IfMissing::kFail);
    if (wanted.since && store.IsText())
        throw UsageError("expected no --since with " + store.Name() +
                         ": it is text, which keeps no times");
    const ReadLock lock(store);
    Matches matches(cli);
    try {
        Search(cli, {store, key}, wanted, matches,
               [&cli](const std::string& text) { cli.TellLoss(text); });
    } catch (const Enough&) {
    }
    if (matches.Count() == 0) cli.SetExitStatus(kExitNo);
    if (cli.Json())
        std::cout << JsonObject(JsonObject::Place::kLine)
                         .Number("matches", matches.Count())
                         .Number("status", static_cast<uint64_t>(cli.Status()))
                         .Done()
                  << '\n';
}

}  // namespace

void AddFindCommand(Cli& cli) {
    const auto args = std::make_shared<FindArguments>();
    cli.Add("find", "Look for keys and values by name, data, type and time; 3 when there is none")
        .Tells()
        .No("nothing is found")
        .Example("fbr find settings.fbr --name '*path*'")
        .Example("fbr find settings.fbr Software --type dword --data 42 --since 3d")
        .Text("STORE", args->store, Need::kRequired, "the store")
        .Text("KEY", args->key, Need::kOptional, "the key to look below; the root if not given")
        .Text("--name GLOB", args->name, Need::kOptional,
              "keys and values of that name; * stands for anything, ? for one character")
        .Text("--data TEXT", args->data, Need::kOptional,
              "values that hold the text; of numbers those that are it; of bytes, in hexadecimal")
        .Text("--type TYPE", args->type, Need::kOptional, "values of that type, as for set")
        .Flag("--regex", args->regex,
              "GLOB and TEXT are regular expressions that are to be found somewhere")
        .Text("--since TIME", args->since, Need::kOptional,
              "in keys changed since: 2026-11-22, \"2026-11-22 08:18\" (UTC), or 90s 10m 2h 3d 1w "
              "ago")
        .Does([&cli, args] { Find(cli, *args); });
}

}  // namespace fbr
