#include "tests/sharing/Content.h"

#include <algorithm>
#include <mutex>
#include <thread>

namespace sharing {
namespace {

constexpr uint32_t kBinary = 3;
constexpr uint64_t kLargest = 1 << 16;

// A key that is open for the time of a call.
class OpenKey {
  public:
    explicit OpenKey(FBR_STORE store) : store_(store) {}
    ~OpenKey() {
        if (key != 0) FBR_CloseDirEx(key, store_);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    FBR_KEY key = 0;

  private:
    FBR_STORE store_;
};

FBR_STATUS Query(FBR_STORE store, FBR_KEY key, const Text& name, Value* value) {
    uint64_t size = 0;
    value->data.resize(kLargest);
    const FBR_STATUS status = FBR_QueryValue(key, name.c_str(), value->data.data(),
                                             value->data.size(), &size, &value->type, store);
    value->data.resize(status == FSSTATUS_SUCCESS ? size : 0);
    return status;
}

std::u16string Units(const Text& text) {
    return std::u16string(text.begin(), text.end());
}

FBR_STATUS ReadKey(FBR_STORE store, FBR_KEY key, Key* out) {
    std::vector<Text> names;
    FBR_STATUS status = FBR_EnumerateAllValues(key, names, store);
    if (status != FSSTATUS_NO_MORE_ENTRIES) return status;
    for (const Text& name : names) {
        status = Query(store, key, name, &out->values[Units(name)]);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    names.clear();
    status = FBR_EnumerateAllKeys(key, names, store);
    if (status != FSSTATUS_NO_MORE_ENTRIES) return status;
    for (const Text& name : names) {
        OpenKey below(store);
        status = FBR_OpenDirEx(key, name.c_str(), &below.key, store);
        if (status == FSSTATUS_SUCCESS) status = ReadKey(store, below.key, &out->keys[Units(name)]);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    return FSSTATUS_SUCCESS;
}

std::string Ascii(const std::u16string& text) {
    return std::string(text.begin(), text.end());
}

std::mutex checking;
Findings* told = nullptr;  // a callback is not told whose it is

void Told(void*, uint32_t code, uint32_t, uint32_t, uint8_t, uint8_t*) {
    if (code > 4) ++told->codes[code];
}

}  // namespace

Text Wide(const std::string& ascii) {
    return Text(ascii.begin(), ascii.end());
}

Store::Store(const std::string& path) {
    status = FBR_InitialiseEx(Wide(path).c_str(), &handle, FS_VR_METHOD_TARN);
}

Store::~Store() {
    Close();
}

FBR_STATUS Store::Close() {
    const FBR_STATUS result = handle != nullptr ? FBR_DeInitialiseEx(handle) : FSSTATUS_SUCCESS;
    handle = nullptr;
    return result;
}

FBR_STATUS Store::Set(const std::string& path, const std::string& name, const Bytes& data) {
    OpenKey key(handle);
    FBR_STATUS result =
        FBR_CreateDirEx(0, Wide(path).c_str(), FSCREATEOPTIONS_NONE, &key.key, handle);
    if (result != FSSTATUS_SUCCESS && result != FSSTATUS_ALREADY_EXISTS) return result;
    return FBR_SetValue(key.key, Wide(name).c_str(), kBinary, data.data(), data.size(), handle);
}

FBR_STATUS Store::Get(const std::string& path, const std::string& name, Bytes* data) {
    OpenKey key(handle);
    const FBR_STATUS result = FBR_OpenDirEx(0, Wide(path).c_str(), &key.key, handle);
    return result == FSSTATUS_SUCCESS ? Get(key.key, name, data) : result;
}

FBR_STATUS Store::Get(FBR_KEY key, const std::string& name, Bytes* data) {
    Value value;
    const FBR_STATUS result = Query(handle, key, Wide(name), &value);
    *data = std::move(value.data);
    return result;
}

FBR_STATUS ReadAll(FBR_STORE store, Key* root) {
    *root = Key();
    OpenKey key(store);
    const Text name = Wide("\\");
    FBR_STATUS status = FBR_OpenDirEx(0, name.c_str(), &key.key, store);
    if (status == FSSTATUS_SUCCESS) status = ReadKey(store, key.key, root);
    root->values.erase(u"FBRVersion");
    return status;
}

std::string OwnKey(uint32_t writer) {
    return "\\writer" + std::to_string(writer);
}

std::string PairKey(uint32_t pair) {
    return "\\pair" + std::to_string(pair);
}

std::string FromKey(uint32_t number) {
    return "\\from" + std::to_string(number / 50);
}

std::string OwnName(uint32_t sequence) {
    return "v" + std::to_string(sequence % kOwnValues);
}

uint32_t SizeOf(uint32_t sequence) {
    constexpr uint32_t kSizes[] = {40, 470, 60, 1000, 4000, 36, 12000, 200, 2500};
    return kSizes[sequence * 7 % std::size(kSizes)];
}

FBR_STATUS ChangeShared(Store* store, uint32_t writer, uint32_t sequence) {
    const Seal seal{writer, sequence};
    const std::string own = OwnKey(writer), name = OwnName(sequence);
    FBR_STATUS status = store->Set(own, name, Sealed(own, name, seal, SizeOf(sequence)));
    const std::string pair = PairKey(sequence % kPairs);
    for (const char* half : {"a", "b"})
        if (status == FSSTATUS_SUCCESS)
            status = store->Set(pair, half, Sealed(pair, half, seal, SizeOf(sequence + 3)));
    // Something that comes and goes, so that names and pages move.
    const std::string guest = own + "\\guest" + std::to_string(sequence / 2 % 5);
    if (status == FSSTATUS_SUCCESS)
        status = sequence % 2 == 0 ? store->Set(guest, "v", Sealed(guest, "v", seal, 100))
                                   : FBR_DeleteDirNamedEx(Wide(guest).c_str(), store->handle);
    return status;
}

void MakeShared(const std::string& path, uint32_t writers) {
    Store store(path);
    ASSERT_EQ(store.status, FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Lock(), FSSTATUS_SUCCESS);
    for (uint32_t writer = 0; writer < writers; ++writer)
        for (uint32_t sequence = 0; sequence < kOwnValues; ++sequence)
            ASSERT_EQ(ChangeShared(&store, writer, sequence), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Unlock(), FSSTATUS_SUCCESS);
    ASSERT_EQ(store.Close(), FSSTATUS_SUCCESS);
}

void JudgeShared(const Key& root, Tally* tally) {
    std::string wrong;
    uint32_t keys = 0;
    for (const auto& [name, key] : root.keys) {
        const std::string path = "\\" + Ascii(name);
        const bool pair = path.starts_with("\\pair");
        ++keys;
        if (key.values.size() != (pair ? 2 : kOwnValues))
            tally->Wrong(path + " has " + std::to_string(key.values.size()) + " values");
        std::vector<std::optional<Seal>> seals;
        for (const auto& [valueName, value] : key.values) {
            seals.push_back(ReadSeal(value.data, path, Ascii(valueName), &wrong));
            if (!seals.back()) tally->Wrong(wrong);
        }
        if (pair && seals.size() == 2 && seals[0] != seals[1]) tally->Wrong(path + " is torn");
        for (const auto& [guestName, guest] : key.keys)
            for (const auto& [valueName, value] : guest.values)
                if (!ReadSeal(value.data, path + "\\" + Ascii(guestName), Ascii(valueName), &wrong))
                    tally->Wrong(wrong);
    }
    if (keys <= kPairs) tally->Wrong("keys are missing");
}

void ExpectChanges(const std::string& path, uint32_t writer, uint64_t done) {
    Store store(path);
    const uint32_t next = kOwnValues + static_cast<uint32_t>(done);
    uint32_t lost = 0;
    std::string first;
    for (uint32_t sequence = next - kOwnValues; sequence < next; ++sequence) {
        Bytes data;
        std::string wrong = "cannot be read";
        std::optional<Seal> seal;
        if (store.Get(OwnKey(writer), OwnName(sequence), &data) == FSSTATUS_SUCCESS)
            seal = ReadSeal(data, OwnKey(writer), OwnName(sequence), &wrong);
        if (seal == Seal{writer, sequence}) continue;
        if (seal) wrong = "number " + std::to_string(seal->sequence);
        if (lost++ == 0) first = OwnName(sequence) + ": " + wrong;
    }
    EXPECT_EQ(lost, 0u) << "of writer " << writer << ", first " << first;
}

void ExpectValuesFrom(const std::string& path, const std::string& number, int count) {
    Store store(path);
    int lost = 0;
    for (int i = 0; i < count; ++i) {
        const std::string name = number + "-" + std::to_string(i);
        const std::string key = FromKey(static_cast<uint32_t>(i));
        Bytes data;
        const bool good =
            store.Get(key, name, &data) == FSSTATUS_SUCCESS && data == Sealed(key, name, {}, 300);
        if (!good) ++lost;
    }
    EXPECT_EQ(lost, 0) << "of " << count << " from number " << number;
}

void ExpectOneLock(Troupe* troupe, const std::string& path, const std::string& folder,
                   const std::string& name) {
    SCOPED_TRACE(name);
    const std::string ready = troupe->File("ready");
    std::filesystem::remove(ready);
    Player* holder = troupe->Start("sharing-hold", {path, "1", ready});
    ASSERT_TRUE(WaitForFile(ready));
    Player* user = troupe->Start("sharing-set-from", {folder, name, "x", "3", "0"});
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_FALSE(user->HasReported()) << "it has a lock of its own";
    holder->Kill();
    const std::optional<Tally> tally = user->FinishSoon();
    ASSERT_TRUE(tally.has_value()) << "it waits for nobody";
    EXPECT_TRUE(tally->Good() && tally->done == 3) << tally->Line();
}

std::string Findings::Line() const {
    std::string text = "status " + std::to_string(status);
    for (const auto& [code, count] : codes)
        text += ", code " + std::to_string(code) + " x " + std::to_string(count);
    return text;
}

bool Findings::OnlyLostPages() const {
    return status == FSSTATUS_SUCCESS &&
           std::all_of(codes.begin(), codes.end(),
                       [](const auto& code) { return code.first == 9; });
}

Findings CheckFile(const std::string& path) {
    const std::lock_guard guard(checking);
    Findings findings;
    told = &findings;
    findings.status = FBR_CheckFileEx(Wide(path).c_str(), Told);
    return findings;
}

void ExpectSound(const std::string& path) {
    const auto reading = support::container::ReadContainer(support::ReadBytes(path));
    EXPECT_TRUE(reading.Sound()) << reading.Report();
    const Findings findings = CheckFile(path);
    EXPECT_TRUE(findings.Sound()) << findings.Line();
}

void ExpectOnlyLostPages(const std::string& path) {
    const auto reading = support::container::ReadContainer(support::ReadBytes(path));
    for (const std::string& problem : reading.problems)
        EXPECT_TRUE(problem.ends_with("in use, and nothing refers to it")) << problem;
    const Findings findings = CheckFile(path);
    EXPECT_TRUE(findings.OnlyLostPages()) << findings.Line();
}

}  // namespace sharing
