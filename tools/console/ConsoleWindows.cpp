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

void PrepareStreams() {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    if (_isatty(_fileno(stdout)) || _isatty(_fileno(stderr))) SetConsoleOutputCP(CP_UTF8);
}

bool ErrorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
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
