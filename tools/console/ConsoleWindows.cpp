// SPDX-License-Identifier: MIT
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#include <stdio.h>

#include <cstdlib>

#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"
#include "tools/format/Text.h"

namespace fbr {

// The run-time library hands over words in the code page of the system, which loses characters.
std::vector<std::string> CommandLine(int, char**) {
    int count = 0;
    LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> out;
    for (int i = 1; i < count; ++i) out.push_back(Utf8(WStringView(words[i])));
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

bool InputIsTerminal() {
    return _isatty(_fileno(stdin)) != 0;
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

// The system ends the program as soon as it has its answer: that waits for the end of main, which
// takes the process along, or for the system's patience, a few seconds.
[[noreturn]] void EndInOrder() {
    g_interrupt();
    Sleep(INFINITE);
    ExitProcess(1);
}

BOOL WINAPI HandleControl(DWORD event) {
    if (g_interrupt == nullptr) return FALSE;
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) EndInOrder();
    g_interrupt();
    return TRUE;
}

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM ends, LPARAM more) {
    if (message == WM_QUERYENDSESSION) return TRUE;
    if (message == WM_ENDSESSION && ends != 0 && g_interrupt != nullptr) EndInOrder();
    return DefWindowProcW(window, message, ends, more);
}

DWORD WINAPI WatchSession(void*) {
    WNDCLASSW kind = {};
    kind.lpfnWndProc = HandleMessage;
    kind.hInstance = GetModuleHandleW(nullptr);
    kind.lpszClassName = L"fbr session";
    if (RegisterClassW(&kind) == 0) return 0;
    // Never shown. A window for messages alone would not be told.
    CreateWindowExW(0, kind.lpszClassName, L"fbr", 0, 0, 0, 0, 0, nullptr, nullptr, kind.hInstance,
                    nullptr);
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    return 0;
}

}  // namespace

void OnInterrupt(void (*handler)()) {
    g_interrupt = handler;
    SetConsoleCtrlHandler(HandleControl, handler != nullptr);
}

// The control events of that kind go to no program that has windows' library in it, as this one has
// through others.
void HearOfSessionEnd() {
    const HANDLE thread = CreateThread(nullptr, 0, WatchSession, nullptr, 0, nullptr);
    if (thread != nullptr) CloseHandle(thread);
}

void EndInterrupted() {
    std::_Exit(130);
}

}  // namespace fbr
