// SPDX-License-Identifier: MIT
#include "tools/console/Rehearsal.h"

namespace fbr {
namespace {

bool g_stands = false;

}  // namespace

Rehearsal::Rehearsal() {
    g_stands = true;
}

Rehearsal::~Rehearsal() {
    g_stands = false;
}

bool Rehearsal::Stands() {
    return g_stands;
}

void EndOfRehearsal() {
    if (g_stands) throw Rehearsed();
}

}  // namespace fbr
