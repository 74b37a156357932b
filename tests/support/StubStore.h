// SPDX-License-Identifier: MIT
// A store that has no operations; a test overrides those that it needs.
#pragma once

#include <cstring>

#include "FS_Library_DLL/IFSInterface.h"
#include "platform/Heap.h"

namespace support {

// A copy of `text` as stores hand strings out: from the process heap, terminated.
inline WChar* HeapText(const WString& text) {
    const size_t bytes = (text.size() + 1) * sizeof(WChar);
    void* copy = platform::HeapAllocate(bytes);
    std::memcpy(copy, text.c_str(), bytes);
    return static_cast<WChar*>(copy);
}

class StubStore : public IFSInterface {
  public:
    FBR_STATUS FBR_InitialiseEx(const WChar*) override { return kNone; }
    FBR_STATUS FBR_DeInitialiseEx() override { return kNone; }
    FBR_STATUS FBR_CheckFile() override { return kNone; }
    FBR_STATUS FBR_IsCorrupted(uint32_t*) override { return kNone; }
    FBR_STATUS FBR_Compact(uint32_t*) override { return kNone; }
    FBR_STATUS FBR_GetLockEx(uint32_t) override { return kNone; }
    FBR_STATUS FBR_ReleaseLockEx(uint32_t) override { return kNone; }
    FBR_STATUS FBR_GetLockTypeEx(uint32_t*) override { return kNone; }
    FBR_STATUS FBR_DeleteValue(int64_t, const WChar*) override { return kNone; }
    FBR_STATUS FBR_SetValue(int64_t, const WChar*, uint32_t, const void*, uint64_t) override {
        return kNone;
    }
    FBR_STATUS FBR_QueryValue(int64_t, const WChar*, void*, uint64_t, uint64_t*,
                              uint32_t*) override {
        return kNone;
    }
    FBR_STATUS FBR_CreateDirEx(int64_t, const WChar*, FBR_CREATEOPTIONS, int64_t*) override {
        return kNone;
    }
    FBR_STATUS FBR_OpenDirEx(int64_t, const WChar*, int64_t*) override { return kNone; }
    FBR_STATUS FBR_DeleteDirEx(int64_t) override { return kNone; }
    FBR_STATUS FBR_DeleteDirNamedEx(const WChar*) override { return kNone; }
    FBR_STATUS FBR_RenameDirEx(int64_t, const WChar*) override { return kNone; }
    FBR_STATUS FBR_CloseDirEx(int64_t) override { return kNone; }
    FBR_STATUS FBR_EnumIntFileEx(int64_t, uint32_t, WChar**) override { return kNone; }
    FBR_STATUS FBR_EnumIntDirEx(int64_t, uint32_t, WChar**) override { return kNone; }
    FBR_STATUS FBR_GetName_DirEx(int64_t, WChar**) override { return kNone; }
    FBR_STATUS FBR_GetFullName_DirEx(int64_t, WChar**) override { return kNone; }
    FBR_STATUS FBR_DuplicateDirHandleEx(int64_t, int64_t*) override { return kNone; }
    FBR_STATUS FBR_GetDirTimesEx(int64_t, FBR_SYSTEMTIME*) override { return kNone; }
    FBR_STATUS FBR_EnumerateAllValues(int64_t, std::vector<WString>&) override { return kNone; }
    FBR_STATUS FBR_EnumerateAllKeys(int64_t, std::vector<WString>&) override { return kNone; }
    FBR_STATUS FBR_GetKeySecurityString(int64_t, WChar*, uint32_t*) override { return kNone; }
    FBR_STATUS FBR_SetKeySecurityString(int64_t, const WChar*) override { return kNone; }

  private:
    static constexpr FBR_STATUS kNone = FSSTATUS_NOT_IMPLEMENTED;
};

}  // namespace support
