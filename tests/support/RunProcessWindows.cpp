#include <windows.h>

#include <stdexcept>

#include "tests/support/RunProcess.h"
#include "tests/support/TempDir.h"

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

std::filesystem::path ProgramNamed(const std::string& name) {
    wchar_t path[4096] = {};
    GetModuleFileNameW(nullptr, path, 4095);
    return std::filesystem::path(path).parent_path() / (name + ".exe");
}

ProcessResult RunProcess(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, const std::string& input) {
    const TempDir dir;
    WriteBytes(dir / "in", Bytes(input.begin(), input.end()));
    STARTUPINFOW start = {};
    start.cb = sizeof(start);
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = OpenStream(dir / "in", GENERIC_READ, OPEN_EXISTING);
    start.hStdOutput = OpenStream(dir / "out", GENERIC_WRITE, CREATE_ALWAYS);
    start.hStdError = OpenStream(dir / "err", GENERIC_WRITE, CREATE_ALWAYS);

    std::wstring line = Quoted(program.wstring());
    for (const std::string& word : arguments) line += L" " + Quoted(platform::FromUtf8(word));
    PROCESS_INFORMATION process = {};
    const BOOL started = CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0,
                                        nullptr, nullptr, &start, &process);
    for (HANDLE stream : {start.hStdInput, start.hStdOutput, start.hStdError}) CloseHandle(stream);
    if (!started) throw std::runtime_error("cannot start " + program.string());

    DWORD status = 0;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    const Bytes out = ReadBytes(dir / "out"), err = ReadBytes(dir / "err");
    return {static_cast<int>(status), std::string(out.begin(), out.end()),
            std::string(err.begin(), err.end())};
}

}  // namespace support
