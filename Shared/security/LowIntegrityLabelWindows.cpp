// SPDX-License-Identifier: MIT
#include "Shared/security/LowIntegrityLabelWindows.h"

#include "Shared/logging/Logger.h"
#include "Shared/security/LowIntegrityLabel.h"
#include "platform/Heap.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Security"

namespace security {
namespace {

using Varnhold::Hob::Detail::kError;
using Varnhold::Hob::Detail::kInformation;
using Varnhold::Hob::Detail::kScope;

constexpr NTSTATUS kEntryPointNotFound = static_cast<NTSTATUS>(0xC0000139);
constexpr UCHAR kLabelAceType = 17;
constexpr ULONG kLowLevel = 4096;
constexpr ULONG kSidBytes = 12;
constexpr ULONG kAceOverhead = 8;
constexpr ULONG kAclOverhead = 8;

const LabelFunctions* replacement = nullptr;

const LabelFunctions& Functions() {
    static const LabelFunctions found = LookUpLabelFunctions();
    return replacement != nullptr ? *replacement : found;
}

// An ACE as it lies in an ACL; the SID goes on behind `sidStart`.
struct LabelAce {
    UCHAR type;
    UCHAR flags;
    USHORT size;
    ULONG mask;
    UCHAR sid[kSidBytes];
};
static_assert(sizeof(LabelAce) == kSidBytes + kAceOverhead);

bool LogExit(const char* function, bool result) {
    ZRFS_LOG(kScope, function, "[EXIT] {}.  Return: [{}]", function, result ? "TRUE" : "FALSE");
    return result;
}

void LogEnter(const char* function) {
    ZRFS_LOG(kScope, function, "[ENTER] {}", function);
}

bool Succeeded(const char* function, const char* call, NTSTATUS status) {
    // Not "== 0": some systems answer 1 where a status is documented.
    if (status >= 0) return true;
    ZRFS_LOG(kError, function, "{} failed. Status: [{:X}]", call, static_cast<unsigned>(status));
    return false;
}

bool InitialiseSID(PSID sid) {
    constexpr const char* kName = "InitialiseSID";
    LogEnter(kName);
    const LabelFunctions& nt = Functions();
    SID_IDENTIFIER_AUTHORITY authority = {{0, 0, 0, 0, 0, 16}};
    const bool complete = nt.initializeSid && nt.subAuthoritySid && nt.validSid;
    const NTSTATUS status = complete ? nt.initializeSid(sid, &authority, 1) : kEntryPointNotFound;
    if (!Succeeded(kName, "RtlInitializeSid", status)) return LogExit(kName, false);
    *nt.subAuthoritySid(sid, 0) = kLowLevel;
    return LogExit(kName, nt.validSid(sid) != 0);
}

bool CreateACE(PSID sid, LabelAce* ace) {
    constexpr const char* kName = "CreateACE";
    LogEnter(kName);
    const LabelFunctions& nt = Functions();
    if (nt.lengthSid == nullptr || nt.lengthSid(sid) != kSidBytes) return LogExit(kName, false);
    ace->type = kLabelAceType;
    ace->flags = 0;
    ace->size = sizeof(LabelAce);
    ace->mask = 0;
    memcpy(ace->sid, sid, kSidBytes);
    return LogExit(kName, true);
}

bool InitialiseSACL(ACL* acl, ULONG bytes, LabelAce* ace) {
    constexpr const char* kName = "InitialiseSACL";
    LogEnter(kName);
    const LabelFunctions& nt = Functions();
    const bool made =
        nt.createAcl && nt.addAce &&
        Succeeded(kName, "RtlCreateAcl", nt.createAcl(acl, bytes, ACL_REVISION)) &&
        Succeeded(kName, "RtlAddAce", nt.addAce(acl, ACL_REVISION, 0, ace, ace->size));
    return LogExit(kName, made);
}

// On success *acl is the caller's, to be given to HeapRelease.
bool CreateSACL(void** acl) {
    constexpr const char* kName = "CreateSACL";
    LogEnter(kName);
    alignas(SID) UCHAR sid[kSidBytes] = {};
    LabelAce ace;
    if (!InitialiseSID(sid) || !CreateACE(sid, &ace)) return LogExit(kName, false);
    const ULONG bytes = ace.size + kAclOverhead;
    void* made = platform::HeapAllocate(bytes);
    if (made == nullptr) return LogExit(kName, false);
    if (!InitialiseSACL(static_cast<ACL*>(made), bytes, &ace)) {
        platform::HeapRelease(made);
        return LogExit(kName, false);
    }
    *acl = made;
    return LogExit(kName, true);
}

bool SetSaclSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, void* acl) {
    constexpr const char* kName = "SetSaclSecurityDescriptor";
    LogEnter(kName);
    const LabelFunctions& nt = Functions();
    const bool set =
        nt.createSecurityDescriptor && nt.setSaclSecurityDescriptor && nt.validSecurityDescriptor &&
        Succeeded(kName, "RtlCreateSecurityDescriptor",
                  nt.createSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION)) &&
        Succeeded(kName, "RtlSetSaclSecurityDescriptor",
                  nt.setSaclSecurityDescriptor(descriptor, TRUE, static_cast<ACL*>(acl), FALSE));
    if (!set) return LogExit(kName, false);
    const bool valid = nt.validSecurityDescriptor(descriptor) != 0;
    ZRFS_LOG(kInformation, kName, "Security Descriptor is: [{}]", valid ? "Valid" : "Invalid");
    return LogExit(kName, valid);
}

