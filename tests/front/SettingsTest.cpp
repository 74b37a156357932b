// SPDX-License-Identifier: MIT
// The settings file, typed settings over a container: the calls of settings.txt and what they must
// answer, written like those on stores (tests/support/ScriptText.h). Each section has a file of its
// own, which is made. What a call gives stands behind its status, and is "77" where it was left
// alone.
#include "include/IFBRSettingsFile.h"
#include "tests/support/ScriptText.h"

namespace {

using platform::WString;
using support::DataOf;
using support::Text;
using support::Words;

Text Number(uint64_t number) {
    return std::to_string(number);
}

class Player {
  public:
    Player() { EXPECT_EQ(file_->Create(false), FSSTATUS_SUCCESS); }
    void Play(const std::string& line);

  private:
    using F = IFBRSettingsFile;
    FBR_STATUS Do(const std::string& verb);
    FBR_STATUS Read(const std::string& verb);
    const WString& Word(size_t i) const { return words_[i]; }
    uint32_t Count(size_t i) const {
        return static_cast<uint32_t>(std::stoul("0" + platform::ToUtf8(Word(i))));
    }
    FBR_STATUS Yes(bool yes) {
        told_ = {Text(yes ? "yes" : "no")};
        return FSSTATUS_SUCCESS;
    }

    support::TempDir dir_;
    std::unique_ptr<F> file_ = CreateFBRSettingsFile(dir_.File("a"), FS_VR_METHOD_TARN);
    Words words_, told_;
};

FBR_STATUS Player::Read(const std::string& verb) {
    const WString &key = Word(0), &name = Word(1);
    const Text before = "77";
    if (verb == "dword" || verb == "qword") {
        uint32_t dword = 77;
        uint64_t qword = 77;
        const FBR_STATUS status =
            verb == "dword" ? file_->GetDword(key, name, dword) : file_->GetQword(key, name, qword);
        told_ = {Number(verb == "dword" ? dword : qword)};
        return status;
    }
    if (verb == "string") {
        told_ = {before};
        return file_->GetString(key, name, told_[0]);
    }
    if (verb == "binary" || verb == "raw") {
        support::Bytes bytes = {'7', '7'};
        uint32_t type = 0;
        const FBR_STATUS status = verb == "raw" ? file_->GetRawValue(key, name, bytes, &type)
                                                : file_->GetBinary(key, name, bytes);
        told_ = {support::Shown(bytes)};
        if (verb == "raw") told_.insert(told_.begin(), Number(type));
        return status;
    }
    told_ = {before};
    if (verb == "list") return file_->GetMultiString(key, name, told_);
    if (verb == "keys") return file_->EnumerateKeys(key, told_);
    if (verb == "values") return file_->EnumerateValues(key, told_);
    ADD_FAILURE() << "no such verb";
    return FSSTATUS_FAILED;
}

FBR_STATUS Player::Do(const std::string& verb) {
    const WString &key = Word(0), &name = Word(1), &more = Word(2);
    // Another object for a file, which stays closed.
    if (verb == "use") {
        file_.reset();
        // With the mark of long paths, which is dropped.
        file_ = CreateFBRSettingsFile(Text("\\\\?\\") + dir_.File(platform::ToUtf8(key)),
                                      static_cast<FBR_METHOD>(Count(1)));
        return FSSTATUS_SUCCESS;
    }
    if (verb == "there") return Yes(std::filesystem::exists(dir_ / platform::ToUtf8(key)));
    if (verb == "create") return file_->Create(key == Text("replace"));
    if (verb == "open") return file_->Open();
    if (verb == "has-key") return Yes(file_->KeyExists(key));
    if (verb == "has") return Yes(file_->ValueExists(key, name));
    if (verb == "make") return file_->CreateKey(key);
    if (verb == "delete") return file_->DeleteKey(key, false);
    if (verb == "tree") return file_->DeleteKey(key, true);
    if (verb == "mark") return file_->MarkKeyDeleted(key);
    if (verb == "rename") return file_->RenameKey(key, name);
    if (verb == "unset") return file_->DeleteValue(key, name);
    if (verb == "set-string") return file_->SetString(key, name, more, Word(3) == Text("make"));
    if (verb == "set")
        return file_->SetRawValue(key, name, DataOf(platform::ToUtf8(Word(3))), Count(2));
    return Read(verb);
}

void Player::Play(const std::string& line) {
    const size_t arrow = line.find(" -> ");
    words_ = support::WordsOf(line.substr(0, arrow));
    const std::string verb = platform::ToUtf8(Word(0));
    words_.erase(words_.begin());
    words_.resize(4);
    told_.clear();
    const FBR_STATUS status = Do(verb);
    if (status != FSSTATUS_SUCCESS)
        told_.insert(told_.begin(), Text(FsStatusName(status) + sizeof("FSSTATUS_") - 1));
    EXPECT_EQ(told_, support::WordsOf(arrow == line.npos ? "" : line.substr(arrow + 4)));
}

TEST(Settings, GoAsTheyAreWritten) {
    for (const support::Section& section : support::SectionsIn("front/settings.txt")) {
        Player player;
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE("line " + std::to_string(number) + ": " + line);
            player.Play(line);
        }
    }
}

TEST(Settings, HoldTheWriteLockUntilTheyGo) {
    const support::TempDir dir;
    auto file = CreateFBRSettingsFile(dir.File("a"), FS_VR_METHOD_TARN);
    ASSERT_EQ(file->Create(false), FSSTATUS_SUCCESS);
    support::Store store(dir.File("a"));
    file->SetString(Text("\\k"), Text("v"), Text("x"), true);
    EXPECT_EQ(store.Lock(), FSSTATUS_LOCK_FAILED);
    file.reset();
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has("\\k"));
}

}  // namespace
