// SPDX-License-Identifier: MIT
// Collects what is logged while it lives, to be searched as text.
#pragma once

#include <gtest/gtest.h>

#include "tests/shared/LogCapture.h"

namespace support {

// One at a time. Scopes are left out.
class LogCapture : public ::LogCapture {
  public:
    LogCapture() : ::LogCapture(Varnhold::Hob::Detail::kInformation) {}

    // One line a message: "<severity> <file> <function>: <message>".
    std::string All() const {
        std::string all;
        for (const Line& line : lines) {
            all += std::to_string(line.severity) + " " + line.file + " " + line.function + ": " +
                   line.message + "\n";
        }
        return all;
    }
    // Each of these must be in it.
    void Expect(std::initializer_list<const char*> texts) const {
        for (const char* text : texts) EXPECT_TRUE(Holds(text)) << text << " is not in\n" << All();
    }
    bool Holds(const std::string& text) const { return All().find(text) != std::string::npos; }
};

}  // namespace support
