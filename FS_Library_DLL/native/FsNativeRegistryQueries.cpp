// SPDX-License-Identifier: MIT
// Reading values and enumerating names.
#include <algorithm>

#include "FS_Library_DLL/native/FsNativeRegistryImpl.h"
#include "FS_Library_DLL/native/NativeBuffer.h"
#include "FS_Library_DLL/native/NativeStatus.h"

namespace {

// Information classes of the native calls.
constexpr ULONG kBasicInformation = 0;
constexpr ULONG kFullValueInformation = 1;
constexpr ULONG kNodeInformation = 1;
constexpr ULONG kNameInformation = 3;

// KeyValueFullInformation.
constexpr uint32_t kTypeAt = 4, kDataOffsetAt = 8, kDataLengthAt = 12;
// Room beside the data in the first query of a value.
constexpr uint32_t kSpareBytes = 24;

WChar* HeapText(const void* text, uint32_t bytes) {
    void* room = platform::HeapAllocateZeroed(size_t{bytes} + sizeof(WChar));
    if (room != nullptr) std::memcpy(room, text, bytes);
    return static_cast<WChar*>(room);
}

NTSTATUS GiveText(const void* text, uint32_t bytes, WChar** out) {
    if (out == nullptr) return nt::kSuccess;
    WChar* copy = HeapText(text, bytes);
    if (copy == nullptr) return nt::kNoMemory;
    *out = copy;
    return nt::kSuccess;
}

bool IsTooSmall(NTSTATUS status) {
    return status == nt::kBufferOverflow || status == nt::kInfoLengthMismatch;
}

// The last part of a path that is not empty; the whole path when there is none.
WString LastPart(const WString& path) {
    const size_t end = path.find_last_not_of(L'\\');
    if (end == WString::npos) return path;
    const size_t slash = path.find_last_of(L'\\', end);
    const size_t begin = slash == WString::npos ? 0 : slash + 1;
    return path.substr(begin, end + 1 - begin);
}

}  // namespace

// Where the basic information about a value or a subkey has the name, and how large the first
// buffer is for one answer and for a whole run.
struct FsNativeRegistryImpl::NameLayout {
    uint32_t lengthAt, nameAt, firstBytes, runBytes;
    static const NameLayout kValues, kKeys;
};
const FsNativeRegistryImpl::NameLayout FsNativeRegistryImpl::NameLayout::kValues{8, 12, 16, 4112};
const FsNativeRegistryImpl::NameLayout FsNativeRegistryImpl::NameLayout::kKeys{12, 16, 24, 4120};

NTSTATUS FsNativeRegistryImpl::QueryFullValue(HANDLE key, const WChar* name, nt::Buffer& buffer,
                                              ULONG* needed) {
    return nt::Call(ntDll_->ZwQueryValueKey, key, nt::Name(*ntDll_, name).Get(),
                    kFullValueInformation, buffer.Data(), ULONG{buffer.Size()}, needed);
}

