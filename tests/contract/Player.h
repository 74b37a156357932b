// SPDX-License-Identifier: MIT
// Plays the lines of a script (Script.h).
#pragma once

#include <functional>
#include <map>

#include "tests/contract/OpenStore.h"
#include "tests/contract/Script.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/ReadOnlyScope.h"

namespace contract {

using support::Bytes;

inline Text Number(uint64_t number) {
    return std::to_string(number);
}

// One section, on a store of its own.
class Player {
  public:
    Player(const Backend& backend, std::unique_ptr<Place> place)
        : backend_(backend), place_(std::move(place)) {
        Open("a");
        EXPECT_EQ(store_->Lock(2), FSSTATUS_SUCCESS);
    }
    ~Player() { CloseKeys(); }
    // The line's answer must be what is written there.
    void Play(const std::string& line);
    // Its status, and whether the answer is what is written.
    FBR_STATUS Answer(const std::string& line, bool* asWritten);
    FBR_STORE Handle() const { return store_->handle; }
    std::string Told() const {
        std::string told;
        for (const WString& word : told_) told += " " + platform::ToUtf8(word);
        return told;
    }

  private:
    using Verb = std::function<FBR_STATUS(Player&)>;
    using Verbs = std::map<std::string, Verb>;
    static const Verbs& KeyVerbs();
    static const Verbs& ValueVerbs();
    static const Verbs& StoreVerbs();
    static const Verbs& FileVerbs();
    static Verb Done(void (*work)(Player&)) {
        return [work](Player& player) { return work(player), FSSTATUS_SUCCESS; };
    }

    FBR_STATUS Open(const std::string& name) {
        auto& store = stores_[name];
        if (store == nullptr || store->handle == nullptr)
            store = std::make_unique<OpenStore>(*place_);
        store_ = store.get();
        return store_->status;
    }
    void CloseKeys() {
        for (auto& [name, key] : keys_) key.Close();
    }
    FBR_STATUS Reopen() {
        CloseKeys();
        const FBR_STATUS closed = store_->Close();
        stores_.clear();
        Open("a");
        return closed == FSSTATUS_SUCCESS ? store_->Lock(2) : closed;
    }

    // What the call is given.
    std::string Plain(size_t i) const {
        return i < words_.size() ? platform::ToUtf8(words_[i]) : "";
    }
    Text Word(size_t i) const { return i < words_.size() ? Text(words_[i]) : Text(""); }
    Bytes Data(size_t i) const { return DataOf(Plain(i)); }
    uint32_t Count(size_t i) const {
        return static_cast<uint32_t>(std::stoul("0" + Plain(i), nullptr, 10));
    }
    // With no place for the answer.
    bool Null() const { return !words_.empty() && words_.back() == Text("null"); }
    std::filesystem::path Beside(const std::string& name) const {
        return place_->File().parent_path() / name;
    }
    FBR_KEY Key(size_t i = 0) {
        const std::string word = Plain(i);
        if (word[0] != '@') {
            return opened_ = OpenKey(Handle(), store_->Open(Word(i)));
        }
        const auto found = numbers_.find(word.substr(1));
        return found != numbers_.end() ? found->second : std::stoll(word.substr(1));
    }

    // What it gives.
    FBR_STATUS Tell(FBR_STATUS status, const WString& word) {
        told_.push_back(word);
        return status;
    }
    FBR_STATUS Tell(const WString& word) { return Tell(FSSTATUS_SUCCESS, word); }
    template <class Get>
    FBR_STATUS TellText(Get get, auto... arguments) {
        FBR_WCHAR* text = nullptr;
        const FBR_STATUS status = get(arguments..., Null() ? nullptr : &text, Handle());
        if (Null()) return status;
        if (text == nullptr) return status == FSSTATUS_SUCCESS ? FSSTATUS_FAILED : status;
        told_.push_back(text);
        FBR_Release(text);
        return status;
    }
    template <class Get>
    FBR_STATUS TellNumber(Get get) {
        uint32_t word = 77;
        const FBR_STATUS status = get(Null() ? nullptr : &word);
        return Null() ? status : Tell(status, Text(std::to_string(word)));
    }
    template <class Get>
    FBR_STATUS Keep(Get get) {
        FBR_KEY key = 0;
        keys_.erase(label_);
        const FBR_STATUS status = get(Null() ? nullptr : &key);
        if (key != 0 && !label_.empty()) numbers_[label_] = key;
        keys_[label_] = OpenKey(Handle(), key);
        if (label_.empty()) keys_.erase(label_);
        return status;
    }
    FBR_STATUS Make(FBR_CREATEOPTIONS options) {
        return Keep([&](FBR_KEY* key) {
            return FBR_CreateDirEx(Key(), Word(1).c_str(), options, key, Handle());
        });
    }
    FBR_STATUS Close() {
        const auto kept = keys_.find(Plain(0).substr(1));
        return kept != keys_.end() && kept->second != 0 ? kept->second.Close()
                                                        : store_->Close(Key());
    }
    using EnumerateOne = FBR_STATUS (*)(FBR_KEY, uint32_t, FBR_WCHAR**, FBR_STORE);
    using EnumerateAll = FBR_STATUS (*)(FBR_KEY, support::Names&, FBR_STORE);
    FBR_STATUS TellNames(EnumerateAll all, EnumerateOne one);
    FBR_STATUS Get();
    FBR_STATUS Query(uint32_t room);
    FBR_STATUS Fill(uint32_t count);
    FBR_STATUS Filled(uint32_t count);
    FBR_STATUS Time();
    FBR_STATUS Security(uint32_t units);
    FBR_STATUS Look();
    FBR_STATUS Poke();
    FBR_STATUS Run();
    void Take();

    const Backend& backend_;
    const std::unique_ptr<Place> place_;
    std::map<std::string, std::unique_ptr<OpenStore>> stores_;
    OpenStore* store_ = nullptr;
    std::map<std::string, OpenKey> keys_;     // those that are still to be closed
    std::map<std::string, FBR_KEY> numbers_;  // of all that there were
    OpenKey opened_;
    std::string call_, label_;
    Words words_, told_;
    Bytes seen_;  // of the file, when it was last looked at
    std::optional<LogCapture> log_;
    std::optional<support::ReadOnlyScope> readOnly_;
    std::optional<support::FailingHeap> noMemory_;
};

}  // namespace contract
