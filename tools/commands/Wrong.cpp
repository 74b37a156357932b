// SPDX-License-Identifier: MIT
#include "tools/commands/Wrong.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <numeric>

namespace fbr {
namespace {

constexpr char kShield = '\x01';

// How many letters have to be put in, taken out, changed or swapped with their neighbour.
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> before, last(b.size() + 1), next(b.size() + 1);
    std::iota(last.begin(), last.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        next[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            next[j] =
                std::min({last[j] + 1, next[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) next[j] = std::min(next[j], before[j - 2] + 1);
        }
        before = last;
        last = next;
    }
    return last.back();
}

// The command of `all` that `word` is most likely meant to be; empty when none is near.
std::string NearestCommand(const CLI::App& all, const std::string& word) {
    std::string nearest;
    size_t least = std::max<size_t>(2, word.size() / 2) + 1;
    for (const CLI::App* command : all.get_subcommands([](const CLI::App*) { return true; })) {
        const std::string& name = command->get_name();
        // The beginning of a command is near to it, however much is missing.
        const bool begins = !word.empty() && name.starts_with(word);
        const size_t distance = begins ? 1 : Distance(word, name);
        // A short word that has hardly a letter in common is another one.
        if (distance >= least || distance >= std::max(word.size(), name.size())) continue;
        least = distance;
        nearest = name;
    }
    return nearest;
}

// The command that the words begin with, as far as they were understood.
CLI::App& Meant(CLI::App& app) {
    const auto commands = app.get_subcommands();
    return commands.empty() ? app : *commands.front();
}

// What should stand behind an option that has too few words. The parser would count the store that
// a shell puts there.
std::string ExpectedBehind(CLI::App& app, const std::string& told) {
    const std::string name = told.substr(0, told.find(':'));
    for (CLI::App* one : {&Meant(app), &app})
        for (const CLI::Option* option : one->get_options())
            if (option->check_name(name))
                return fmt::format("expected {} behind {}", option->get_type_name(), name);
    return told;
}

// "--format: xml not in {reg,jsonl}" is what the parser tells.
std::string ExpectedOneOf(const std::string& told) {
    constexpr std::string_view kNotIn = " not in {";
    const size_t name = told.find(": "), list = told.rfind(kNotIn);
    if (name == told.npos || list == told.npos || list < name + 2) return told;
    std::string words;
    for (const char c : told.substr(list + kNotIn.size()))
        if (c != '}') words += c == ',' ? ", " : std::string(1, c);
    if (const size_t last = words.rfind(", "); last != words.npos) words.replace(last, 2, " or ");
    return fmt::format("expected {} for {}, not \"{}\"", words, told.substr(0, name),
                       Unshielded(told.substr(name + 2, list - name - 2)));
}

std::string ExpectedNo(CLI::App& app) {
    std::string words;
    for (const std::string& word : app.remaining(true))
        words += fmt::format("{}\"{}\"", words.empty() ? "" : " ", Unshielded(word));
    return fmt::format("expected no {} with {}", words, Meant(app).get_name());
}

// The parser tells of a command that is missing where it does not know the word.
std::string ExpectedCommand(const CLI::App& app) {
    const std::vector<std::string> words = app.remaining();
    const auto word = std::find_if(words.begin(), words.end(), [](const std::string& one) {
        return !one.empty() && one.front() != '-';
    });
    if (word == words.end()) return "expected a command";
    const std::string shown = Unshielded(*word), nearest = NearestCommand(app, shown);
    return fmt::format("expected a command, not \"{}\"{}", shown,
                       nearest.empty() ? "" : fmt::format("; did you mean \"{}\"?", nearest));
}

}  // namespace

std::string Shielded(std::string word) {
    if (!word.empty() && (word.front() == '[' || word.front() == kShield)) {
        word.insert(word.begin(), kShield);
    }
    return word;
}

std::string Unshielded(std::string word) {
    if (!word.empty() && word.front() == kShield) word.erase(word.begin());
    return word;
}

std::string WhatIsWrong(CLI::App& app, const CLI::Error& error) {
    std::string told = error.what();
    const auto is = [kind = error.get_exit_code()](CLI::ExitCodes one) {
        return kind == static_cast<int>(one);
    };
    if (is(CLI::ExitCodes::ArgumentMismatch)) return ExpectedBehind(app, told);
    if (is(CLI::ExitCodes::ValidationError)) return ExpectedOneOf(told);
    if (is(CLI::ExitCodes::ExtrasError)) return ExpectedNo(app);
    if (!is(CLI::ExitCodes::RequiredError)) return told;
    if (app.get_subcommands().empty()) return ExpectedCommand(app);
    return fmt::format("expected {} for {}", told.substr(0, told.find(' ')), Meant(app).get_name());
}

}  // namespace fbr