bool IsPostVistaOS() {
    constexpr const char* kName = "IsPostVistaOS";
    LogEnter(kName);
    OSVERSIONINFOEXW wanted{};
    static_assert(sizeof(wanted) == 284);
    wanted.dwOSVersionInfoSize = sizeof(wanted);
    wanted.dwMajorVersion = 6;
    ULONGLONG atLeast = VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
    atLeast = VerSetConditionMask(atLeast, VER_MINORVERSION, VER_GREATER_EQUAL);
    atLeast = VerSetConditionMask(atLeast, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
    const DWORD compared = VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR;
    return LogExit(kName, VerifyVersionInfoW(&wanted, compared, atLeast) != 0);
}

template <class Function>
void LookUp(HMODULE module, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace

LabelFunctions LookUpLabelFunctions() {
    LabelFunctions found;
    HMODULE module = GetModuleHandleW(L"NtDll.dll");
    if (module == nullptr) return found;
    LookUp(module, "RtlInitializeSid", &found.initializeSid);
    LookUp(module, "RtlSubAuthoritySid", &found.subAuthoritySid);
    LookUp(module, "RtlValidSid", &found.validSid);
    LookUp(module, "RtlLengthSid", &found.lengthSid);
    LookUp(module, "RtlCreateAcl", &found.createAcl);
    LookUp(module, "RtlAddAce", &found.addAce);
    LookUp(module, "RtlCreateSecurityDescriptor", &found.createSecurityDescriptor);
    LookUp(module, "RtlSetSaclSecurityDescriptor", &found.setSaclSecurityDescriptor);
    LookUp(module, "RtlValidSecurityDescriptor", &found.validSecurityDescriptor);
    return found;
}

void SetLabelFunctions(const LabelFunctions* functions) {
    replacement = functions;
}

LowIntegrityLabel::LowIntegrityLabel() {
    static_assert(sizeof(descriptor_) >= sizeof(SECURITY_DESCRIPTOR));
    if (!IsPostVistaOS() || !CreateSACL(&acl_)) return;
    if (!SetSaclSecurityDescriptor(descriptor_, acl_)) return;
    auto* made =
        static_cast<SECURITY_ATTRIBUTES*>(platform::HeapAllocate(sizeof(SECURITY_ATTRIBUTES)));
    if (made == nullptr) return;
    static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);
    *made = {sizeof(SECURITY_ATTRIBUTES), descriptor_, FALSE};
    attributes_ = made;
}

LowIntegrityLabel::~LowIntegrityLabel() {
    platform::HeapRelease(acl_);
    platform::HeapRelease(attributes_);
}

}  // namespace security
