// SPDX-License-Identifier: MIT
// For systems without mandatory labels.
#include "Shared/security/LowIntegrityLabel.h"

namespace security {

LowIntegrityLabel::LowIntegrityLabel() : descriptor_{} {}

LowIntegrityLabel::~LowIntegrityLabel() = default;

}  // namespace security
