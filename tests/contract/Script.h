// SPDX-License-Identifier: MIT
// Calls on a store, one a line, and what they must answer, in files beside this one. A file has
// sections: each is played on a new store of every kind that has the traits behind its title.
//
//     ?trait KEY = VERB WORDS -> ANSWER
//
// A line is played where the store has the trait (?) or has it not (!); handles are not counted
// where it has that one (~). KEY names the handle that the call gives; without it the handle is
// closed. "@KEY" is such a handle, "@5" a number, and where a key is asked for, a path opens one
// for the line. ANSWER is empty or what the call gives, with the status in front, without
// FSSTATUS_, where it is another than success; " or " parts what is allowed. What stands behind
// "run" is a line for the shell of a system whose programs read the store.
#pragma once

#include "tests/contract/Backend.h"
#include "tests/support/ScriptText.h"

namespace contract {

using support::DataOf;
using support::Section;
using support::Shown;
using support::Words;
using support::WordsOf;

void Play(const Section& section, const Backend& backend);

}  // namespace contract
