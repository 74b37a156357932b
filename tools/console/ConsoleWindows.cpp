#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#include <stdio.h>

#include "tools/console/Console.h"
#include "tools/format/Text.h"

namespace fbr {

// The run-time library hands over words in the code page of the system, which loses characters.
std::vector<std::string> CommandLine(int, char**) {
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> out;
    for (int i = 1; i < count; ++i) out.push_back(Utf8(words[i]));
    LocalFree(words);
    return out;
}

namespace {

// Colours and wiped lines are escape sequences; a console takes them when it is told to.
void UnderstandEscapes(DWORD stream) {
    DWORD mode = 0;
    const HANDLE handle = GetStdHandle(stream);
    if (!GetConsoleMode(handle, &mode)) return;
    SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

}  // namespace

void PrepareStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    if (OutputIsTerminal() || ErrorIsTerminal()) SetConsoleOutputCP(CP_UTF8);
    for (const DWORD stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) UnderstandEscapes(stream);
}

bool OutputIsTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

bool ErrorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

unsigned TerminalColumns() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return 80;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

namespace {

void (*g_interrupt)() = nullptr;

BOOL WINAPI HandleControl(DWORD) {
    if (g_interrupt == nullptr) return FALSE;
    g_interrupt();
    return TRUE;
}

}  // namespace

void OnInterrupt(void (*handler)()) {
    g_interrupt = handler;
    SetConsoleCtrlHandler(HandleControl, handler != nullptr);
}

}  // namespace fbr
