// SPDX-License-Identifier: MIT
#include "tools/console/ReadFile.h"

#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tools/console/Interrupt.h"
#include "tools/console/Rehearsal.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

constexpr size_t kPart = 64 * 1024;
constexpr size_t kLittle = 1024 * 1024;  // worth no temporary file

std::string Utf8(const std::filesystem::path& file) {
    const std::u8string text = file.u8string();
    return {text.begin(), text.end()};
}

[[noreturn]] void Fail(const std::string& file, const char* why) {
    throw std::runtime_error("cannot read file " + file + why);
}

std::unique_ptr<std::ifstream> Open(const std::filesystem::path& file) {
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) Fail(Utf8(file), ": it is a folder");
    if (!std::filesystem::exists(file, error)) Fail(Utf8(file), ": there is no such file");
    auto in = std::make_unique<std::ifstream>(file, std::ios::binary);
    if (!*in) Fail(Utf8(file), ": it may not be read");
    return in;
}

// The next part, as much as there is room for.
size_t ReadSome(std::istream& in, char* out, size_t room) {
    StopIfInterrupted();
    in.read(out, static_cast<std::streamsize>(room));
    return static_cast<size_t>(in.gcount());
}

}  // namespace

FileSource::FileSource(const std::filesystem::path& file) : name_(Utf8(file)) {
    EndOfRehearsal();
    auto in = Open(file);
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        Keep(*in);
        return;
    }
    size_ = std::filesystem::file_size(file, error);
    in_ = std::move(in);
}

FileSource::FileSource(const std::string& file) : name_(file) {
    EndOfRehearsal();
    if (file == "-")
        Keep(std::cin);
    else
        *this = FileSource(FilePath(file));
}

void FileSource::Keep(std::istream& once) {
    std::string bytes(kPart, '\0');
    auto memory = std::make_unique<std::stringstream>();
    std::unique_ptr<std::fstream> file;
    while (const size_t more = ReadSome(once, bytes.data(), bytes.size())) {
        if (size_ + more > kLittle && !file) {
            folder_ = std::make_unique<TempFolder>();
            file = std::make_unique<std::fstream>(
                folder_->Path() / "input",
                std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc);
            *file << memory->rdbuf();
        }
        std::iostream& out = file ? static_cast<std::iostream&>(*file) : *memory;
        if (!out.write(bytes.data(), static_cast<std::streamsize>(more)))
            folder_->ThrowFailed("what is read does not fit");
        size_ += more;
    }
    if (file && !file->flush()) folder_->ThrowFailed("what is read does not fit");
    if (file)
        in_ = std::move(file);
    else
        in_ = std::move(memory);
    if (folder_) folder_->Remove();
    Rewind();
}

size_t FileSource::Read(char* out, size_t room) {
    const size_t size = ReadSome(*in_, out, room);
    if (in_->bad()) Fail(name_, ": its disk fails");
    position_ += size;
    return size;
}

void FileSource::Rewind() {
    in_->clear();
    in_->seekg(0);
    position_ = 0;
}

std::string ReadInput(const std::string& file) {
    EndOfRehearsal();
    std::unique_ptr<std::ifstream> opened;
    if (file != "-") opened = Open(FilePath(file));
    std::istream& in = opened ? *opened : std::cin;
    std::string bytes;
    for (size_t size = 0;; size = bytes.size()) {
        bytes.resize(size + kPart);
        const size_t more = ReadSome(in, bytes.data() + size, kPart);
        bytes.resize(size + more);
        if (more == 0) break;
    }
    if (in.bad()) Fail(file, ": its disk fails");
    return bytes;
}

}  // namespace fbr