FBR_STATUS FsNativeRegistryImpl::FBR_QueryValue(int64_t key, const WChar* name, void* data,
                                                uint64_t size, uint64_t* outSize,
                                                uint32_t* outType) {
    // Counted in 32 bits, as the native call does.
    const uint32_t room = static_cast<uint32_t>(size) + kSpareBytes;
    if (room == 0) return nt::ToFsStatus(nt::kUnsuccessful);
    nt::Buffer buffer;
    if (!buffer.Reset(room)) return nt::ToFsStatus(nt::kNoMemory);
    ULONG needed = 0;
    NTSTATUS status = QueryFullValue(nt::ToHandle(key), name, buffer, &needed);
    if (status != nt::kSuccess && status != nt::kBufferOverflow) return nt::ToFsStatus(status);

    const uint32_t length = buffer.Number<uint32_t>(kDataLengthAt);
    if (outSize != nullptr) *outSize = length;
    if (outType != nullptr) *outType = buffer.Number<uint32_t>(kTypeAt);
    if (length == 0) return FSSTATUS_SUCCESS;
    if (data == nullptr) return nt::ToFsStatus(status);

    // The answer holds the value's name before its data, so the first buffer may have been too
    // small for data that the caller's buffer has room for.
    const uint32_t wanted = static_cast<uint32_t>(std::min<uint64_t>(length, size));
    if (buffer.At(buffer.Number<uint32_t>(kDataOffsetAt), wanted) == nullptr) {
        if (!buffer.Reset(needed)) return nt::ToFsStatus(nt::kNoMemory);
        const NTSTATUS again = QueryFullValue(nt::ToHandle(key), name, buffer, &needed);
        if (again != nt::kSuccess && again != nt::kBufferOverflow) return nt::ToFsStatus(again);
        if (length <= size) status = again;
    }
    if (const uint8_t* from = buffer.At(buffer.Number<uint32_t>(kDataOffsetAt), wanted)) {
        std::memcpy(data, from, wanted);
        return nt::ToFsStatus(status);
    }
    return nt::ToFsStatus(NT_SUCCESS(status) ? nt::kUnsuccessful : status);
}

FBR_STATUS FsNativeRegistryImpl::FBR_EnumIntFileEx(int64_t key, uint32_t index, WChar** name) {
    return nt::ToFsStatus(
        EnumerateOne(ntDll_->ZwEnumerateValueKey, NameLayout::kValues, key, index, name));
}

FBR_STATUS FsNativeRegistryImpl::FBR_EnumIntDirEx(int64_t key, uint32_t index, WChar** name) {
    return nt::ToFsStatus(
        EnumerateOne(ntDll_->ZwEnumerateKey, NameLayout::kKeys, key, index, name));
}

NTSTATUS FsNativeRegistryImpl::EnumerateOne(EnumerateFunction enumerate, const NameLayout& layout,
                                            int64_t key, uint32_t index, WChar** name) {
    nt::Buffer buffer;
    buffer.Reset(layout.firstBytes);
    ULONG needed = 0;
    const auto ask = [&] {
        return nt::Call(enumerate, nt::ToHandle(key), ULONG{index}, kBasicInformation,
                        buffer.Data(), ULONG{buffer.Size()}, &needed);
    };
    NTSTATUS status = ask();
    if (status == nt::kBufferOverflow && needed != 0) {
        if (!buffer.Reset(needed)) return nt::kNoMemory;
        status = ask();
    }
    if (status != nt::kSuccess) return status;
    const uint32_t bytes = buffer.Number<uint32_t>(layout.lengthAt);
    const uint8_t* text = buffer.At(layout.nameAt, bytes);
    return text == nullptr ? nt::kUnsuccessful : GiveText(text, bytes, name);
}

FBR_STATUS FsNativeRegistryImpl::FBR_EnumerateAllValues(int64_t key, std::vector<WString>& names) {
    return nt::ToFsStatus(
        EnumerateAll(ntDll_->ZwEnumerateValueKey, NameLayout::kValues, key, names));
}

FBR_STATUS FsNativeRegistryImpl::FBR_EnumerateAllKeys(int64_t key, std::vector<WString>& names) {
    return nt::ToFsStatus(EnumerateAll(ntDll_->ZwEnumerateKey, NameLayout::kKeys, key, names));
}

NTSTATUS FsNativeRegistryImpl::EnumerateAll(EnumerateFunction enumerate, const NameLayout& layout,
                                            int64_t key, std::vector<WString>& names) {
    nt::Buffer buffer;
    if (!buffer.Reset(layout.runBytes)) return nt::kNoMemory;
    for (ULONG index = 0;;) {
        ULONG needed = 0;
        const NTSTATUS status = nt::Call(enumerate, nt::ToHandle(key), index, kBasicInformation,
                                         buffer.Data(), ULONG{buffer.Size()}, &needed);
        if (status == nt::kBufferOverflow && needed > buffer.Size()) {
            if (!buffer.Reset(needed)) return nt::kNoMemory;
            continue;
        }
        if (status < 0) return status;
        ++index;
        if (status != nt::kSuccess) continue;
        const uint32_t bytes = buffer.Number<uint32_t>(layout.lengthAt);
        const uint8_t* text = buffer.At(layout.nameAt, bytes);
        if (text == nullptr) return nt::kUnsuccessful;
        names.emplace_back(reinterpret_cast<const WChar*>(text), bytes / sizeof(WChar));
    }
}

