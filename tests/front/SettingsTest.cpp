// The settings file: typed settings over a container.
#include <gtest/gtest.h>

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
    for (const FBR_STATUS answer :
         {closed->EnumerateKeys(key, names), closed->GetDword(key, key, dword),
          closed->GetString(key, key, text), closed->GetMultiString(key, key, names),
          closed->GetBinary(key, key, bytes), closed->DeleteValue(key, key),
          closed->DeleteKey(key, false), closed->DeleteKey(key, true), closed->MarkKeyDeleted(key),
          closed->CreateKey(key), closed->SetString(key, key, key, true),
          closed->RenameKey(key, key), closed->GetRawValue(key, key, bytes, {}),
          closed->SetRawValue(key, key, bytes, 1)})
        EXPECT_EQ(answer, FSSTATUS_INVALID_PARAMETER);
}

TEST_F(Settings, ValuesAreReadByTheirTypeAndSize) {
    const auto text = [](const WString& units) {
        std::string out;
        for (const auto unit : units) out += unit == 0 ? '0' : static_cast<char>(unit);
        return out;
    };
    const auto read = [&](char how, const WString& name) {
        uint32_t dword = 77;
        uint64_t qword = 77;
        WString string = WTEXT("77");
        Strings strings = {string};
        Bytes bytes = {'7', '7'};
        FBR_STATUS status = FSSTATUS_SUCCESS;
        std::string told;
        if (how == 'd') status = file->GetDword(kKey, name, dword), told = std::to_string(dword);
        if (how == 'q') status = file->GetQword(kKey, name, qword), told = std::to_string(qword);
        if (how == 's') status = file->GetString(kKey, name, string), told = text(string);
        if (how == 'b')
            status = file->GetBinary(kKey, name, bytes), told.assign(bytes.begin(), bytes.end());
        if (how == 'm') {
            status = file->GetMultiString(kKey, name, strings);
            for (const WString& one : strings) told += " " + text(one);
        }
        return std::to_string(status) + told;
    };
    const struct {
        uint32_t type;
        Bytes bytes;
        char how;
        const char* expected;
    } rows[] = {
        {kRegDword, {1, 2, 3, 4}, 'd', "067305985"},
        {kRegQword, {1, 2, 3, 4, 5, 6, 7, 8}, 'q', "0578437695752307201"},
        {kRegQword, {1, 2, 3, 4, 5, 6, 7, 8}, 'd', "177"},
        {kRegDword, {1, 2, 3, 4}, 'q', "177"},
        {kRegDword, {1, 2}, 'd', "177"},
        {kRegDword, {}, 'd', "177"},
        // Strings lose the terminators at their end, and an empty value may be of any type.
        {kRegExpandSz, BytesOf(WString(WTEXT("a\0b\0\0"), 5)), 's', "0a0b"},
        {kRegSz, {'x', 0, 'y'}, 's', "0x"},
        {kRegBinary, {'x', 0}, 's', "177"},
        {kRegBinary, {}, 's', "0"},
        // And lists their empty strings.
        {kRegMultiSz, BytesOf(WString(WTEXT("a\0\0b\0\0"), 6)), 'm', "0 a b"},
        {kRegSz, BytesOf(WTEXT("ab")), 'm', "1 77"},
        {kRegBinary, {'9', '8'}, 'b', "098"},
        {4711, {1}, 'b', "177"},
    };
    for (const auto& row : rows) {
        SetRaw("v", row.type, row.bytes);
        EXPECT_EQ(read(row.how, WTEXT("v")), row.expected);
    }
    EXPECT_EQ(read('d', WTEXT("none")), "377");
    Bytes raw{1};
    uint32_t type = 0;
    EXPECT_EQ(file->GetRawValue(kKey, WTEXT("v"), raw, &type), FSSTATUS_SUCCESS);
    EXPECT_EQ(type, 4711u);
    EXPECT_EQ(file->GetRawValue(kKey, WTEXT("none"), raw, nullptr), FSSTATUS_NOT_FOUND);
    EXPECT_TRUE(raw.empty());
    // A string is set with one terminator, in a key that is made or must be there.
    const WString key = WTEXT("\\new\\key");
    EXPECT_EQ(file->SetString(key, WTEXT(""), WTEXT("text"), false), FSSTATUS_NOT_FOUND);
    EXPECT_EQ(file->SetRawValue(key, WTEXT(""), {1}, kRegSz), FSSTATUS_NOT_FOUND);
    EXPECT_FALSE(file->KeyExists(key));
    EXPECT_EQ(file->SetString(key, WTEXT(""), WTEXT("text"), true), FSSTATUS_SUCCESS);
    EXPECT_EQ(file->GetRawValue(key, WTEXT("(Default)"), raw, &type), FSSTATUS_SUCCESS);
    EXPECT_EQ(type, kRegSz);
    EXPECT_EQ(raw, BytesOf(WString(WTEXT("text")) + WString(1, 0)));
    EXPECT_TRUE(file->ValueExists(kKey, WTEXT("V")));
    EXPECT_EQ(file->DeleteValue(kKey, WTEXT("v")), FSSTATUS_SUCCESS);
    EXPECT_FALSE(file->ValueExists(kKey, WTEXT("v")));
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
    for (const WString key : {WTEXT("\\a\\b\\"), WTEXT("\\a\\b")})
        EXPECT_EQ(file->MarkKeyDeleted(key), FSSTATUS_SUCCESS);
    Strings names;
    file->EnumerateKeys(WTEXT("\\a"), names);
    EXPECT_EQ(names, (Strings{WTEXT("b"), WTEXT("b_R.I.P")}));
}

// Another store meets it, also under a path with the prefix of long ones.
TEST_F(Settings, HoldTheWriteLockUntilTheyGo) {
    support::Store store(path);
    file->SetString(kKey, WTEXT("v"), WTEXT("x"), true);
    EXPECT_EQ(store.Lock(), FSSTATUS_LOCK_FAILED);
    file.reset();
    EXPECT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    EXPECT_TRUE(store.Has(kKey));
    file = CreateFBRSettingsFile(WTEXT("\\\\?\\") + dir.File("long.fbr"), FS_VR_METHOD_TARN);
    EXPECT_EQ(file->Create(false), FSSTATUS_SUCCESS);
    EXPECT_TRUE(std::filesystem::exists(dir / "long.fbr"));
}

}  // namespace
