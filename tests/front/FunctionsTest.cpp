// SPDX-License-Identifier: MIT
// Functions that give the same whatever the store: the rows of functions.txt, and stored names and
// statuses as a whole.
#include "FS_Library_DLL/front/PathGrammar.h"
#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/offline/FileTime.h"
#include "FS_Library_DLL/registry/CombinePath.h"
#include "Shared/security/SecurityText.h"
#include "include/FsError.h"
#include "tests/support/FailingHeap.h"
#include "tests/support/ScriptText.h"

namespace {

using support::Text;
using support::Words;

WString Escaped(WStringView name, FsNameSet set) {
    FsText buffer;
    WStringView stored;
    EXPECT_TRUE(FS_EscapeName(name, set, &buffer, &stored));
    return WString(stored);
}

WString Unescaped(const WString& stored) {
    WChar* out = nullptr;
    EXPECT_TRUE(FS_UnescapeName(stored.c_str(), &out));
    HeapString owner;
    owner.text = out;
    return out != nullptr ? WString(out) : stored;
}

WString NameOf(FBR_STATUS status) {
    const std::string name = FsStatusName(status);
    return Text(name.substr(name.find('_') + 1));
}

Words CodesOf(const std::string& word) {
    int status = 0;
    while (status < 19 && NameOf(static_cast<FBR_STATUS>(status)) != Text(word)) ++status;
    if (status == 19) status = std::stoi(word);
    char nt[16];
    snprintf(nt, sizeof nt, "%x",
             static_cast<uint32_t>(FsError::ToNtStatus(static_cast<FBR_STATUS>(status))));
    return {Text(std::to_string(FsError::ToWin32(static_cast<FBR_STATUS>(status)))), Text(nt)};
}

Words StoreOf(const WString& path, uint32_t method) {
    const char* const kinds[] = {"None", "Container", "Native",  "Shell",
                                 "Hive", "Offline",   "Cluster", "Ipc"};
    const StoreRequest request = ParseStorePath(path, static_cast<FBR_METHOD>(method));
    Words words = {Text(kinds[static_cast<size_t>(request.kind)])};
    if (request.kind == BackendKind::None) return words;
    words.emplace_back(request.storePath);
    words.emplace_back(request.kind == BackendKind::Ipc ? request.server : request.mountName);
    if (request.remote) words.push_back(Text("remote"));
    return words;
}

Words TimeOf(uint64_t ticks) {
    FBR_SYSTEMTIME t = {7, 7, 7, 7, 7, 7, 7, 7};
    if (!FileTimeToCalendar(ticks, &t)) return {Text(t.wYear == 7 ? "none" : "touched")};
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02d/%d %02d:%02d:%02d.%03d", t.wYear, t.wMonth, t.wDay,
             t.wDayOfWeek, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
    return support::WordsOf(text);
}

Words SecurityOf(const WString& text) {
    security::Bytes descriptor;
    WString back;
    const uint32_t error = security::ParseSecurityText(text.c_str(), &descriptor);
    if (error != 0) return {Text("error"), Text(std::to_string(error))};
    EXPECT_EQ(security::FormatSecurityText(descriptor, 0x1F, &back), 0u);
    return {back};
}

// What a row gives.
Words Answer(const std::string& verb, const Words& words) {
    const WString& first = words.at(0);
    const WString second = words.size() > 1 ? words[1] : WString();
    const std::string word = platform::ToUtf8(first);
    FsText path;
    if (verb == "status") return CodesOf(word);
    if (verb == "code") {
        const auto code = static_cast<uint32_t>(std::stoul(word, nullptr, 0));
        return {NameOf(FsError::ToFsStatus(FBR_WIN32ERROR{code})),
                NameOf(FsError::ToFsStatus(static_cast<FBR_NTSTATUS>(code)))};
    }
    if (verb == "engine") return {NameOf(FsStatusFromEngine(std::stoi(word)))};
    if (verb == "store")
        return StoreOf(first, static_cast<uint32_t>(std::stoul(platform::ToUtf8(second))));
    if (verb == "key-name") return {Escaped(first, FsNameSet::Key)};
    if (verb == "value-name") return {Escaped(first, FsNameSet::Value)};
    if (verb == "stored") return {Unescaped(first)};
    if (verb == "join" || verb == "mark") {
        EXPECT_TRUE(verb == "join" ? FS_JoinPath(first, second, &path)
                                   : FS_CollisionPath(first, &path));
        EXPECT_EQ(WStringView(path.Text()), path.View()) << "ends in a zero unit";
        return {WString(path.View())};
    }
    if (verb == "combine") return {CombinePath(first, second)};
    if (verb == "time") return TimeOf(std::stoull(word));
    EXPECT_EQ(verb, "security");
    return SecurityOf(first);
}

TEST(Functions, GiveWhatIsWritten) {
    for (const support::Section& section : support::SectionsIn("front/functions.txt"))
        for (const auto& [number, line] : section.lines) {
            SCOPED_TRACE("line " + std::to_string(number) + ": " + line);
            const size_t arrow = line.find(" -> ");
            Words words = support::WordsOf(line.substr(0, arrow));
            const std::string verb = platform::ToUtf8(words.at(0));
            words.erase(words.begin());
            EXPECT_EQ(Answer(verb, words),
                      arrow == line.npos ? words : support::WordsOf(line.substr(arrow + 4)));
        }
}

TEST(FsError, CodesOfStatusesComeBack) {
    EXPECT_LT(FsError::ToNtStatus(FSSTATUS_BUFFER_OVERFLOW), 0);
    for (int value = 0; value <= 18; ++value) {
        const FBR_STATUS status = static_cast<FBR_STATUS>(value);
        if (status == FSSTATUS_INVALID_PARAMETER || status == FSSTATUS_VERSION_MISMATCH) continue;
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToNtStatus(status)), status);
        if (status == FSSTATUS_FAILED) continue;  // 31 is FSSTATUS_NOT_IMPLEMENTED
        EXPECT_EQ(FsError::ToFsStatus(FsError::ToWin32(status)), status);
    }
}

