// SPDX-License-Identifier: MIT
// Each script finds the command among the words so far, and offers the words that may follow: the
// choices of the option in front, options after a dash, commands where there is none yet, and names
// of files for the rest.
#include <fmt/format.h>

#include <functional>

#include "tools/commands/Grammar.h"

namespace fbr {
namespace {

// Every character of `special` behind `escape`.
std::string Escaped(const std::string& text, const char* special, const char* escape) {
    std::string out;
    for (const char c : text) {
        if (std::string(special).find(c) != std::string::npos) out += escape;
        out += c;
    }
    return out;
}

std::vector<std::string> CommandNames(const Grammar& grammar) {
    std::vector<std::string> names;
    for (const GrammarCommand& command : grammar.commands) names.push_back(command.name);
    return names;
}

std::vector<std::string> NamesOf(const std::vector<GrammarWord>& words) {
    std::vector<std::string> names;
    for (const GrammarWord& word : words)
        names.insert(names.end(), word.names.begin(), word.names.end());
    return names;
}

// The options in front of a command that have a word behind them.
std::vector<std::string> WithWord(const Grammar& grammar) {
    std::vector<std::string> names;
    for (const GrammarWord& word : grammar.options)
        if (!word.argument.empty()) names.insert(names.end(), word.names.begin(), word.names.end());
    return names;
}

// Tells `each` which words may stand behind another one: that of an option, or the command's name.
void ForChoices(const Grammar& grammar,
                const std::function<void(const std::string& command, const std::string& before,
                                         const std::vector<std::string>& choices)>& each) {
    const auto of = [&each](const std::string& command, const std::vector<GrammarWord>& words) {
        for (const GrammarWord& word : words)
            for (const std::string& name : word.names)
                if (!word.choices.empty()) each(command, name, word.choices);
    };
    of("", grammar.options);
    for (const GrammarCommand& command : grammar.commands) {
        of(command.name, command.options);
        if (!command.arguments.empty() && !command.arguments[0].choices.empty())
            each(command.name, command.name, command.arguments[0].choices);
    }
}

std::string ZshQuoted(const std::string& text) {
    return "'" + Escaped(Escaped(text, "[]:\\", "\\"), "'", "'\\'") + "'";
}

// What is offered for the word itself.
std::string ZshAction(const GrammarWord& word) {
    if (!word.choices.empty()) return "(" + Joined(word.choices, " ") + ")";
    return word.TakesFolder() ? "_files -/" : word.TakesFile() ? "_files" : " ";
}

std::string ZshOption(const GrammarWord& word) {
    const std::string names = Joined(word.names, ",");
    const std::string tail = word.argument.empty()
                                 ? ""
                                 : ":" + Escaped(word.argument, ":", "\\") + ":" + ZshAction(word);
    const std::string text =
        "'[" + Escaped(Escaped(word.description, "[]\\", "\\"), "'", "'\\'") + "]" + tail + "'";
    if (word.names.size() == 1) return names + text;
    return "'(" + Joined(word.names, " ") + ")'{" + names + "}" + text;
}

std::string ZshArgument(const GrammarWord& word, size_t place) {
    const std::string where = word.many ? "*" : std::to_string(place) + (word.required ? "" : ":");
    return fmt::format("'{}:{}:{}'", where, word.names[0], ZshAction(word));
}

std::string FishQuoted(const std::string& text) {
    return "'" + Escaped(text, "\\'", "\\") + "'";
}

void WriteFishOption(const GrammarWord& word, const std::string& condition, std::ostream& out) {
    out << "complete -c fbr" << condition;
    for (const std::string& name : word.names)
        out << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
    if (!word.choices.empty())
        out << " -x -a " << FishQuoted(Joined(word.choices, " "));
    else if (!word.argument.empty())
        out << (word.TakesFile() || word.TakesFolder() ? " -r" : " -x");
    out << " -d " << FishQuoted(word.description) << '\n';
}

std::string PowerShellQuoted(const std::string& text) {
    return "'" + Escaped(text, "'", "'") + "'";
}

// Each word with what it does behind it.
std::string PowerShellPairs(const std::vector<GrammarWord>& words) {
    std::string out;
    for (const GrammarWord& word : words)
        for (const std::string& name : word.names)
            out += fmt::format("{}{}, {}", out.empty() ? "" : ", ", PowerShellQuoted(name),
                               PowerShellQuoted(word.description));
    return out;
}

}  // namespace

void WriteBash(const Grammar& grammar, std::ostream& out) {
    out << "# Completions for bash, made by fbr generate bash.\n"
           "_fbr() {\n"
           "  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
           "  local command='' words='' i\n"
           "  COMPREPLY=()\n"
           "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
           "    case ${COMP_WORDS[i]} in\n"
        << "      " << Joined(WithWord(grammar), "|") << ") ((++i)) ;;\n"
        << "      " << Joined(CommandNames(grammar), "|")
        << ") command=${COMP_WORDS[i]}; break ;;\n"
           "    esac\n"
           "  done\n"
           "  ((i > COMP_CWORD)) && command=option\n"
           "  case \"$command $before\" in\n";
    ForChoices(grammar, [&out](const auto& command, const auto& before, const auto& choices) {
        out << fmt::format("    {}{} {}') words='{}' ;;\n", command.empty() ? "*'" : "'", command,
                           before, Joined(choices, " "));
    });
    out << "  esac\n"
           "  if [[ -n $words ]]; then\n"
           "    :\n"
           "  elif [[ $current == -* ]]; then\n"
           "    words='"
        << Joined(NamesOf(grammar.options), " ") << "'\n    case $command in\n";
    for (const GrammarCommand& command : grammar.commands)
        if (!command.options.empty())
            out << fmt::format("      {}) words+=' {}' ;;\n", command.name,
                               Joined(NamesOf(command.options), " "));
    out << "    esac\n"
           "  elif [[ -z $command ]]; then\n"
           "    words='"
        << Joined(CommandNames(grammar), " ")
        << "'\n"
           "  fi\n"
           "  [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "}\n"
           "complete -o bashdefault -o default -F _fbr fbr\n";
}

