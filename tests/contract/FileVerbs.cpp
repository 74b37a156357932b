// SPDX-License-Identifier: MIT
// What a script does to a store's file, and what it sees of it, beside the store.
#include <algorithm>
#include <sstream>

#include "offreg/HiveFormat.h"
#include "platform/FileSystem.h"
#include "tests/contract/Player.h"
#include "tests/support/RunProcess.h"

namespace contract {

// What became of the file since the last look.
FBR_STATUS Player::Look() {
    const Bytes bytes = support::ReadBytes(place_->File());
    const char* what = bytes.empty() ? "none" : bytes == seen_ ? "same" : "changed";
    seen_ = bytes;
    return Tell(Text(what));
}

// Puts bytes so far behind the place of a name (of none, behind the beginning, or the end), as
// somebody does who leaves the file's time as it is and the sum of a hive's head right.
FBR_STATUS Player::Poke() {
    Bytes file = support::ReadBytes(place_->File());
    const Bytes put = Data(2);
    const std::string name = Plain(0);
    const int by = std::stoi(Plain(1));
    auto at = name.empty() && by >= 0 ? file.begin() : file.end();
    if (!name.empty()) at = std::search(file.begin() + 4096, file.end(), name.begin(), name.end());
    if (!name.empty() && at == file.end()) return Tell(FSSTATUS_NOT_FOUND, Text(name));
    std::copy(put.begin(), put.end(), at + by);
    if (backend_.Is("offline"))
        offreg::format::Store(&file[offreg::format::base::kChecksum],
                              offreg::format::Checksum(file.data()));
    const auto time = std::filesystem::last_write_time(place_->File());
    support::WriteBytes(place_->File(), file);
    std::filesystem::last_write_time(place_->File(), time);
    return FSSTATUS_SUCCESS;
}

void Player::Take() {
    std::vector<std::string> words;
    for (const WString& word : words_) {
        std::istringstream in(platform::ToUtf8(word));
        for (std::string part; in >> part;) words.push_back(part);
    }
    place_->Take(words);
}

// The words that a line of the shell writes, in the folder of the store's file.
FBR_STATUS Player::Run() {
    const std::string line = call_.substr(call_.find("run ") + 4);
    const support::ProcessResult result =
        support::RunProcess("/bin/sh", {"-c", "cd " + Beside("").string() + " && " + line});
    EXPECT_EQ(result.status, 0) << result.err;
    std::istringstream out(result.out);
    for (std::string word; out >> word;) told_.push_back(Text(word));
    return FSSTATUS_SUCCESS;
}

const Player::Verbs& Player::FileVerbs() {
    using P = Player&;
    static const Verbs verbs = {
        {"shut",
         [](P p) {
             p.CloseKeys();
             return p.store_->Close();
         }},
        {"there", [](P p) { return p.Tell(Text(p.place_->There(p.Plain(0)) ? "yes" : "no")); }},
        {"drop", Done([](P p) { p.place_->Drop(); })},
        {"without", Done([](P p) { p.Take(); })},
        {"answers", Done([](P p) { p.Take(); })},
        {"drop-folder", Done([](P p) { std::filesystem::remove_all(p.Beside("")); })},
        {"file", [](P p) { return p.Look(); }},
        {"poke", [](P p) { return p.Poke(); }},
        // Beside the store's own file: one of these bytes, a folder, how many there are.
        {"write", Done([](P p) { support::WriteBytes(p.Beside(p.Plain(0)), p.Data(1)); })},
        {"folder", Done([](P p) { std::filesystem::create_directories(p.Beside(p.Plain(0))); })},
        {"files",
         [](P p) {
             const std::filesystem::directory_iterator all(p.Beside(""));
             return p.Tell(Number(static_cast<uint64_t>(std::distance(begin(all), end(all)))));
         }},
        {"run", [](P p) { return p.Run(); }},
        {"check-file", [](P p) { return FBR_CheckFileEx(p.place_->Path().c_str(), nullptr); }},
        {"repair", [](P p) { return FBR_CheckAndRepairFileEx(p.place_->Path().c_str(), nullptr); }},
        // A store of another file, which is closed again.
        {"try",
         [](P p) {
             return support::Store(support::Wide(p.Beside(p.Plain(0))), p.place_->Method()).status;
         }},
        {"mark-read-only", Done([](P p) {
             platform::SetAttributes(p.store_->file.c_str(), platform::kAttributeReadOnly);
         })},
        {"read-only", Done([](P p) {
             p.readOnly_.reset();
             if (p.Plain(0) == "on") p.readOnly_.emplace(p.place_->File());
         })},
        {"memory", Done([](P p) {
             p.noMemory_.reset();
             if (p.Plain(0) == "off") p.noMemory_.emplace(1, true);
         })},
        // The log from here on; how many of its lines, "SEVERITY: MESSAGE", have a text.
        {"log", Done([](P p) {
             p.log_.reset();
             if (p.Plain(0) == "on") p.log_.emplace();
         })},
        {"logged",
         [](P p) {
             const auto has = [&](const LogCapture::Line& line) {
                 return (std::to_string(line.severity) + ": " + line.message).find(p.Plain(0)) !=
                        std::string::npos;
             };
             const auto& lines = p.log_->lines;
             return p.Tell(
                 Number(static_cast<uint64_t>(std::count_if(lines.begin(), lines.end(), has))));
         }},
    };
    return verbs;
}

}  // namespace contract
