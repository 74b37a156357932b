// The settings file: typed settings over a container.
#include <gtest/gtest.h>

#include <algorithm>

#include "include/IFBRSettingsFile.h"
#include "tests/support/Store.h"

namespace {

using platform::WString;
using support::Bytes;
using support::kRegBinary;
using support::kRegDword;
using support::kRegSz;
using support::Text;
using Strings = support::Names;

const WString kKey = WTEXT("\\k");
constexpr uint32_t kRegExpandSz = 2;
constexpr uint32_t kRegMultiSz = 7;
constexpr uint32_t kRegQword = 11;

Bytes BytesOf(const WString& text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    return Bytes(bytes, bytes + text.size() * sizeof(platform::WChar));
}

class Settings : public testing::Test {
  protected:
    std::unique_ptr<IFBRSettingsFile> Make(FBR_METHOD method = FS_VR_METHOD_TARN) {
        return CreateFBRSettingsFile(path, method);
    }
    void SetUp() override { ASSERT_EQ(file->Create(false), FSSTATUS_SUCCESS); }
    FBR_STATUS SetRaw(const Text& name, uint32_t type, const Bytes& bytes) {
        file->CreateKey(kKey);
        return file->SetRawValue(kKey, name, bytes, type);
    }

    support::TempDir dir;
    const WString path = dir.File("settings.fbr");
    std::unique_ptr<IFBRSettingsFile> file = Make();
};

TEST_F(Settings, CreateRefusesAnExistingFileUnlessItMayBeReplaced) {
    file->SetString(kKey, WTEXT("v"), WTEXT("text"), true);
    file.reset();
    const Bytes before = support::ReadBytes(dir / "settings.fbr");
    file = Make();
    EXPECT_EQ(file->Create(false), FSSTATUS_ALREADY_EXISTS);
    EXPECT_EQ(support::ReadBytes(dir / "settings.fbr"), before);
    EXPECT_EQ(file->KeyExists(kKey), false) << "no store is open";
    EXPECT_EQ(file->Create(true), FSSTATUS_SUCCESS);
    EXPECT_FALSE(file->KeyExists(kKey));
}

TEST_F(Settings, OpenTakesWhatIsThereAndMakesNothing) {
    file->SetString(kKey, WTEXT("v"), WTEXT("text"), true);
    EXPECT_EQ(file->Open(), FSSTATUS_SUCCESS) << "gives up its own lock first";
    WString text;
    EXPECT_EQ(file->GetString(kKey, WTEXT("v"), text), FSSTATUS_SUCCESS);
    EXPECT_EQ(text, WTEXT("text"));
    const auto other = CreateFBRSettingsFile(dir.File("missing.fbr"), FS_VR_METHOD_TARN);
    EXPECT_EQ(other->Open(), FSSTATUS_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(dir / "missing.fbr"));
    const auto reserved = CreateFBRSettingsFile(dir.File("x.fbr"), FS_VR_METHOD_VARNHOLD_TARN);
    EXPECT_EQ(reserved->Open(), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(reserved->Create(false), FSSTATUS_NOT_IMPLEMENTED);
}

TEST_F(Settings, WithoutAStoreEverythingIsAnInvalidParameter) {
    const auto closed = CreateFBRSettingsFile(path, FS_VR_METHOD_TARN);
    uint32_t dword = 0;
    WString text;
    Strings names;
    Bytes bytes;
    const WString key = WTEXT("\\k");
    const FBR_STATUS answers[] = {closed->EnumerateKeys(key, names),
                                  closed->GetDword(key, key, dword),
                                  closed->GetString(key, key, text),
                                  closed->GetMultiString(key, key, names),
                                  closed->GetBinary(key, key, bytes),
                                  closed->DeleteValue(key, key),
                                  closed->DeleteKey(key, false),
                                  closed->DeleteKey(key, true),
                                  closed->MarkKeyDeleted(key),
                                  closed->CreateKey(key),
                                  closed->SetString(key, key, key, true),
                                  closed->RenameKey(key, key),
                                  closed->GetRawValue(key, key, bytes, {}),
                                  closed->SetRawValue(key, key, bytes, 1)};
    for (const FBR_STATUS answer : answers) EXPECT_EQ(answer, FSSTATUS_INVALID_PARAMETER);
}

TEST_F(Settings, NumbersMustHaveTheirTypeAndSize) {
    SetRaw("d", kRegDword, {1, 2, 3, 4});
    SetRaw("q", kRegQword, {1, 2, 3, 4, 5, 6, 7, 8});
    SetRaw("short", kRegDword, {1, 2});
    SetRaw("empty", kRegDword, {});
    uint32_t dword = 77;
    uint64_t qword = 77;
    for (const WString name : {WTEXT("q"), WTEXT("short"), WTEXT("empty")})
        EXPECT_EQ(file->GetDword(kKey, name, dword), FSSTATUS_FAILED);
    EXPECT_EQ(file->GetQword(kKey, WTEXT("d"), qword), FSSTATUS_FAILED);
    EXPECT_EQ(file->GetDword(kKey, WTEXT("none"), dword), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(file->GetDword(WTEXT("\\none"), WTEXT("d"), dword), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(dword, 77u) << "untouched";
    EXPECT_EQ(qword, 77u);
    EXPECT_EQ(file->GetDword(kKey, WTEXT("d"), dword), FSSTATUS_SUCCESS);
    EXPECT_EQ(file->GetQword(kKey, WTEXT("q"), qword), FSSTATUS_SUCCESS);
    EXPECT_EQ(dword, 0x04030201u);
    EXPECT_EQ(qword, 0x0807060504030201u);
}

TEST_F(Settings, StringsLoseTheTerminatorsAtTheirEnd) {
    EXPECT_EQ(file->SetString(WTEXT("\\new\\key"), WTEXT(""), WTEXT("text"), true),
              FSSTATUS_SUCCESS);
    Bytes raw;
    uint32_t type = 0;
    EXPECT_EQ(file->GetRawValue(WTEXT("\\new\\key"), WTEXT("(Default)"), raw, &type),
              FSSTATUS_SUCCESS);
    EXPECT_EQ(type, kRegSz);
    EXPECT_EQ(raw, BytesOf(WString(WTEXT("text")) + WString(1, 0)));
    SetRaw("two", kRegExpandSz, BytesOf(WString(WTEXT("a\0b\0\0"), 5)));
    SetRaw("odd", kRegSz, {'x', 0, 'y'});
    SetRaw("empty", kRegBinary, {});
    SetRaw("binary", kRegBinary, {'x', 0});
    WString text;
    EXPECT_EQ(file->GetString(kKey, WTEXT("two"), text), FSSTATUS_SUCCESS);
    EXPECT_EQ(text, WString(WTEXT("a\0b"), 3));
    EXPECT_EQ(file->GetString(kKey, WTEXT("odd"), text), FSSTATUS_SUCCESS);
    EXPECT_EQ(text, WTEXT("x"));
    EXPECT_EQ(file->GetString(kKey, WTEXT("binary"), text), FSSTATUS_FAILED);
    EXPECT_EQ(text, WTEXT("x"));
    EXPECT_EQ(file->GetString(kKey, WTEXT("empty"), text), FSSTATUS_SUCCESS);
    EXPECT_EQ(text, WTEXT("")) << "an empty value may be of any type";
}

TEST_F(Settings, ASettingWithoutItsKeyFails) {
    for (const WString key : {WTEXT("\\none"), WTEXT("\\none\\below")}) {
        EXPECT_EQ(file->SetString(key, WTEXT("v"), WTEXT("x"), false), FSSTATUS_NOT_FOUND);
        EXPECT_EQ(file->SetRawValue(key, WTEXT("v"), {1}, kRegSz), FSSTATUS_NOT_FOUND);
        EXPECT_FALSE(file->KeyExists(key));
    }
}

TEST_F(Settings, MultiStringsLoseTheirEmptyStrings) {
    SetRaw("m", kRegMultiSz, BytesOf(WString(WTEXT("a\0\0b\0\0"), 6)));
    Strings strings;
    EXPECT_EQ(file->GetMultiString(kKey, WTEXT("m"), strings), FSSTATUS_SUCCESS);
    EXPECT_EQ(strings, (Strings{WTEXT("a"), WTEXT("b")}));
    SetRaw("s", kRegSz, BytesOf(WTEXT("ab")));
    EXPECT_EQ(file->GetMultiString(kKey, WTEXT("s"), strings), FSSTATUS_FAILED);
    EXPECT_EQ(strings.size(), 2u);
}

TEST_F(Settings, BinaryAndRawValues) {
    SetRaw("b", kRegBinary, {9, 8});
    SetRaw("other", 4711, {1});
    Bytes bytes{1};
    EXPECT_EQ(file->GetBinary(kKey, WTEXT("b"), bytes), FSSTATUS_SUCCESS);
    EXPECT_EQ(bytes, Bytes({9, 8}));
    EXPECT_EQ(file->GetBinary(kKey, WTEXT("other"), bytes), FSSTATUS_FAILED);
    uint32_t type = 0;
    EXPECT_EQ(file->GetRawValue(kKey, WTEXT("other"), bytes, &type), FSSTATUS_SUCCESS);
    EXPECT_EQ(type, 4711u);
    EXPECT_EQ(file->GetRawValue(kKey, WTEXT("none"), bytes, nullptr), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(bytes.empty());
    EXPECT_TRUE(file->ValueExists(kKey, WTEXT("B")));
    EXPECT_EQ(file->DeleteValue(kKey, WTEXT("b")), FSSTATUS_SUCCESS);
    EXPECT_FALSE(file->ValueExists(kKey, WTEXT("b")));
}

TEST_F(Settings, ListingsReplaceTheVector) {
    file->CreateKey(WTEXT("\\k\\sub"));
    Strings names{WTEXT("old")};
    EXPECT_EQ(file->EnumerateKeys(WTEXT("\\k\\sub"), names), FSSTATUS_SUCCESS);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(file->EnumerateKeys(kKey, names), FSSTATUS_SUCCESS);
    EXPECT_EQ(names, Strings{WTEXT("sub")});
    SetRaw("v", kRegSz, {});
    EXPECT_EQ(file->EnumerateValues(kKey, names), FSSTATUS_SUCCESS);
    EXPECT_EQ(names, Strings{WTEXT("v")});
    EXPECT_EQ(file->EnumerateValues(WTEXT("\\none"), names), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(names.empty());
}

TEST_F(Settings, KeysAreDeletedAloneOrWithAllBelow) {
    file->CreateKey(WTEXT("\\k\\a/b\\c"));
    SetRaw("v", kRegSz, {});
    EXPECT_EQ(file->DeleteKey(kKey, false), FSSTATUS_DIR_NOT_EMPTY);
    EXPECT_FALSE(file->ValueExists(kKey, WTEXT("v")));
    EXPECT_EQ(file->DeleteKey(kKey, true), FSSTATUS_SUCCESS);
    EXPECT_FALSE(file->KeyExists(kKey));
    EXPECT_EQ(file->DeleteKey(kKey, true), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(file->CreateKey(kKey), FSSTATUS_SUCCESS);
    EXPECT_EQ(file->CreateKey(kKey), FSSTATUS_SUCCESS);
    EXPECT_EQ(file->RenameKey(kKey, WTEXT("n")), FSSTATUS_SUCCESS);
    EXPECT_TRUE(file->KeyExists(WTEXT("\\n")));
}

TEST_F(Settings, DeletedKeysLeaveAMarkBesideThem) {
    file->CreateKey(WTEXT("\\a\\b"));
    EXPECT_EQ(file->MarkKeyDeleted(WTEXT("\\a\\b\\")), FSSTATUS_SUCCESS);
    EXPECT_EQ(file->MarkKeyDeleted(WTEXT("\\a\\b")), FSSTATUS_SUCCESS);
    Strings names;
    file->EnumerateKeys(WTEXT("\\a"), names);
    EXPECT_EQ(names, (Strings{WTEXT("b"), WTEXT("b_R.I.P")}));
}

TEST_F(Settings, HoldTheWriteLockUntilTheyGo) {
    FBR_STORE store = nullptr;
    ASSERT_EQ(FBR_InitialiseEx(path.c_str(), &store, FS_VR_METHOD_TARN), FSSTATUS_SUCCESS);
    file->SetString(kKey, WTEXT("v"), WTEXT("x"), true);
    file.reset();
    EXPECT_EQ(FBR_GetLockEx(1, store), FSSTATUS_SUCCESS);
    FBR_KEY key = 0;
    EXPECT_EQ(FBR_OpenDirEx(0, kKey.c_str(), &key, store), FSSTATUS_SUCCESS);
    EXPECT_EQ(FBR_DeInitialiseEx(store), FSSTATUS_SUCCESS);
}

TEST_F(Settings, ALongPathPrefixIsDropped) {
    const auto other =
        CreateFBRSettingsFile(WTEXT("\\\\?\\") + dir.File("long.fbr"), FS_VR_METHOD_TARN);
    EXPECT_EQ(other->Create(false), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(dir / "long.fbr"));
}

}  // namespace