NTSTATUS FsNativeRegistryImpl::QueryKeyInformation(HANDLE key, ULONG kind, uint32_t firstBytes,
                                                   nt::Buffer& buffer) {
    ULONG needed = 0;
    buffer.Reset(firstBytes);
    NTSTATUS status =
        nt::Call(ntDll_->ZwQueryKey, key, kind, buffer.Data(), ULONG{buffer.Size()}, &needed);
    if (!IsTooSmall(status)) return status;
    if (!buffer.Reset(needed)) return nt::kNoMemory;
    return nt::Call(ntDll_->ZwQueryKey, key, kind, buffer.Data(), ULONG{buffer.Size()}, &needed);
}

NTSTATUS FsNativeRegistryImpl::QueryKeyName(HANDLE key, WString& name) {
    constexpr uint32_t kFirstBytes = 8, kLengthAt = 0, kNameAt = 4;
    nt::Buffer buffer;
    const NTSTATUS status = QueryKeyInformation(key, kNameInformation, kFirstBytes, buffer);
    if (!NT_SUCCESS(status)) return status;
    const uint32_t bytes = buffer.Number<uint32_t>(kLengthAt);
    const uint8_t* text = buffer.At(kNameAt, bytes);
    if (text == nullptr) return nt::kUnsuccessful;
    name.assign(reinterpret_cast<const WChar*>(text), bytes / sizeof(WChar));
    return status;
}

FBR_STATUS FsNativeRegistryImpl::FBR_GetName_DirEx(int64_t key, WChar** name) {
    WString path;
    NTSTATUS status = QueryKeyName(nt::ToHandle(key), path);
    if (NT_SUCCESS(status)) {
        const WString last = LastPart(path);
        status = GiveText(last.data(), static_cast<uint32_t>(last.size() * sizeof(WChar)), name);
    }
    return nt::ToFsStatus(status);
}

// Only lengths are compared, so that the root's path may differ from the kernel's spelling.
FBR_STATUS FsNativeRegistryImpl::FBR_GetFullName_DirEx(int64_t key, WChar** name) {
    WString path;
    NTSTATUS status = QueryKeyName(nt::ToHandle(key), path);
    if (NT_SUCCESS(status) && path.size() < rootPath_.size()) status = nt::kUnsuccessful;
    if (NT_SUCCESS(status)) {
        path.erase(0, rootPath_.size());
        status = GiveText(path.data(), static_cast<uint32_t>(path.size() * sizeof(WChar)), name);
    }
    return nt::ToFsStatus(status);
}

FBR_STATUS FsNativeRegistryImpl::FBR_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time) {
    static_assert(sizeof(FBR_SYSTEMTIME) == sizeof(SYSTEMTIME));
    constexpr uint32_t kFirstBytes = 32, kLastWriteAt = 0;
    nt::Buffer buffer;
    const NTSTATUS status =
        QueryKeyInformation(nt::ToHandle(key), kNodeInformation, kFirstBytes, buffer);
    if (!NT_SUCCESS(status) || time == nullptr) return nt::ToFsStatus(status);
    const uint64_t ticks = buffer.Number<uint64_t>(kLastWriteAt);
    FILETIME fileTime;
    std::memcpy(&fileTime, &ticks, sizeof fileTime);
    SYSTEMTIME systemTime;
    if (!::FileTimeToSystemTime(&fileTime, &systemTime)) return nt::ToFsStatus(nt::kUnsuccessful);
    std::memcpy(time, &systemTime, sizeof systemTime);
    return nt::ToFsStatus(status);
}
