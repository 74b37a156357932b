// SPDX-License-Identifier: MIT
#include "tools/store/TextStore.h"

#include <fmt/format.h>

#include <random>
#include <system_error>

#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/console/ReadFile.h"
#include "tools/format/RecordReader.h"
#include "tools/format/Text.h"
#include "tools/store/Kind.h"
#include "tools/store/TreeWriter.h"

namespace fbr {
namespace {

constexpr int kMostNames = 100;

std::string Utf8Path(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// Nobody else may look into it.
std::filesystem::path MakeFolder() {
    std::random_device random;
    for (int i = 0; i < kMostNames; ++i) {
        auto folder = std::filesystem::temp_directory_path() /
                      fmt::format("fbr-{:08x}{:08x}", random(), random());
        if (!std::filesystem::create_directory(folder)) continue;
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
        return folder;
    }
    throw std::runtime_error("cannot make a folder for what is read");
}

void Load(const std::filesystem::path& file, TreeWriter& writer, Progress& progress) {
    const std::string bytes = ReadFile(file);
    try {
        ReadRecords(bytes, "", [&](const WString& key, const Record& record) {
            StopIfInterrupted();
            progress.Step();
            // The container's own.
            if (key.empty() && platform::CompareFolded(record.name, WTEXT("FBRVersion")) == 0)
                return;
            writer.Apply(key, record);
        });
    } catch (const FormatError& error) {
        throw std::runtime_error(
            fmt::format("{}:{}: {}", Utf8Path(file), error.Line(), error.what()));
    }
}

}  // namespace

TextStore::TextStore(const StoreName& text) {
    const std::filesystem::path path = *FileOf(text);
    auto files = ExportsIn(path);
    if (files.empty()) files.push_back(path);
    const InterruptGuard guard;
    folder_ = MakeFolder();
    try {
        Store store({Utf8(Container()), FS_VR_METHOD_TARN}, Store::IfMissing::kCreate);
        {
            const WriteLock lock(store);
            Progress progress("Reading " + text.path + ":", 0);
            TreeWriter writer(store);
            for (const auto& file : files) Load(file, writer, progress);
        }
        store.Close();
    } catch (...) {
        Opened();
        throw;
    }
}

TextStore::~TextStore() {
    Opened();
}

platform::WString TextStore::Container() const {
    WString path;
    FromStrictUtf8(Utf8Path(folder_ / "text.fbr"), path);
    return path;
}

void TextStore::Opened() const noexcept {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
}

}  // namespace fbr
