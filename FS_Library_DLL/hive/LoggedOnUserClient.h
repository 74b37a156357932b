// SPDX-License-Identifier: MIT
// Starts the helper process ZrLoggedOnUser, which unloads a hive that this process cannot unload.
#pragma once

#include <windows.h>

#include <string>

// Where the client is installed, in lower case: the value "ClientPath" (or "ClientPath32") of the
// key "Software\Varnhold\Ombrelle" of the machine, at most 260 characters. 0 or a Win32 error.
DWORD GetClientPath(std::wstring& path, bool use32);

// All results are Win32 error codes, 0 for success. The calls block for up to ten seconds; what
// they change about the calling thread's impersonation is undone when they return.
class LoggedOnUserClient {
  public:
    // Has the helper unload the hive mounted as `mount` below HKEY_USERS. The result is the
    // helper's exit code; ERROR_TIMEOUT (1460) when it takes longer than ten seconds, after which
    // it goes on by itself. A helper that cannot be started at all counts as success.
    static DWORD UnloadHive(const std::wstring& mount);

    // The helper's path, without an extension. On failure `path` is the bare name and nothing
    // must be started.
    static DWORD GetAgentPath(std::wstring& path);
    static std::wstring ParseCommandLineHiveUnload(const std::wstring& agentPath,
                                                   const std::wstring& mount);
    // Starts the command line as the user that the calling thread impersonates, and waits.
    static DWORD LaunchProcessAsUser(const std::wstring& commandLine);
    static DWORD LaunchUserProcessWithCommandline(const std::wstring& commandLine);
};
