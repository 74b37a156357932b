// SPDX-License-Identifier: MIT
#include "tests/contract/Script.h"

#include <algorithm>

#include "FS_Library_DLL/IFSInterface.h"
#include "platform/Clock.h"
#include "tests/contract/Player.h"

namespace contract {

using support::Names;

// Sorted; without a repetition, and the same one by one as together.
FBR_STATUS Player::TellNames(EnumerateAll all, EnumerateOne one) {
    const FBR_KEY key = Key();
    Names names;
    const FBR_STATUS status = all(key, names, Handle());
    if (status != FSSTATUS_NO_MORE_ENTRIES) return status;
    FBR_WCHAR* name = nullptr;
    // One by one may cost a walk each time: large keys are tried at both ends only.
    const auto count = static_cast<uint32_t>(names.size());
    for (uint32_t i = 0; i<count; i += count> 200 ? count - 1 : 1) {
        // A name that no caller can spell is not given to one.
        const bool plain = names[i].find(WChar{0}) == WString::npos;
        EXPECT_EQ(one(key, i, &name, Handle()), plain ? FSSTATUS_SUCCESS : FSSTATUS_INVALID_NAME);
        if (!plain) continue;
        EXPECT_EQ(support::Taken(name), names[i]);
    }
    name = nullptr;
    EXPECT_EQ(one(key, count, &name, Handle()), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_EQ(name != nullptr, backend_.Is("endHasName"));
    EXPECT_TRUE(name == nullptr || *name == 0);
    FBR_Release(name);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "a name came twice";
    told_ = names;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS Player::Get() {
    uint32_t type = 0;
    const auto data = store_->Get(Key(), Word(1), &type);
    if (!data) return Query(0);
    told_ = {Number(type), Shown(*data)};
    return FSSTATUS_SUCCESS;
}

FBR_STATUS Player::Query(uint32_t room) {
    Bytes buffer(room + 10, '#');
    uint64_t size = 0;
    uint32_t type = 0;
    const FBR_STATUS status =
        store_->Query(Key(), Word(1), room == 0 ? nullptr : buffer.data(), room, &size, &type);
    EXPECT_TRUE(std::all_of(buffer.begin() + room, buffer.end(), [](auto c) { return c == '#'; }))
        << "wrote behind the buffer";
    if (status == FSSTATUS_SUCCESS || status == FSSTATUS_BUFFER_OVERFLOW)
        told_ = {Number(type), Number(size)};
    if (status == FSSTATUS_SUCCESS)
        told_.push_back(
            Shown(Bytes(buffer.data(), buffer.data() + std::min<uint64_t>(size, room))));
    return status;
}

// Keys and values, of which each has its number as data.
FBR_STATUS Player::Fill(uint32_t count) {
    const FBR_KEY key = Key();
    FBR_STATUS status = FSSTATUS_SUCCESS;
    for (uint32_t i = 0; i < count && status == FSSTATUS_SUCCESS; ++i) {
        status = store_->TryMake(Number(i), key);
        if (status != FSSTATUS_SUCCESS) return status;
        status = store_->Set(key, Number(i), DataOf("'" + std::to_string(i)));
    }
    return status;
}

// How many of them are there.
FBR_STATUS Player::Filled(uint32_t count) {
    const FBR_KEY key = Key();
    uint64_t keys = 0, values = 0;
    for (uint32_t i = 0; i < count; ++i) {
        keys += store_->TryOpen(Number(i), key) == FSSTATUS_SUCCESS;
        values += store_->Get(key, Number(i)) == DataOf("'" + std::to_string(i));
    }
    told_ = {Number(keys), Number(values)};
    return FSSTATUS_SUCCESS;
}

FBR_STATUS Player::Time() {
    FBR_SYSTEMTIME t{};
    const FBR_STATUS status = FBR_GetDirTimesEx(Key(), Null() ? nullptr : &t, Handle());
    const platform::UtcTime now = platform::UtcNow();
    if (status != FSSTATUS_SUCCESS || now.month != t.wMonth) return status;
    const int passed = ((now.day - t.wDay) * 24 + now.hour - t.wHour) * 60 + now.minute - t.wMinute;
    EXPECT_EQ(t.wYear, now.year);
    EXPECT_TRUE(passed >= 0 && passed <= 2) << passed;
    EXPECT_LE(t.wMilliseconds, 999);
    return status;
}

FBR_STATUS Player::Security(uint32_t units) {
    std::vector<FBR_WCHAR> text(units + 1);
    FBR_WCHAR* buffer = units == 0 ? nullptr : text.data();
    const FBR_STATUS status = FBR_GetKeySecurityString(Key(), buffer, &units, Handle());
    if (status == FSSTATUS_SUCCESS || status == FSSTATUS_BUFFER_OVERFLOW)
        Tell(status, Number(units));
    return status == FSSTATUS_SUCCESS ? Tell(status, text.data()) : status;
}

const Player::Verbs& Player::KeyVerbs() {
    using P = Player&;
    static const Verbs verbs = {
        {"make", [](P p) { return p.Make(FSCREATEOPTIONS_NONE); }},
        {"make-volatile", [](P p) { return p.Make(FSCREATEOPTIONS_VOLATILE); }},
        {"open",
         [](P p) {
             return p.Keep([&](FBR_KEY* key) {
                 return FBR_OpenDirEx(p.Key(), p.Word(1).c_str(), key, p.Handle());
             });
         }},
        {"duplicate",
         [](P p) {
             return p.Keep([&](FBR_KEY* key) { return p.store_->Duplicate(p.Key(), key); });
         }},
        {"close", [](P p) { return p.Close(); }},
        {"delete", [](P p) { return p.store_->Delete(p.Key()); }},
        {"tree", [](P p) { return p.store_->DeleteTree(p.Word(0)); }},
        {"rename", [](P p) { return p.store_->Rename(p.Key(), p.Word(1)); }},
        {"name", [](P p) { return p.TellText(FBR_GetName_DirEx, p.Key()); }},
        {"path", [](P p) { return p.TellText(FBR_GetFullName_DirEx, p.Key()); }},
        {"keys", [](P p) { return p.TellNames(FBR_EnumerateAllKeys, FBR_EnumIntDirEx); }},
        {"key", [](P p) { return p.TellText(FBR_EnumIntDirEx, p.Key(), p.Count(1)); }},
        // The first of a list that has one already.
        {"keys-more",
         [](P p) {
             Names names = {WTEXT("before")};
             FBR_EnumerateAllKeys(p.Key(), names, p.Handle());
             return p.Tell(FSSTATUS_SUCCESS, names.front());
         }},
        {"fill", [](P p) { return p.Fill(p.Count(1)); }},
        {"filled", [](P p) { return p.Filled(p.Count(1)); }},
        {"time", [](P p) { return p.Time(); }},
        {"security", [](P p) { return p.Security(p.Count(1)); }},
        {"protect",
         [](P p) { return FBR_SetKeySecurityString(p.Key(), p.Word(1).c_str(), p.Handle()); }},
    };
    return verbs;
}

const Player::Verbs& Player::ValueVerbs() {
    using P = Player&;
    static const Verbs verbs = {
        {"set", [](P p) { return p.store_->Set(p.Key(), p.Word(1), p.Data(3), p.Count(2)); }},
        {"get", [](P p) { return p.Get(); }},
        {"query", [](P p) { return p.Query(p.Count(2)); }},
        {"unset", [](P p) { return p.store_->DeleteValue(p.Key(), p.Word(1)); }},
        {"values", [](P p) { return p.TellNames(FBR_EnumerateAllValues, FBR_EnumIntFileEx); }},
        {"value", [](P p) { return p.TellText(FBR_EnumIntFileEx, p.Key(), p.Count(1)); }},
        // With a size and no data; without a place for the size.
        {"set-null",
         [](P p) {
             return FBR_SetValue(p.Key(), p.Word(1).c_str(), 3, nullptr, p.Count(2), p.Handle());
         }},
        {"query-null",
         [](P p) {
             uint8_t buffer[9];
             return p.store_->Query(p.Key(), p.Word(1), p.Count(2) == 0 ? nullptr : buffer,
                                    p.Count(2), nullptr);
         }},
        // Below the exported functions.
        {"set-inner",
         [](P p) {
             const Bytes data = p.Data(2);
             return p.Handle()->FBR_SetValue(p.Key(), p.Word(1).c_str(), 3, data.data(),
                                             data.size());
         }},
        {"get-inner",
         [](P p) {
             Bytes data(9);
             uint64_t size = 0;
             const FBR_STATUS status = p.Handle()->FBR_QueryValue(
                 p.Key(), p.Word(1).c_str(), data.data(), data.size(), &size, nullptr);
             data.resize(size);
             return p.Tell(status, Shown(data));
         }},
    };
    return verbs;
}

const Player::Verbs& Player::StoreVerbs() {
    using P = Player&;
    static const Verbs verbs = {
        // Another store on the same place, opened when it is first used, without a lock.
        {"use", [](P p) { return p.Open(p.Plain(0)); }},
        {"reopen", [](P p) { return p.Reopen(); }},
        {"lock", [](P p) { return p.store_->Lock(p.Count(0)); }},
        {"unlock", [](P p) { return p.store_->Unlock(p.Count(0)); }},
        {"check", [](P p) { return FBR_CheckFile(p.Handle()); }},
        {"checking",
         [](P p) {
             FBR_FileChecking(p.Plain(0) == "on");
             return FSSTATUS_SUCCESS;
         }},
        {"held",
         [](P p) {
             return p.TellNumber([&](uint32_t* t) { return FBR_GetLockTypeEx(p.Handle(), t); });
         }},
        {"corrupted",
         [](P p) {
             return p.TellNumber([&](uint32_t* w) { return FBR_IsCorrupted(p.Handle(), w); });
         }},
        {"compact",
         [](P p) { return p.TellNumber([&](uint32_t* w) { return FBR_Compact(p.Handle(), w); }); }},
    };
    return verbs;
}

// The answers that a line allows.
std::vector<Words> Allowed(const std::string& text) {
    std::vector<Words> allowed(1);
    for (WString& word : WordsOf(text)) {
        if (word == Text("or"))
            allowed.emplace_back();
        else if (word[0] == '*')
            allowed.back().push_back(Shown(DataOf(platform::ToUtf8(word))));
        else
            allowed.back().push_back(std::move(word));
    }
    return allowed;
}

FBR_STATUS Player::Answer(const std::string& line, bool* asWritten) {
    const size_t arrow = line.find(" -> ");
    call_ = line.substr(0, arrow);
    words_ = WordsOf(call_);
    *asWritten = true;
    const auto taken = [this] {
        std::string word = Plain(0);
        words_.erase(words_.begin());
        return word;
    };
    while (Plain(0)[0] == '?' || Plain(0)[0] == '!') {
        const std::string trait = taken();
        if (backend_.Is(trait.substr(1)) == (trait[0] == '!')) return FSSTATUS_SUCCESS;
    }
    label_.clear();
    if (Plain(1) == "=") label_ = taken(), taken();
    const std::string verb = taken();
    // Paths from the root.
    if ((verb.starts_with("make") || verb.starts_with("open")) && Plain(0)[0] != '@')
        words_.insert(words_.begin(), Text("@0"));
    told_.clear();
    FBR_STATUS status = FSSTATUS_FAILED;
    bool known = false;
    for (const Verbs* verbs : {&KeyVerbs(), &ValueVerbs(), &StoreVerbs(), &FileVerbs()}) {
        const auto found = verbs->find(verb);
        if (found == verbs->end()) continue;
        known = true;
        status = found->second(*this);
    }
    EXPECT_TRUE(known) << "no such verb";
    opened_.Close();
    if (status != FSSTATUS_SUCCESS)
        told_.insert(told_.begin(), Text(FsStatusName(status) + sizeof("FSSTATUS_") - 1));
    const auto allowed = Allowed(arrow == line.npos ? "" : line.substr(arrow + 4));
    *asWritten = std::find(allowed.begin(), allowed.end(), told_) != allowed.end();
    return status;
}

void Player::Play(const std::string& line) {
    bool asWritten = false;
    Answer(line, &asWritten);
    EXPECT_TRUE(asWritten) << "it answers" << Told();
}

void Play(const Section& section, const Backend& backend) {
    Player player(backend, backend.makePlace());
    for (const auto& [number, line] : section.lines) {
        SCOPED_TRACE("line " + std::to_string(number) + ": " + line);
        player.Play(line);
    }
}

}  // namespace contract
