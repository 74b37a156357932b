// SPDX-License-Identifier: MIT
#include "tools/commands/ShellWords.h"

#include <algorithm>

#include "tools/commands/ShellLine.h"

namespace fbr {
namespace {

// What one line is made of, by the places of its words.
struct Anatomy {
    const GrammarCommand* command = nullptr;
    std::vector<size_t> standing;  // the command, and what stands by its place
    std::vector<size_t> there;     // what follows an option for a place in a store
    bool own = false;              // that place's store has a method of its own
};

// How many words follow it: of "STORE KEY [NAME]" three at most.
size_t WordsBehind(const GrammarWord& option) {
    const std::string& argument = option.argument;
    if (argument.empty()) return 0;
    return 1 + static_cast<size_t>(std::count(argument.begin(), argument.end(), ' '));
}

bool IsPlace(const GrammarWord& option) {
    return option.argument.starts_with("STORE KEY");
}

const GrammarWord* Find(const std::vector<GrammarWord>& options, const std::string& name) {
    const auto has = [&](const GrammarWord& option) {
        return std::find(option.names.begin(), option.names.end(), name) != option.names.end();
    };
    const auto found = std::find_if(options.begin(), options.end(), has);
    return found == options.end() ? nullptr : &*found;
}

bool IsOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-';
}

const GrammarCommand* CommandNamed(const Grammar& grammar, const std::string& name) {
    const auto found = std::find_if(grammar.commands.begin(), grammar.commands.end(),
                                    [&](const GrammarCommand& one) { return one.name == name; });
    return found == grammar.commands.end() ? nullptr : &*found;
}

Anatomy Look(const Grammar& grammar, const std::vector<std::string>& words) {
    Anatomy all;
    bool options = true;
    for (size_t i = 0; i < words.size(); ++i) {
        if (options && words[i] == "--") {
            options = false;
        } else if (options && IsOption(words[i])) {
            if (words[i].starts_with("--to-method")) all.own = true;
            const GrammarWord* option = Find(grammar.options, words[i]);
            if (option == nullptr && all.command != nullptr)
                option = Find(all.command->options, words[i]);
            if (option == nullptr) continue;
            for (size_t n = WordsBehind(*option); n-- > 0 && i + 1 < words.size();) {
                // Of several words those that are missing end at the next option.
                if (option->many && IsOption(words[i + 1])) break;
                ++i;
                if (IsPlace(*option)) all.there.push_back(i);
            }
        } else {
            if (all.standing.empty()) all.command = CommandNamed(grammar, words[i]);
            all.standing.push_back(i);
        }
    }
    return all;
}

bool TakesStore(const GrammarCommand* command) {
    return command != nullptr && !command->arguments.empty() &&
           command->arguments[0].names[0] == "STORE";
}

// The argument at that place, behind STORE; null if there is none.
const GrammarWord* ArgumentAt(const GrammarCommand& command, size_t place) {
    return place < command.arguments.size() ? &command.arguments[place] : nullptr;
}

}  // namespace

std::vector<std::string> WithStore(const Grammar& grammar, const ShellPlace& place,
                                   const std::vector<std::string>& words) {
    const Anatomy line = Look(grammar, words);
    if (!TakesStore(line.command)) return words;
    const auto whole = [&](const std::string& key) { return '\\' + ResolveKey(place.key, key); };
    const GrammarWord* key = ArgumentAt(*line.command, 1);
    if (key != nullptr && key->names[0] != "KEY") key = nullptr;

    std::vector<std::string> out;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool isKey = (key != nullptr && line.standing.size() > 1 && i == line.standing[1]) ||
                           (!line.there.empty() && i == line.there[0]);
        if (!line.there.empty() && i == line.there[0]) out.push_back(place.store);
        out.push_back(isKey ? whole(words[i]) : words[i]);
        if (i != line.standing[0]) continue;
        out.push_back(place.store);
        if (key != nullptr && !key->required && line.standing.size() == 1) out.push_back(whole(""));
    }
    if (place.method.empty()) return out;
    // In front of all, where no other words can be taken for it.
    if (!line.there.empty() && !line.own)
        out.insert(out.begin() + static_cast<ptrdiff_t>(line.standing[0]) + 1,
                   {"--to-method", place.method});
    out.insert(out.begin(), {"--method", place.method});
    return out;
}

ShellRole RoleOfLast(const Grammar& grammar, const std::vector<std::string>& words) {
    const Anatomy line = Look(grammar, words);
    const size_t last = words.size() - 1;
    if (line.there.size() == 1 && line.there[0] == last) return {ShellRole::kKey, ""};
    if (line.standing.empty() || line.standing.back() != last) return {};
    const size_t place = line.standing.size() - 1;
    if (place == 0) return {ShellRole::kCommand, ""};
    if (words[line.standing[0]] == "cd" && place == 1) return {ShellRole::kKey, ""};
    if (!TakesStore(line.command)) return {};
    const GrammarWord* argument = ArgumentAt(*line.command, place);
    if (argument == nullptr) return {};
    if (argument->names[0] == "KEY") return {ShellRole::kKey, ""};
    if (argument->names[0] == "NAME") return {ShellRole::kValue, words[line.standing[place - 1]]};
    return {};
}

}  // namespace fbr