void WriteZsh(const Grammar& grammar, std::ostream& out) {
    out << "#compdef fbr\n"
           "# Completions for zsh, made by fbr generate zsh.\n"
           "_fbr() {\n"
           "  local curcontext=$curcontext state line\n"
           "  typeset -A opt_args\n"
           "  local -a common commands\n"
           "  common=(\n";
    for (const GrammarWord& word : grammar.options) out << "    " << ZshOption(word) << '\n';
    out << "  )\n  commands=(\n";
    for (const GrammarCommand& command : grammar.commands)
        out << "    " << ZshQuoted(command.name) << ":" << ZshQuoted(command.description) << '\n';
    out << "  )\n"
           "  _arguments -C $common '1:command:->command' '*::argument:->arguments' && return\n"
           "  case $state in\n"
           "    command) _describe command commands ;;\n"
           "    arguments)\n"
           "      case $line[1] in\n";
    for (const GrammarCommand& command : grammar.commands) {
        out << "        " << command.name << ") _arguments $common";
        for (const GrammarWord& word : command.options) out << " \\\n          " << ZshOption(word);
        for (size_t i = 0; i < command.arguments.size(); ++i)
            out << " \\\n          " << ZshArgument(command.arguments[i], i + 1);
        out << " ;;\n";
    }
    out << "      esac ;;\n"
           "  esac\n"
           "}\n"
           "if [[ $funcstack[1] == _fbr ]]; then _fbr \"$@\"; else compdef _fbr fbr; fi\n";
}

