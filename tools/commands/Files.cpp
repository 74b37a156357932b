#include "tools/commands/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <system_error>
#include <vector>

namespace fbr {
namespace {

std::filesystem::path Utf8Path(const std::string& text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

// A file that has the bytes expected of it takes no memory beyond them.
std::string ReadAll(std::istream& in, uint64_t expected) {
    std::string bytes;
    size_t done = 0;
    size_t room = std::max<uint64_t>(expected + 1, 64 * 1024);
    do {
        bytes.resize(room);
        in.read(bytes.data() + done, static_cast<std::streamsize>(room - done));
        done += static_cast<size_t>(in.gcount());
        room = done * 2;
    } while (in);
    bytes.resize(done);
    return bytes;
}

}  // namespace

std::string ReadInput(const std::string& file) {
    if (file == "-") return ReadAll(std::cin, 0);
    std::error_code ignored;
    const std::filesystem::path path = Utf8Path(file);
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, ignored)) {
        throw std::runtime_error(fmt::format("cannot read file {}", file));
    }
    const uintmax_t size = std::filesystem::file_size(path, ignored);
    std::string bytes = ReadAll(in, ignored ? 0 : size);
    if (in.bad()) throw std::runtime_error(fmt::format("cannot read file {}", file));
    return bytes;
}

class OutputFile::Buffer : public std::streambuf {
  public:
    explicit Buffer(const std::string& file) : name_(file), bytes_(kBufferBytes) {
        Told([this] { writer_.emplace(Utf8Path(name_)); });
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
            throw std::runtime_error(
                fmt::format("cannot write file {}: {}", name_, error.code().message()));
        }
    }

    const std::string name_;
    std::vector<char> bytes_;
    std::optional<FileWriter> writer_;
};

OutputFile::OutputFile(const std::string& file)
    : buffer_(std::make_unique<Buffer>(file)), stream_(buffer_.get()) {
    stream_.exceptions(std::ios::badbit);
}

OutputFile::~OutputFile() = default;

void OutputFile::Finish() {
    StopIfInterrupted();
    buffer_->Finish();
}

}  // namespace fbr
