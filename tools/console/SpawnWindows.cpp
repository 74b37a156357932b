// SPDX-License-Identifier: MIT
#include <process.h>
#include <windows.h>

#include <cstdlib>
#include <iostream>

#include "tools/console/Spawn.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

// As the C run time takes a command line apart again.
WString Quoted(const WString& word) {
    WString out = WTEXT("\"");
    size_t backslashes = 0;
    for (const wchar_t c : word) {
        if (c == L'"') out.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        out += c;
    }
    out.append(backslashes, L'\\');
    return out + L'"';
}

WString FromWords(const std::string& utf8) {
    WString out;
    FromStrictUtf8(utf8, out);
    return out;
}

// The system's own where no variable names one.
WString SystemShell() {
    if (const wchar_t* named = _wgetenv(L"COMSPEC")) return named;
    WString path(MAX_PATH, 0);
    path.resize(GetSystemDirectoryW(path.data(), MAX_PATH));
    return path + WTEXT("\\cmd.exe");
}

int Told(intptr_t status, const char* what) {
    if (status == -1) std::cerr << "fbr: cannot run " << what << std::endl;
    return status == -1 ? 1 : static_cast<int>(status);
}

}  // namespace

int RunAgain(const std::vector<std::string>& words, const std::string& pipe) {
    WString program(32768, 0);
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    std::vector<WString> quoted = {Quoted(program)};
    for (const std::string& word : words) quoted.push_back(Quoted(FromWords(word)));
    if (pipe.empty()) {
        std::vector<const wchar_t*> arguments;
        for (const WString& word : quoted) arguments.push_back(word.c_str());
        arguments.push_back(nullptr);
        const intptr_t status = _wspawnv(_P_WAIT, program.c_str(), arguments.data());
        return Told(status, "a command");
    }
    // With /s the shell takes the outermost quotes off, and nothing else.
    WString line = WTEXT("\"");
    for (const WString& word : quoted) line += word + L' ';
    line += WTEXT("| ") + FromWords(pipe) + L'"';
    const WString shell = SystemShell();
    return Told(_wspawnl(_P_WAIT, shell.c_str(), L"cmd.exe", L"/s", L"/c", line.c_str(), nullptr),
                "the shell of the system, which gives the output to a program");
}

}  // namespace fbr
