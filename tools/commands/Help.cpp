// SPDX-License-Identifier: MIT
#include "tools/commands/Help.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <numeric>

namespace fbr {
namespace {

constexpr size_t kColumn = 30;  // where the parser's own help begins its descriptions

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

std::string OptionLines(const CLI::App& all) {
    std::string text;
    for (const CLI::Option* option : all.get_options()) {
        if (option->get_lnames().empty() || option->get_name() == "--version" ||
            option->get_name() == "--help")
            continue;
        std::string name = "  " + option->get_name(false, true);
        if (!option->get_type_name().empty()) name += " " + option->get_type_name();
        if (name.size() >= kColumn) name += fmt::format("\n{:{}}", "", kColumn);
        text += fmt::format("{:{}}{}\n", name, kColumn, option->get_description());
    }
    return text;
}

constexpr std::string_view kPlace = "STORE KEY";  // what begins the words of a place

CLI::Option* OptionNamed(CLI::App& app, const std::string& name) {
    const auto options = app.get_options();
    const auto has = [&name](const CLI::Option* option) { return option->check_name(name); };
    const auto found = std::find_if(options.begin(), options.end(), has);
    return found == options.end() ? nullptr : *found;
}

}  // namespace

std::string ExitStatusLines(const std::string& no) {
    std::string text =
        "  0    done\n"
        "  1    failed, or something was left out\n"
        "  2    wrong usage\n";
    if (!no.empty()) text += "  3    the answer is no: " + no + "\n";
    return text +
           "  4    busy: somebody else holds the store\n"
           "  130  interrupted\n";
}

std::string HelpFooter(const CLI::App& all, const Notes& notes, bool examples) {
    std::string text = "With every command:\n" + OptionLines(all);
    if (examples) {
        text += "\nExamples:\n";
        for (const std::string& example : notes.examples) text += "  " + example + "\n";
    }
    text += "\nExit status:\n" + ExitStatusLines(notes.no);
    text.pop_back();
    return text;
}

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

void HideStore(CLI::App& command) {
    if (CLI::Option* const store = OptionNamed(command, "STORE")) command.remove_option(store);
    CLI::Option* const to = OptionNamed(command, "--to");
    if (to == nullptr || !to->get_type_name().starts_with(kPlace)) return;
    to->type_name(to->get_type_name().substr(kPlace.find("KEY")));
    to->description("where to: a key, and for a value the name there");
    command.remove_option(OptionNamed(command, "--to-method"));
}

std::string ExpectedBehind(const CLI::App& app, const std::string& told) {
    const std::string name = told.substr(0, told.find(':'));
    for (CLI::App* command : app.get_subcommands())
        if (const CLI::Option* option = OptionNamed(*command, name))
            return fmt::format("expected {} behind {}", option->get_type_name(), name);
    return told;
}

}  // namespace fbr
