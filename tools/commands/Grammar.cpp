// SPDX-License-Identifier: MIT
#include "tools/commands/Grammar.h"

#include <CLI/CLI.hpp>

#include "tools/commands/Methods.h"
#include "tools/format/TypeNames.h"

namespace fbr {
namespace {

// The parser writes choices behind the name of the type, "TEXT:{reg,jsonl}".
std::vector<std::string> ChoicesIn(const std::string& type) {
    const size_t open = type.find('{'), close = type.find('}');
    if (open == type.npos || close == type.npos) return {};
    return CLI::detail::split(type.substr(open + 1, close - open - 1), ',');
}

// What stands where such a word is called so; the parser takes numbers there, too.
std::vector<std::string> WordsFor(const std::string& called) {
    if (called == "METHOD") return MethodWords();
    if (called == "TYPE") return TypeWords();
    return {};
}

GrammarWord WordOf(const CLI::Option& option) {
    GrammarWord word;
    if (option.get_positional()) {
        word.names.push_back(option.get_name());
    } else {
        for (const std::string& name : option.get_snames()) word.names.push_back("-" + name);
        for (const std::string& name : option.get_lnames()) word.names.push_back("--" + name);
    }
    const std::string type = option.get_type_name();
    word.choices = ChoicesIn(type);
    if (!option.get_positional() && option.get_items_expected_max() != 0)
        word.argument = word.choices.empty() ? type : Joined(word.choices, "|");
    if (word.choices.empty())
        word.choices = WordsFor(option.get_positional() ? word.names[0] : word.argument);
    word.description = option.get_description();
    word.required = option.get_required();
    word.many = option.get_items_expected_max() > 1;
    return word;
}

bool Begins(const GrammarWord& word, const char* text) {
    return (word.names[0][0] == '-' ? word.argument : word.names[0]).starts_with(text);
}

}  // namespace

std::string Joined(const std::vector<std::string>& words, const char* between) {
    return CLI::detail::join(words, between);
}

bool GrammarWord::TakesFile() const {
    return Begins(*this, "STORE") || Begins(*this, "FILE");
}

bool GrammarWord::TakesFolder() const {
    return Begins(*this, "DIR");
}

Grammar GrammarOf(const CLI::App& all, const std::deque<Notes>& notes) {
    Grammar grammar;
    grammar.description = all.get_description();
    for (const CLI::Option* option : all.get_options()) grammar.options.push_back(WordOf(*option));
    for (const CLI::App* app : all.get_subcommands([](const CLI::App*) { return true; })) {
        GrammarCommand command{app->get_name(), app->get_description(), {}, {}, nullptr};
        command.notes = &notes[grammar.commands.size()];
        for (const CLI::Option* option : app->get_options()) {
            if (option->get_name() == "--help") continue;
            auto& list = option->get_positional() ? command.arguments : command.options;
            list.push_back(WordOf(*option));
        }
        grammar.commands.push_back(std::move(command));
    }
    return grammar;
}

std::string Synopsis(const GrammarCommand& command) {
    std::string text = command.name;
    const auto add = [&text](std::string shown, const GrammarWord& word) {
        if (word.many && word.argument.empty()) shown += "...";
        text += word.required ? " " + shown : " [" + shown + "]";
    };
    for (const GrammarWord& word : command.arguments) add(word.names[0], word);
    for (const GrammarWord& word : command.options)
        add(word.names.back() + (word.argument.empty() ? "" : " " + word.argument), word);
    return text;
}

}  // namespace fbr
