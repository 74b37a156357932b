// SPDX-License-Identifier: MIT
#include "tools/commands/Cli.h"

namespace fbr {

void AddCommands(Cli& cli) {
    AddEditCommands(cli);
    AddMoveCommands(cli);
    AddListCommand(cli);
    AddBrowseCommands(cli);
    AddFindCommand(cli);
    AddContentCommands(cli);
    AddExportCommand(cli);
    AddImportCommand(cli);
    AddCompareCommands(cli);
    AddIntegrityCommands(cli);
    AddSalvageCommand(cli);
    AddInspectCommands(cli);
    AddServeCommand(cli);
    AddWatchCommand(cli);
    AddViewCommand(cli);
    AddShellCommand(cli);
    AddGenerateCommand(cli);
    AddBatchCommand(cli);
}

}  // namespace fbr
