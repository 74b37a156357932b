// SPDX-License-Identifier: MIT
// What goes wrong, for people.
#pragma once

#include <string_view>

namespace fbr {

// "fbr: TEXT" on a line of standard error, in order with standard output. Words, names and files in
// it are shown as Printable has them: they reach no terminal as anything but text.
void TellError(std::string_view text);

}  // namespace fbr
