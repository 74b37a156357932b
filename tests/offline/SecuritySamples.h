// SPDX-License-Identifier: MIT
// Security text that every conversion understands.
#pragma once

#include "platform/Text.h"

namespace security_test {

inline constexpr const platform::WChar* kUsual[] = {
    WTEXT("O:BAG:SY"),
    WTEXT("O:BAG:SYD:(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)"),
    WTEXT("O:S-1-5-21-1-2-3-1001G:BUD:PAI(A;OICIIOID;GA;;;CO)(D;;KW;;;WD)"),
    WTEXT("D:(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;BA)(A;;RC;;;OW)(A;;KR;;;RC)"),
    WTEXT("D:(A;;0x2000000;;;WD)(A;;FA;;;LS)(A;;GXGR;;;NS)"),
    WTEXT("O:SYG:SYD:S:(AU;SAFA;KA;;;WD)"),
    // Flags of one list stand beside no other list: Wine writes them on both.
    WTEXT("D:AR(A;NP;WD;;;AN)"),
    WTEXT("D:(A;NP;WD;;;AN)S:(AU;CIFA;SD;;;AN)"),
};

}  // namespace security_test
