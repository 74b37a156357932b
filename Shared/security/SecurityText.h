// SPDX-License-Identifier: MIT
// Security descriptors as text (SDDL), on systems that have no conversion of their own.
//
// Owner (O:), group (G:), discretionary list (D:) and system list (S:) with the flags P, AR, AI and
// NO_ACCESS_CONTROL; entries of the kinds A, D, AU, AL and ML; rights by the usual two letters or
// as a number; SIDs in full or by the two letters of a well-known one. Names that stand for a SID
// of some domain are unknown here.
#pragma once

#include <cstdint>

#include "Shared/security/SecurityDescriptor.h"
#include "platform/Text.h"

namespace security {

inline constexpr uint32_t kErrorInvalidAcl = 1336;
inline constexpr uint32_t kErrorInvalidSid = 1337;
inline constexpr uint32_t kErrorInvalidDescriptor = 1338;

// 0 and the self-relative descriptor, or kErrorInvalidParameter for text of another shape,
// kErrorInvalidAcl for an entry that is not understood, kErrorInvalidSid for an unknown SID.
// Throws std::bad_alloc.
uint32_t ParseSecurityText(const platform::WChar* text, Bytes* descriptor);

// The parts that `information` names, as text; ParseSecurityText gives the same descriptor back.
// 0, kErrorInvalidDescriptor, or kErrorInvalidAcl for an entry of another kind. Throws
// std::bad_alloc.
uint32_t FormatSecurityText(View descriptor, uint32_t information, platform::WString* text);

}  // namespace security
