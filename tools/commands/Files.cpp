// SPDX-License-Identifier: MIT
#include "tools/commands/Files.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <system_error>
#include <vector>

#include "tools/commands/Cli.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

const std::string& NotOneOf(const std::string& file, std::initializer_list<std::string> sources) {
    for (const std::string& source : sources) {
        std::error_code error;
        const std::filesystem::path path = FilePath(source);
        if (std::filesystem::is_regular_file(path, error) &&
            std::filesystem::equivalent(FilePath(file), path, error) && !error)
            throw UsageError(fmt::format(
                "expected another file to write than {}, which it is made from", source));
    }
    return file;
}

}  // namespace

class OutputFile::Buffer : public std::streambuf {
  public:
    explicit Buffer(const std::string& file) : name_(file), bytes_(kBufferBytes) {
        Told([this] { writer_.emplace(FilePath(name_)); });
        Clear();
    }

    void Finish() {
        Drain();
        Told([this] { writer_->Finish(); });
    }

  protected:
    int_type overflow(int_type byte) override {
        Drain();
        if (!traits_type::eq_int_type(byte, traits_type::eof()))
            sputc(traits_type::to_char_type(byte));
        return traits_type::not_eof(byte);
    }

  private:
    static constexpr size_t kBufferBytes = 64 * 1024;

    void Clear() { setp(bytes_.data(), bytes_.data() + bytes_.size()); }

    void Drain() {
        Told([this] { writer_->Write(pbase(), static_cast<size_t>(pptr() - pbase())); });
        Clear();
    }

    template <typename Work>
    void Told(const Work& work) const {
        try {
            work();
        } catch (const std::system_error& error) {
            throw std::runtime_error(fmt::format("cannot write file {}: {}{}", name_,
                                                 error.code().message(),
                                                 WhatToDo(error.code(), FilePath(name_))));
        }
    }

    const std::string name_;
    std::vector<char> bytes_;
    std::optional<FileWriter> writer_;
};

OutputFile::OutputFile(const std::string& file, std::initializer_list<std::string> sources)
    : buffer_(file == "-" ? nullptr : std::make_unique<Buffer>(NotOneOf(file, sources))),
      stream_(buffer_.get()) {
    if (buffer_) stream_.exceptions(std::ios::badbit);
}

OutputFile::~OutputFile() = default;

std::ostream& OutputFile::Stream() {
    return buffer_ ? stream_ : std::cout;
}

void OutputFile::Finish() {
    StopIfInterrupted();
    if (buffer_) buffer_->Finish();
}

}  // namespace fbr
