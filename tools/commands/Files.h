// Whole files in, whole files out.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace fbr {

// The bytes of a file, or of standard input for "-". `file` is UTF-8.
std::string ReadInput(const std::string& file);

// A file that appears, or is replaced, only when it is complete: it is written beside its place
// and renamed by Finish. Without Finish nothing is left behind.
class OutputFile {
  public:
    explicit OutputFile(const std::string& file);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& Stream() { return stream_; }
    void Finish();

  private:
    [[noreturn]] void Fail() const;

    const std::string name_;
    const std::filesystem::path path_, temporary_;
    std::ofstream stream_;
    bool finished_ = false;
};

}  // namespace fbr