void WriteFish(const Grammar& grammar, std::ostream& out) {
    out << "# Completions for fish, made by fbr generate fish.\n"
           "function __fbr_is -d 'The command of the line, \"\" for none yet'\n"
           "    set -l words (commandline -opc)\n"
           "    set -e words[1]\n"
           "    while set -q words[1]\n"
           "        switch $words[1]\n"
           "            case "
        << Joined(WithWord(grammar), " ")
        << "\n"
           "                set -e words[1]\n"
           "            case '-*'\n"
           "            case '*'\n"
           "                break\n"
           "        end\n"
           "        set -e words[1]\n"
           "    end\n"
           "    test \"$words[1]\" = \"$argv[1]\"\n"
           "end\n"
           "complete -c fbr -n '__fbr_is \"\"' -f\n";
    for (const GrammarWord& word : grammar.options) WriteFishOption(word, "", out);
    for (const GrammarCommand& command : grammar.commands) {
        out << "complete -c fbr -n '__fbr_is \"\"' -a " << command.name << " -d "
            << FishQuoted(command.description) << '\n';
        const std::string seen = " -n '__fbr_is " + command.name + "'";
        for (const GrammarWord& word : command.options) WriteFishOption(word, seen, out);
        for (const GrammarWord& word : command.arguments)
            if (!word.choices.empty())
                out << "complete -c fbr" << seen << " -f -a "
                    << FishQuoted(Joined(word.choices, " ")) << '\n';
    }
}

void WritePowerShell(const Grammar& grammar, std::ostream& out) {
    const auto list = [](const std::vector<std::string>& words) {
        std::string text;
        for (const std::string& word : words)
            text += (text.empty() ? "" : ", ") + PowerShellQuoted(word);
        return "@(" + text + ")";
    };
    out << "# Completions for PowerShell, made by fbr generate powershell.\n"
           "Register-ArgumentCompleter -Native -CommandName fbr, fbr.exe -ScriptBlock {\n"
           "    param($current, $line, $place)\n"
           "    $withWord = "
        << list(WithWord(grammar)) << "\n    $common = @(" << PowerShellPairs(grammar.options)
        << ")\n    $commands = [ordered]@{\n";
    for (const GrammarCommand& command : grammar.commands)
        out << fmt::format("        '{}' = {}\n", command.name,
                           PowerShellQuoted(command.description));
    out << "    }\n    $options = @{\n";
    for (const GrammarCommand& command : grammar.commands)
        out << fmt::format("        '{}' = @({})\n", command.name,
                           PowerShellPairs(command.options));
    out << "    }\n    $choices = @{\n";
    ForChoices(grammar, [&](const auto& command, const auto& before, const auto& choices) {
        out << fmt::format("        '{} {}' = {}\n", command, before, list(choices));
    });
    out << R"(    }
    $words = @($line.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $place } | ForEach-Object { $_.Extent.Text })
    $command = ''
    for ($i = 0; $i -lt $words.Count -and $command -eq ''; ++$i) {
        if ($withWord -ccontains $words[$i]) { ++$i }
        elseif ($commands.Contains($words[$i])) { $command = $words[$i] }
    }
    $before = if ($words.Count -gt 0) { $words[-1] } else { '' }
    $offered = @()
    if ($choices.ContainsKey("$command $before")) {
        foreach ($word in $choices["$command $before"]) { $offered += $word, $word }
    } elseif ($choices.ContainsKey(" $before")) {
        foreach ($word in $choices[" $before"]) { $offered += $word, $word }
    } elseif ($current.StartsWith('-')) {
        $offered = $common
        if ($command -ne '') { $offered += $options[$command] }
    } elseif ($command -eq '') {
        foreach ($word in $commands.Keys) { $offered += $word, $commands[$word] }
    }
    for ($i = 0; $i -lt $offered.Count; $i += 2) {
        if ($offered[$i].StartsWith($current)) {
            [System.Management.Automation.CompletionResult]::new(
                $offered[$i], $offered[$i], 'ParameterValue', $offered[$i + 1])
        }
    }
}
)";
}

}  // namespace fbr
