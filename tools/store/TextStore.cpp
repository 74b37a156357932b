// SPDX-License-Identifier: MIT
#include "tools/store/TextStore.h"

#include <fmt/format.h>

#include <system_error>

#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/console/ReadFile.h"
#include "tools/format/RecordReader.h"
#include "tools/format/Text.h"
#include "tools/store/Kind.h"
#include "tools/store/Place.h"
#include "tools/store/TreeWriter.h"

namespace fbr {
namespace {

std::string Utf8Path(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// A pipe would be waited for, and be empty the next time.
void ExpectFile(const std::filesystem::path& file) {
    std::error_code error;
    if (std::filesystem::is_other(file, error))
        throw std::runtime_error(
            fmt::format("cannot read file {}: it is no regular file", Utf8Path(file)));
}

// `read` are the bytes of the files before.
void Load(const std::filesystem::path& file, uint64_t read, TreeWriter& writer,
          Progress& progress) {
    ExpectFile(file);
    FileSource source(file);
    const auto take = [&](const WString& key, const Record& record) {
        StopIfInterrupted();
        progress.At(read + source.Position());
        // The container's own.
        if (key.empty() && IsVersionName(record.name)) return;
        writer.Apply(key, record);
    };
    try {
        ReadRecords(source, "", take);
    } catch (const FormatError& error) {
        throw std::runtime_error(
            fmt::format("{}:{}: {}", Utf8Path(file), error.Line(), error.what()));
    }
}

uint64_t BytesOf(const std::filesystem::path& file) {
    std::error_code error;
    const uint64_t bytes = std::filesystem::file_size(file, error);
    return error ? 0 : bytes;
}

}  // namespace

TextStore::TextStore(const StoreName& text) {
    const std::filesystem::path path = *FileOf(text);
    auto files = ExportsIn(path);
    if (files.empty()) files.push_back(path);
    const InterruptGuard guard;
    try {
        Store store({Utf8(Container()), FS_VR_METHOD_TARN}, Store::IfMissing::kCreate);
        {
            const WriteLock lock(store);
            uint64_t bytes = 0, read = 0;
            for (const auto& file : files) bytes += BytesOf(file);
            Progress progress("Reading " + text.path + ":", bytes, Progress::Unit::kBytes);
            TreeWriter writer(store);
            for (const auto& file : files) {
                Load(file, read, writer, progress);
                read += BytesOf(file);
            }
        }
        store.Close();
    } catch (const StoreError& error) {
        // What is read into is nobody's store: that there is no room for it is what there is to
        // say.
        if (error.Status() == FSSTATUS_FAILED) folder_.ThrowFailed("what is read does not fit");
        throw;
    }
}

platform::WString TextStore::Container() const {
    WString path;
    FromStrictUtf8(Utf8Path(folder_.Path() / "text.fbr"), path);
    return path;
}

void TextStore::Opened() const noexcept {
    folder_.Remove();
}

}  // namespace fbr
