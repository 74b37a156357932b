// SPDX-License-Identifier: MIT
// Each script finds the command among the words so far, and offers the words that may follow: the
// choices of the option in front, options after a dash, commands where there is none yet, the
// choices of the argument that comes next, and names of files for the rest.
#include <fmt/format.h>

#include <functional>
#include <set>

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

// The options that have a word behind them, of all commands: none has one here and none there.
std::vector<std::string> WithWord(const Grammar& grammar) {
    std::set<std::string> names;
    const auto add = [&names](const std::vector<GrammarWord>& options) {
        for (const GrammarWord& word : options)
            if (!word.argument.empty()) names.insert(word.names.begin(), word.names.end());
    };
    add(grammar.options);
    for (const GrammarCommand& command : grammar.commands) add(command.options);
    return {names.begin(), names.end()};
}

using Choices = std::function<void(const std::string& command, const std::string& where,
                                   const std::vector<std::string>& choices)>;

// Tells `each` which words may stand behind an option. Those of all commands have none.
void ForOptions(const Grammar& grammar, const Choices& each) {
    const auto of = [&each](const std::string& command, const std::vector<GrammarWord>& words) {
        for (const GrammarWord& word : words)
            for (const std::string& name : word.names)
                if (!word.choices.empty()) each(command, name, word.choices);
    };
    of("", grammar.options);
    for (const GrammarCommand& command : grammar.commands) of(command.name, command.options);
}

// The same for arguments, by how many stand in front of it.
void ForArguments(const Grammar& grammar, const Choices& each) {
    for (const GrammarCommand& command : grammar.commands)
        for (size_t i = 0; i < command.arguments.size(); ++i)
            if (!command.arguments[i].choices.empty())
                each(command.name, std::to_string(i), command.arguments[i].choices);
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
    // Behind a "=" its word may stand in the same one.
    std::vector<std::string> forms = word.names;
    for (std::string& name : forms)
        if (!word.argument.empty() && name.starts_with("--")) name += '=';
    const std::string names = Joined(forms, ",");
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
    const auto write = [&out](const auto& command, const auto& where, const auto& choices) {
        out << fmt::format("      {}{} {}') words='{}' ;;\n", command.empty() ? "*'" : "'", command,
                           where, Joined(choices, " "));
    };
    // An option with its word behind a "=" comes as three words.
    out << R"(# Completions for bash, made by fbr generate bash.
_fbr() {
  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}
  local command='' words='' place=0 i
  COMPREPLY=()
  [[ $current == = ]] && current=''
  [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD-2]}
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
)"
        << "      " << Joined(WithWord(grammar), "|") << R"()
        ((++i))
        [[ ${COMP_WORDS[i]} == = ]] && ((i < COMP_CWORD)) && ((++i)) ;;
      -?*) ;;
      *) if [[ -z $command ]]; then command=${COMP_WORDS[i]}; else ((++place)); fi ;;
    esac
  done
  if ((i > COMP_CWORD)); then
    case "$command $before" in
)";
    ForOptions(grammar, write);
    out << R"(    esac
  elif [[ $current == -* ]]; then
    words=')"
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
           "  else\n"
           "    case \"$command $place\" in\n";
    ForArguments(grammar, write);
    out << R"(    esac
  fi
  [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o bashdefault -o default -F _fbr fbr
)";
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
    out << R"(# Completions for fish, made by fbr generate fish.
function __fbr_at -d 'Behind COMMAND, "" for none yet, and if PLACE is given so many words'
    set -l words (commandline -opc)
    set -e words[1]
    set -l command ''
    set -l place 0
    while set -q words[1]
        switch $words[1]
            case )"
        << Joined(WithWord(grammar), " ") << R"(
                set -e words[1]
            case '-?*'
            case '*'
                if test -z "$command"
                    set command $words[1]
                else
                    set place (math $place + 1)
                end
        end
        set -e words[1]
    end
    test "$command" = "$argv[1]"; or return
    not set -q argv[2]; or test $place = $argv[2]
end
complete -c fbr -n '__fbr_at ""' -f
)";
    for (const GrammarWord& word : grammar.options) WriteFishOption(word, "", out);
    for (const GrammarCommand& command : grammar.commands) {
        out << "complete -c fbr -n '__fbr_at \"\"' -a " << command.name << " -d "
            << FishQuoted(command.description) << '\n';
        const std::string seen = " -n '__fbr_at " + command.name + "'";
        for (const GrammarWord& word : command.options) WriteFishOption(word, seen, out);
    }
    ForArguments(grammar, [&out](const auto& command, const auto& place, const auto& choices) {
        out << fmt::format("complete -c fbr -n '__fbr_at {} {}' -f -a {}\n", command, place,
                           FishQuoted(Joined(choices, " ")));
    });
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
    const auto write = [&](const auto& command, const auto& where, const auto& choices) {
        out << fmt::format("        '{} {}' = {}\n", command, where, list(choices));
    };
    ForOptions(grammar, write);
    ForArguments(grammar, write);
    out << R"(    }
    $words = @($line.CommandElements | Select-Object -Skip 1 |
        Where-Object { $_.Extent.EndOffset -lt $place } | ForEach-Object { $_.Extent.Text })
    $command = ''
    $standing = 0
    for ($i = 0; $i -lt $words.Count; ++$i) {
        if ($withWord -ccontains $words[$i]) { ++$i }
        elseif ($words[$i] -like '-?*') { }
        elseif ($command -eq '') { $command = $words[$i] }
        else { ++$standing }
    }
    $where = if ($i -gt $words.Count) { $words[-1] } else { $standing }
    $offered = @()
    if ($choices.ContainsKey("$command $where")) {
        foreach ($word in $choices["$command $where"]) { $offered += $word, $word }
    } elseif ($choices.ContainsKey(" $where")) {
        foreach ($word in $choices[" $where"]) { $offered += $word, $word }
    } elseif ($i -gt $words.Count) {
    } elseif ($current.StartsWith('-')) {
        $offered = $common
        if ($options.ContainsKey($command)) { $offered += $options[$command] }
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
