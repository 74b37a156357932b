// SPDX-License-Identifier: MIT
#include "tools/commands/Help.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>

namespace fbr {
namespace {

constexpr size_t kColumn = 30;  // where the parser's own help begins its descriptions

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

void HideStore(CLI::App& command) {
    if (CLI::Option* const store = OptionNamed(command, "STORE")) command.remove_option(store);
    CLI::Option* const to = OptionNamed(command, "--to");
    if (to == nullptr || !to->get_type_name().starts_with(kPlace)) return;
    to->type_name(to->get_type_name().substr(kPlace.find("KEY")));
    to->description("where to: a key, and for a value the name there");
    command.remove_option(OptionNamed(command, "--to-method"));
}

}  // namespace fbr
