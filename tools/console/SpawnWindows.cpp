// SPDX-License-Identifier: MIT
#include <process.h>
#include <windows.h>

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
        return status == -1 ? 1 : static_cast<int>(status);
    }
    // The shell takes the outermost quotes off.
    WString line = WTEXT("\"");
    for (const WString& word : quoted) line += word + L' ';
    line += WTEXT("| ") + FromWords(pipe) + L'"';
    return _wsystem(line.c_str());
}

}  // namespace fbr
