// An export of the tool, in JSON lines, as content.
#pragma once

#include "tests/support/ContainerReader.h"

namespace sharing {

// Of keys and values whose names are ASCII. What does not read is left out.
support::container::Key ReadExport(const std::string& text);

}  // namespace sharing
