#include "tests/sharing/OpenStore.h"

#include <algorithm>
#include <mutex>

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
