// SPDX-License-Identifier: MIT
// Reads a registry export: UTF-16 or UTF-8, with or without a byte-order mark, LF or CR LF, with
// the header "Windows Registry Editor Version 5.00" or "REGEDIT4".
//
// Data is taken as the file has it: nothing is terminated, cut or widened, except in a REGEDIT4
// file, whose hex(1), hex(2) and hex(7) data is text in the Western code page and becomes UTF-16,
// as does the file itself where it is not UTF-8.
#pragma once

#include <string_view>

#include "tools/format/ByteSource.h"
#include "tools/format/Record.h"

namespace fbr {

// Gives `take` the records of `source` one by one; see Hearing for lines that cannot be read, to
// which belong all values of a key that cannot. Time is in proportion to the size of the source,
// memory to that of the largest record.
//
// A backslash in quotes with anything but \, ", n, r or 0 behind it stands for itself, and is odd:
// regedit writes none, but people do.
void ReadReg(ByteSource& source, const OnRecord& take, const Hearing& hearing = {});
// All of them together.
Document ReadReg(std::string_view bytes);

}  // namespace fbr
