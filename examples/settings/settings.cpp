// SPDX-License-Identifier: MIT
// Keeps a program's settings: the C++ interface, which has types and takes the lock by itself.
#include <zrfs/IFBRSettingsFile.h>

#include <cstdio>

int main() {
    const auto settings = CreateFBRSettingsFile(FBR_TEXT("settings.fbr"), FS_VR_METHOD_TARN);
    FBR_STATUS status = settings->Open();
    if (status == FSSTATUS_NOT_FOUND) status = settings->Create(false);
    if (status != FSSTATUS_SUCCESS) {
        std::fprintf(stderr, "settings.fbr: %s\n", FsStatusText(status));
        return 1;
    }
    const IFBRSettingsFile::String key = FBR_TEXT("\\Window");
    IFBRSettingsFile::Bytes bytes;
    uint32_t type = 0, starts = 0;
    if (settings->GetDword(key, FBR_TEXT("Starts"), starts) != FSSTATUS_SUCCESS) {
        settings->SetString(key, FBR_TEXT("Title"), FBR_TEXT("Hello"), true);
    }
    ++starts;
    bytes.assign(reinterpret_cast<uint8_t*>(&starts), reinterpret_cast<uint8_t*>(&starts + 1));
    type = FBR_TYPE_DWORD;
    if (settings->SetRawValue(key, FBR_TEXT("Starts"), bytes, type) != FSSTATUS_SUCCESS) return 1;
    IFBRSettingsFile::Strings names;
    settings->EnumerateValues(key, names);
    std::printf("started %u times, %u values\n", static_cast<unsigned>(starts),
                static_cast<unsigned>(names.size()));
}
