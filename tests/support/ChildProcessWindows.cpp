// SPDX-License-Identifier: MIT
#include <windows.h>

#include <stdexcept>

#include "platform/Text.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RunProcess.h"

namespace support {
namespace {

// Quotes a word so that CommandLineToArgvW gives it back: backslashes double before a quote.
std::wstring Quoted(const std::wstring& word) {
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (const wchar_t unit : word) {
        if (unit == L'"') out.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        out += unit;
    }
    return out.append(backslashes, L'\\') + L"\"";
}

HANDLE OpenStream(const std::filesystem::path& path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    const HANDLE file = CreateFileW(path.c_str(), access, FILE_SHARE_READ, &inherit, disposition,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open a stream");
    return file;
}

}  // namespace

std::filesystem::path ThisProgram() {
    wchar_t path[4096] = {};
    GetModuleFileNameW(nullptr, path, 4095);
    return path;
}
std::filesystem::path ProgramNamed(const std::string& name) {
    return ThisProgram().parent_path() / (name + ".exe");
}

ChildProcess::ChildProcess(const std::filesystem::path& program,
                           const std::vector<std::string>& arguments,
                           const std::filesystem::path& streams) {
    STARTUPINFOW start = {};
    start.cb = sizeof(start);
    const bool redirected = !streams.empty();
    if (redirected) {
        start.dwFlags = STARTF_USESTDHANDLES;
        start.hStdInput = OpenStream(streams / "in", GENERIC_READ, OPEN_EXISTING);
        start.hStdOutput = OpenStream(streams / "out", GENERIC_WRITE, CREATE_ALWAYS);
        start.hStdError = OpenStream(streams / "err", GENERIC_WRITE, CREATE_ALWAYS);
    }
    std::wstring line = Quoted(program.wstring());
    for (const std::string& word : arguments) line += L" " + Quoted(platform::FromUtf8(word));
    PROCESS_INFORMATION made = {};
    const BOOL started = CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, redirected,
                                        0, nullptr, nullptr, &start, &made);
    for (HANDLE stream : {start.hStdInput, start.hStdOutput, start.hStdError})
        if (redirected) CloseHandle(stream);
    if (!started) throw std::runtime_error("cannot start " + program.string());
    CloseHandle(made.hThread);
    process_ = reinterpret_cast<intptr_t>(made.hProcess);
}

void ChildProcess::Kill() {
    if (process_ == 0) return;
    TerminateProcess(reinterpret_cast<HANDLE>(process_), 255);
    Wait();
}

int ChildProcess::Wait() {
    const auto handle = reinterpret_cast<HANDLE>(process_);
    DWORD code = 0;
    WaitForSingleObject(handle, INFINITE);
    GetExitCodeProcess(handle, &code);
    CloseHandle(handle);
    process_ = 0;
    return static_cast<int>(code);
}

}  // namespace support
