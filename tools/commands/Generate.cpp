// SPDX-License-Identifier: MIT
// The command that writes what others make of the table of commands: generate.
#include <iostream>
#include <memory>

#include "tools/commands/Cli.h"
#include "tools/commands/Grammar.h"

namespace fbr {
namespace {

struct Writer {
    const char* kind;
    void (*write)(const Grammar&, std::ostream&);
};
constexpr Writer kWriters[] = {{"man", WriteManual},
                               {"bash", WriteBash},
                               {"zsh", WriteZsh},
                               {"fish", WriteFish},
                               {"powershell", WritePowerShell}};

void Generate(const Cli& cli, const std::string& kind) {
    for (const Writer& writer : kWriters)
        if (writer.kind == kind) writer.write(cli.AsGrammar(), std::cout);
}

}  // namespace

void AddGenerateCommand(Cli& cli) {
    const auto kind = std::make_shared<std::string>();
    std::vector<std::string> kinds;
    for (const Writer& writer : kWriters) kinds.emplace_back(writer.kind);

    cli.Add("generate", "Write the manual page, or what lets a shell complete the words of fbr")
        .Example("fbr generate man > fbr.1")
        .Example("fbr generate fish > ~/.config/fish/completions/fbr.fish")
        .Example("source <(fbr generate bash)")
        .Choice("KIND", *kind, kinds, "man, bash, zsh, fish or powershell", Need::kRequired)
        .Does([&cli, kind] { Generate(cli, *kind); });
}

}  // namespace fbr
