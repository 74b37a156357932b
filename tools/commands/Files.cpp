#include "tools/commands/Files.h"

#include <fmt/format.h>

#include <iostream>
#include <iterator>
#include <stdexcept>

namespace fbr {
namespace {

std::filesystem::path Utf8Path(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string ReadAll(std::istream& in) {
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::filesystem::path Beside(std::filesystem::path path) {
    return path += ".part";
}

}  // namespace

std::string ReadInput(const std::string& file) {
    if (file == "-") return ReadAll(std::cin);
    std::error_code ignored;
    const std::filesystem::path path = Utf8Path(file);
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, ignored)) {
        throw std::runtime_error(fmt::format("cannot read file {}", file));
    }
    std::string bytes = ReadAll(in);
    if (in.bad()) throw std::runtime_error(fmt::format("cannot read file {}", file));
    return bytes;
}

OutputFile::OutputFile(const std::string& file)
    : name_(file),
      path_(Utf8Path(file)),
      temporary_(Beside(path_)),
      stream_(temporary_, std::ios::binary | std::ios::trunc) {
    if (!stream_) Fail();
}

OutputFile::~OutputFile() {
    if (finished_) return;
    stream_.close();
    std::error_code ignored;
    std::filesystem::remove(temporary_, ignored);
}

void OutputFile::Finish() {
    stream_.close();
    std::error_code error;
    if (stream_) std::filesystem::rename(temporary_, path_, error);
    if (!stream_ || error) Fail();
    finished_ = true;
}

void OutputFile::Fail() const {
    throw std::runtime_error(fmt::format("cannot write file {}", name_));
}

}  // namespace fbr
