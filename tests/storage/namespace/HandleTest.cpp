#include "tests/storage/namespace/Store.h"

namespace tests {

namespace {

struct Opened {
    FileHandle* file = nullptr;
    Status status;
    Opened(Store& store, const WChar* path, bool read, bool write, bool denyRead = false,
           bool denyWrite = false)
        : status(
              StorageOpenFile(store, path, read, write, denyRead, denyWrite, nullptr, 0, &file)) {}
    ~Opened() {
        if (file != nullptr) StorageCloseFile(file);
    }
};

}  // namespace

TEST(Handle, SharesUnlessDenied) {
    Store store;
    ASSERT_EQ(store.Put(WTEXT("\\f"), "text"), kOk);
    const WChar* path = WTEXT("\\f");
    {
        Opened first(store, path, true, false);
        Opened second(store, path, true, false);
        Opened third(store, path, true, false, true);
        EXPECT_EQ(first.status, kOk);
        EXPECT_EQ(second.status, kOk);
        EXPECT_EQ(third.status, kOk);
        EXPECT_EQ(Opened(store, path, true, false).status, kSharing);
        EXPECT_EQ(Opened(store, path, false, true).status, kOk);
        EXPECT_EQ(store.Delete(path), kSharing);
    }
    {
        Opened denying(store, path, true, true, false, true);
        EXPECT_EQ(Opened(store, path, true, true).status, kSharing);
        EXPECT_EQ(Opened(store, path, true, false).status, kOk);
    }
    EXPECT_EQ(Opened(store, path, true, true, true, true).status, kOk);
    EXPECT_EQ(store.Delete(path), kOk);
}

TEST(Handle, AccessIsWhatWasAskedFor) {
    using support::container::Directory;
    using support::container::File;
    auto fixed = File(u"fixed", Bytes(3, 'f'));
    fixed.attributes = kAttrReadOnly;
    Store store(support::container::Builder({}, Directory(u"", {fixed, File(u"f", Bytes(3, 'x'))}))
                    .Finish());
    EXPECT_EQ(Opened(store, WTEXT("\\fixed"), true, true).status, kAccess);
    Opened denying(store, WTEXT("\\fixed"), true, false, false, true);
    EXPECT_EQ(denying.status, kOk);
    EXPECT_EQ(Opened(store, WTEXT("\\fixed"), true, true).status, kAccess);
    Opened reader(store, WTEXT("\\f"), true, false);
    Opened writer(store, WTEXT("\\f"), false, true);
    char text[4];
    uint32_t done = 7;
    EXPECT_EQ(StorageWriteFile(reader.file, "x", 1, &done), kAccess);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(StorageReadFile(writer.file, text, 1, &done), kAccess);
}

TEST(Handle, AWriterHoldsItsFileUntilTheLastClose) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    FileHandle* first = nullptr;
    FileHandle* second = nullptr;
    ASSERT_EQ(store.CreateHandle(WTEXT("\\d\\f"), &first), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(first, std::string(2000, 'a').data(), 2000, &done), kOk);
    ASSERT_EQ(store.OpenHandle(WTEXT("\\d\\f"), &second, true), kOk);
    ASSERT_EQ(StorageCloseFile(first), kOk);
    ASSERT_EQ(StorageWriteFile(second, "b", 1, &done), kOk);
    EXPECT_EQ(store.Delete(WTEXT("\\d\\f")), kSharing);
    EXPECT_EQ(store.Delete(WTEXT("\\d")), kNotEmpty);
    ASSERT_EQ(StorageCloseFile(second), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\d\\f")), "b" + std::string(1999, 'a'));
    EXPECT_EQ(store.Delete(WTEXT("\\d\\f")), kOk);
    store.ReadSound();
}

// A directory is a stream as well; what happens in it goes on beside a handle that writes.
TEST(Handle, OnADirectoryThatChanges) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    FileHandle* file = nullptr;
    ASSERT_EQ(store.OpenHandle(WTEXT("\\d"), &file, true), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(file, "note", 4, &done), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\a"), "a"), kOk);
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d\\a")), kExists);
    ASSERT_EQ(StorageWriteFile(file, "book", 4, &done), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\d\\a"), WTEXT("\\d\\b")), kOk);
    ASSERT_EQ(store.Move(WTEXT("\\d\\b"), WTEXT("\\c")), kOk);
    ASSERT_EQ(StorageWriteFile(file, "s", 1, &done), kOk);
    ASSERT_EQ(StorageCloseFile(file), kOk);
    EXPECT_EQ(store.Text(WTEXT("\\d")), "notebooks");
    const auto reading = store.ReadSound();
    EXPECT_EQ(reading.At(u"\\d")->size, 9u);
}

TEST(Handle, IdleObjectsAreGivenUpOldestFirst) {
    Store store;
    for (int i = 0; i < 200; ++i) ASSERT_EQ(store.Put(WTEXT("\\f") + Store::Number(i)), kOk);
    store.Reopen();
    const ObjectState* objects = store.Get()->objects;
    for (int i = 0; i < 200; ++i) EXPECT_EQ(store.Text(WTEXT("\\f") + Store::Number(i)), "x");
    EXPECT_LE(objects->fileObjects.Count(), kIdleObjectLimit + 2);
    EXPECT_EQ(objects->idle.tail->entry->nameUnits, 3u);  // one of the later ones
}

// Nothing may be kept that nobody refers to, for as long as this lives.
struct NoIdleMemory {
    MemoryLimits before = g_memoryLimits;
    NoIdleMemory() { g_memoryLimits = {0, 0}; }
    ~NoIdleMemory() { g_memoryLimits = before; }
};

// Every operation begins by giving up all that it can; what is held must live through that.
TEST(Handle, WhatIsHeldStaysWhenMemoryIsGivenUp) {
    const NoIdleMemory tight;
    Store store;
    const auto name = [](int i) {
        return Store::Number(10 + i) + (i % 3 == 0 ? Repeat('n', 30) : WString());
    };
    const auto path = [&](int d, int i) {
        return WTEXT("\\d") + Store::Number(d) + WTEXT("\\") + name(i);
    };
    const auto visitAll = [&](int values) {
        for (int d = 0; d < 6; ++d)
            for (int i = 0; i < values; ++i) EXPECT_EQ(store.Text(path(d, i)), "x");
    };
    for (int d = 0; d < 6; ++d) {
        ASSERT_EQ(store.MakeDirectory(WTEXT("\\d") + Store::Number(d)), kOk);
        for (int i = 20; i-- > 0;) ASSERT_EQ(store.Put(path(d, i)), kOk);
    }
    const ObjectState* objects = store.Get()->objects;
    EXPECT_FALSE(store.Exists(WTEXT("\\none")));
    EXPECT_LE(objects->fileObjects.Count(), 1u);

    FileHandle* written = nullptr;
    ASSERT_EQ(store.OpenHandle(path(5, 19), &written, true), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(written, "y", 1, &done), kOk);
    StorageSearchStruct search{};
    ASSERT_EQ(StorageFindFirst(store, &search, WTEXT("\\d4\\*"), 3, 0), kOk);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(WString(search.name), name(i));
        visitAll(19);
        ASSERT_EQ(StorageFindNext(store, &search), i < 19 ? kOk : kNoMore);
    }
    ASSERT_EQ(store.Move(WTEXT("\\d3"), WTEXT("\\d2\\moved")), kOk);
    visitAll(0);
    EXPECT_EQ(store.Text(WTEXT("\\d2\\moved\\") + name(7)), "x");
    ASSERT_EQ(StorageWriteFile(written, "z", 1, &done), kOk);
    ASSERT_EQ(StorageCloseFile(written), kOk);

    store.Get()->containerLock.AssertAlone();
    ASSERT_EQ(BeginBatch(store), kOk);
    for (int d = 0; d < 3; ++d) ASSERT_EQ(store.Put(path(d, 50)), kOk);
    ASSERT_EQ(store.Delete(path(0, 0)), kOk);
    for (int i = 1; i < 9; ++i) EXPECT_EQ(store.Text(path(1, i)), "x");
    ASSERT_EQ(EndBatch(store, false), kOk);
    EXPECT_FALSE(store.Exists(path(2, 50)));
    EXPECT_EQ(store.Text(path(0, 0)), "x");
    EXPECT_EQ(store.Text(path(5, 19)), "yz");
    store.ReadSound();
}

TEST(Handle, StaysBehindWhenItsStoreCloses) {
    Store store;
    FileHandle* file = nullptr;
    ASSERT_EQ(store.CreateHandle(WTEXT("\\f"), &file), kOk);
    uint32_t done = 0;
    ASSERT_EQ(StorageWriteFile(file, "kept", 4, &done), kOk);
    store.Reopen();
    EXPECT_EQ(store.Text(WTEXT("\\f")), "kept");
}

TEST(Handle, OfAReadOnlyContainerChangesNothing) {
    Store store;
    ASSERT_EQ(store.MakeDirectory(WTEXT("\\d")), kOk);
    ASSERT_EQ(store.Put(WTEXT("\\d\\f"), "text"), kOk);
    store.Reopen();
    store.Get()->readOnly = true;
    EXPECT_EQ(store.Text(WTEXT("\\d\\f")), "text");
    EXPECT_EQ(store.List(WTEXT("\\d\\*")), Names({WTEXT("f")}));
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\d\\e")), kReadOnly);
    EXPECT_EQ(store.MakeDirectory(WTEXT("\\d\\f")), kExists);
    EXPECT_EQ(store.Put(WTEXT("\\d\\e")), kReadOnly);
    EXPECT_EQ(store.Delete(WTEXT("\\none")), kReadOnly);
    EXPECT_EQ(store.Move(WTEXT("\\none"), WTEXT("\\other")), kReadOnly);
    EXPECT_EQ(store.Text(WTEXT("\\d")), "status -17");  // it would need a stream
    const Bytes before = store.FileBytes();
    EXPECT_EQ(store.Close(), kOk);
    EXPECT_EQ(store.FileBytes(), before);
}

}  // namespace tests
