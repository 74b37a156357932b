// SPDX-License-Identifier: MIT
// Writes a registry export, "Windows Registry Editor Version 5.00", as regedit does: UTF-16 with a
// byte-order mark, CR LF, hexadecimal data wrapped at the same columns.
//
// A name of a value may hold any character: a line end is written \r or \n. A key line has no
// escapes of its own, so what it cannot carry (CR, LF, and a "-" at its very start, which would
// mean a deletion) stands as two backslashes, "u" and four hexadecimal digits; two backslashes
// never meet in a key line otherwise. RegReader reads all that back.
#pragma once

#include <ostream>
#include <string>

#include "tools/format/Record.h"

namespace fbr {

enum class RegForm {
    kUtf16,
    kUtf8,      // the same text in UTF-8, without a mark
    kRegedit4,  // header "REGEDIT4", the text and that of hex(1), hex(2) and hex(7) in code page
                // 1252
};

class RegWriter : public RecordSink {
  public:
    // `out` is open in binary mode and outlives the writer. `prefix` is put in front of each key
    // and has no backslash at either end; empty for none. Writes the header.
    RegWriter(std::ostream& out, platform::WString prefix, RegForm form = RegForm::kUtf16);

    // True when the form can carry that and bring it back. UTF-16 can carry all there is.
    bool CarriesKey(platform::WStringView path) const;
    bool CarriesValue(platform::WStringView name, uint32_t type, const Bytes& data) const;

    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;
    void DeleteKey(platform::WStringView path);
    void DeleteValue(platform::WStringView name);

    // Writes the empty line at the end. Call it once, after the last record.
    void Finish();

  private:
    void KeyLine(platform::WStringView path, bool deletion);
    void ValueName(platform::WStringView name);
    bool CarriesText(platform::WStringView text) const;
    void HexData(uint32_t type, const Bytes& data);
    void EndLine();

    std::ostream& out_;
    const platform::WString prefix_;
    const RegForm form_;
    platform::WString line_;  // the line under construction
};

// True when `data` of type REG_SZ can stand in quotes and come back as the same bytes: a whole
// number of units, exactly one zero at the end, and no zero, line end or lone surrogate inside.
bool IsQuotable(const Bytes& data);

}  // namespace fbr
