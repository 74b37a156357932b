// SPDX-License-Identifier: MIT
// What the tool needs of the system around it: its words, its streams, its terminal.
#pragma once

#include <string>
#include <vector>

namespace fbr {

// The words of the command line, in UTF-8, without the name of the program.
std::vector<std::string> CommandLine(int argc, char** argv);

// Lets standard input and output carry bytes as they are, and a terminal show UTF-8. Call it once,
// before the first output.
void PrepareStreams();

// True when the stream is a terminal.
bool InputIsTerminal();
bool OutputIsTerminal();
bool ErrorIsTerminal();
// Columns of the terminal on standard output; 80 when there is none to ask.
unsigned TerminalColumns();

// Calls `handler` when the person or the system asks the program to end; it must be fit for a
// signal handler. Null takes it back.
void OnInterrupt(void (*handler)());
// Has the handler called at the end of the person's session, too, where the system tells of that in
// a way of its own. For a command that stays until it is told to end.
void HearOfSessionEnd();

}  // namespace fbr
