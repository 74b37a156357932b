// SPDX-License-Identifier: MIT
// Lines that a person types, with history and completion where the system has them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace fbr {

// What may follow behind `line`, which goes as far as the cursor.
using Complete = std::function<std::vector<std::string>(const std::string& line)>;

// One at a time.
class LineEditor {
  public:
    explicit LineEditor(Complete complete);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The next line of standard input without its end; nothing behind the last. The prompt shows on
    // a terminal only.
    std::optional<std::string> Read(const std::string& prompt);
};

}  // namespace fbr
