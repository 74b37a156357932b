#include "tests/contract/OpenStore.h"

namespace contract {

namespace {

constexpr uint32_t kWriteLock = 2;

WString Taken(FBR_WCHAR* text) {
    WString copy = text == nullptr ? WString(WTEXT("<null>")) : WString(text);
    FBR_Release(text);
    return copy;
}

using EnumerateAll = FBR_STATUS (*)(FBR_KEY, std::vector<WString>&, FBR_STORE);
using EnumerateOne = FBR_STATUS (*)(FBR_KEY, uint32_t, FBR_WCHAR**, FBR_STORE);

std::set<WString> Names(FBR_KEY key, EnumerateAll all, EnumerateOne one, FBR_STORE store) {
    std::vector<WString> together;
    EXPECT_EQ(all(key, together, store), FSSTATUS_NO_MORE_ENTRIES);
    std::vector<WString> single;
    FBR_WCHAR* name = nullptr;
    // One by one may cost a walk each time: large keys are tried at both ends only.
    const uint32_t count = static_cast<uint32_t>(together.size());
    for (uint32_t i = 0; i<count; i += count> 200 ? count - 1 : 1) {
        EXPECT_EQ(one(key, i, &name, store), FSSTATUS_SUCCESS);
        EXPECT_EQ(Taken(name), together[i]);
    }
    name = nullptr;
    EXPECT_EQ(one(key, count, &name, store), FSSTATUS_NO_MORE_ENTRIES);
    EXPECT_TRUE(name == nullptr || *name == 0);
    FBR_Release(name);
    std::set<WString> names(together.begin(), together.end());
    EXPECT_EQ(names.size(), together.size()) << "a name came twice";
    return names;
}

}  // namespace

OpenStore::OpenStore(Place& place) : place_(place) {
    EXPECT_EQ(FBR_InitialiseEx(place.Path().c_str(), &store_, place.Method()), FSSTATUS_SUCCESS);
    if (store_ == nullptr) return;
    EXPECT_EQ(FBR_GetLockEx(kWriteLock, store_), FSSTATUS_SUCCESS);
    place_.Opened(store_);
}

void OpenStore::Close() {
    if (store_ == nullptr) return;
    place_.Closing(store_);
    // Closed under the lock, so that volatile keys can go.
    EXPECT_EQ(FBR_DeInitialiseEx(std::exchange(store_, nullptr)), FSSTATUS_SUCCESS);
}

OpenKey OpenStore::Open(const WString& path, FBR_KEY parent) {
    FBR_KEY key = 0;
    EXPECT_EQ(FBR_OpenDirEx(parent, path.c_str(), &key, store_), FSSTATUS_SUCCESS)
        << platform::ToUtf8(path);
    return {store_, key};
}

OpenKey OpenStore::Create(const WString& path, FBR_KEY parent) {
    FBR_KEY key = 0;
    const FBR_STATUS status =
        FBR_CreateDirEx(parent, path.c_str(), FSCREATEOPTIONS_NONE, &key, store_);
    EXPECT_TRUE(status == FSSTATUS_SUCCESS || status == FSSTATUS_ALREADY_EXISTS)
        << platform::ToUtf8(path) << ": " << status;
    EXPECT_NE(key, 0);
    return {store_, key};
}

FBR_STATUS OpenStore::Probe(const WString& path, FBR_KEY parent) {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_OpenDirEx(parent, path.c_str(), &key, store_);
    EXPECT_EQ(OpenKey(store_, key).Close(), FSSTATUS_SUCCESS);
    return status;
}

FBR_STATUS OpenStore::Make(const WString& path, FBR_KEY parent, FBR_CREATEOPTIONS options) {
    FBR_KEY key = 0;
    const FBR_STATUS status = FBR_CreateDirEx(parent, path.c_str(), options, &key, store_);
    EXPECT_EQ(OpenKey(store_, key).Close(), FSSTATUS_SUCCESS);
    return status;
}

FBR_STATUS OpenStore::Set(FBR_KEY key, const WString& name, const std::string& bytes,
                          uint32_t type) {
    return FBR_SetValue(key, name.c_str(), type, bytes.data(), bytes.size(), store_);
}

Value OpenStore::Get(FBR_KEY key, const WString& name, FBR_STATUS* status) {
    Value value;
    uint64_t size = 0;
    FBR_STATUS result = FBR_QueryValue(key, name.c_str(), nullptr, 0, &size, &value.type, store_);
    if (result == FSSTATUS_BUFFER_OVERFLOW || size != 0) {
        value.bytes.resize(size);
        result =
            FBR_QueryValue(key, name.c_str(), value.bytes.data(), size, &size, &value.type, store_);
        EXPECT_EQ(size, value.bytes.size());
    }
    if (status != nullptr) {
        *status = result;
    } else {
        EXPECT_EQ(result, FSSTATUS_SUCCESS) << platform::ToUtf8(name);
    }
    return value;
}

std::set<WString> OpenStore::Values(FBR_KEY key) {
    return Names(key, FBR_EnumerateAllValues, FBR_EnumIntFileEx, store_);
}

std::set<WString> OpenStore::Keys(FBR_KEY key) {
    return Names(key, FBR_EnumerateAllKeys, FBR_EnumIntDirEx, store_);
}

WString OpenStore::FullName(FBR_KEY key) {
    FBR_WCHAR* name = nullptr;
    EXPECT_EQ(FBR_GetFullName_DirEx(key, &name, store_), FSSTATUS_SUCCESS);
    return Taken(name);
}

WString OpenStore::Name(FBR_KEY key) {
    FBR_WCHAR* name = nullptr;
    EXPECT_EQ(FBR_GetName_DirEx(key, &name, store_), FSSTATUS_SUCCESS);
    return Taken(name);
}

Tree OpenStore::Content(const WString& path) {
    Tree tree;
    const OpenKey key = Open(path.empty() ? WString(WTEXT("\\")) : path);
    for (const WString& name : Values(key)) tree.values[name] = Get(key, name);
    for (const WString& name : Keys(key)) tree.keys[name] = Content(path + WTEXT("\\") + name);
    return tree;
}

Tree OpenStore::Content() {
    Tree tree = Content(WString());
    tree.values.erase(WTEXT("FBRVersion"));
    return tree;
}

std::string Bytes(size_t size, uint32_t seed) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

WString Name(const std::string& text) {
    return WString(text.begin(), text.end());
}

}  // namespace contract
