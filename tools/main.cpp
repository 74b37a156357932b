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
    fbr::AddCommands(cli);
    return cli.Run(fbr::CommandLine(argc, argv));
}