TEST(Names, EveryUnitComesBack) {
    for (const FsNameSet set : {FsNameSet::Value, FsNameSet::Key}) {
        for (uint32_t code = 1; code < 0x10000; ++code) {
            const auto unit = static_cast<WChar>(code);
            const WString name{'x', unit, 'y'};
            const WString stored = Escaped(name, set);
            ASSERT_EQ(Unescaped(stored), name) << code;
            ASSERT_EQ(stored.size(), stored == name ? 3u : 7u) << code;
            // What goes to the engine as it is must be something that the engine takes.
            if (stored != name) continue;
            ASSERT_GE(code, 0x20u);
            ASSERT_EQ(WStringView(WTEXT("/:*?\"<>|#")).find(unit), WStringView::npos) << code;
            ASSERT_TRUE(platform::IsPrintable(unit)) << code;
        }
    }
}

TEST(Names, NeedMemoryOnlyWhereTheyChangeAndSaySoWithoutIt) {
    const WString plain(3000, 'n'), name(1000, '/');
    FsText buffer;
    WStringView stored;
    {
        const support::FailingHeap heap(1, true);
        ASSERT_TRUE(FS_EscapeName(plain, FsNameSet::Value, &buffer, &stored));
        EXPECT_EQ(stored.data(), plain.data()) << "the caller's own text";
        EXPECT_EQ(heap.Calls(), 0u);
        WChar* out = nullptr;
        EXPECT_FALSE(FS_EscapeName(name, FsNameSet::Value, &buffer, &stored));
        EXPECT_FALSE(FS_JoinPath(name, name, &buffer));
        EXPECT_FALSE(FS_CollisionPath(name, &buffer));
        EXPECT_FALSE(FS_UnescapeName(WTEXT("#0041"), &out));
        EXPECT_FALSE(FS_UnescapeName(nullptr, &out));
        EXPECT_FALSE(FS_UnescapeName(WTEXT("a"), nullptr));
        EXPECT_EQ(out, nullptr);
    }
    EXPECT_EQ(Unescaped(Escaped(name, FsNameSet::Value)), name);
}

}  // namespace
