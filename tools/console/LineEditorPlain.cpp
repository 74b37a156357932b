// SPDX-License-Identifier: MIT
#include <iostream>

#include "tools/console/Console.h"
#include "tools/console/LineEditor.h"

namespace fbr {

LineEditor::LineEditor(Complete complete) {}
LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read(const std::string& prompt) {
    if (InputIsTerminal()) std::cout << prompt << std::flush;
    std::string line;
    if (!std::getline(std::cin, line)) return {};
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace fbr
