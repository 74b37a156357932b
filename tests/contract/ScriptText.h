// SPDX-License-Identifier: MIT
// The words of a script's lines.
#pragma once

#include "tests/contract/OpenStore.h"

namespace contract {

using Words = std::vector<WString>;

Words WordsOf(const std::string& line);

// Data as a word, and the word for data.
support::Bytes DataOf(const std::string& word);
WString Shown(const support::Bytes& data);

}  // namespace contract
