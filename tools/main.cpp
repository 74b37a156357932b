// SPDX-License-Identifier: MIT
// fbr: the store on the command line.
#include "storage/namespace/MemoryLimits.h"
#include "tools/commands/Cli.h"
#include "tools/console/Console.h"

int main(int argc, char** argv) {
    fbr::PrepareStreams();
    // Its commands go through a tree once, and two have two stores open.
    storage::g_memoryLimits.directoryBytes = 8u << 20;
    fbr::Cli cli;
    fbr::AddEditCommands(cli);
    fbr::AddMoveCommands(cli);
    fbr::AddListCommand(cli);
    fbr::AddBrowseCommands(cli);
    fbr::AddFindCommand(cli);
    fbr::AddContentCommands(cli);
    fbr::AddExportCommand(cli);
    fbr::AddImportCommand(cli);
    fbr::AddCompareCommands(cli);
    fbr::AddIntegrityCommands(cli);
    fbr::AddSalvageCommand(cli);
    fbr::AddInspectCommands(cli);
    fbr::AddServeCommand(cli);
    fbr::AddWatchCommand(cli);
    fbr::AddViewCommand(cli);
    fbr::AddShellCommand(cli);
    fbr::AddGenerateCommand(cli);
    return cli.Run(fbr::CommandLine(argc, argv));
}
