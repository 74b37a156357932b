// SPDX-License-Identifier: MIT
// Whole files out.
#pragma once

#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>

#include "tools/console/FileWriter.h"
#include "tools/console/Interrupt.h"

namespace fbr {

// A file that appears, or is replaced, only when it is complete; see FileWriter. Without Finish, or
// after an interrupt, nothing is left behind. A failed write ends the work at once: the stream
// throws what tells it.
class OutputFile {
  public:
    // "-" is standard output. None of `sources`, from which it is made, may be the file that it
    // takes the place of: a UsageError, and nothing is touched.
    OutputFile(const std::string& file, std::initializer_list<std::string> sources);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& Stream();
    bool IsOutput() const { return buffer_ == nullptr; }  // the standard one
    void Finish();

  private:
    class Buffer;

    const InterruptGuard guard_;
    const std::unique_ptr<Buffer> buffer_;
    std::ostream stream_;
};

}  // namespace fbr
