// SPDX-License-Identifier: MIT
// Values of the live registry: buffers of every size, and answers of the system that are none.
#include <algorithm>
#include <cstring>

#include "tests/native/LiveKey.h"
#include "tests/support/FailingHeap.h"

namespace native {
namespace {

class NativeValues : public LiveStore {
  protected:
    void SetUp() override {
        LiveStore::SetUp();
        key_ = Key(L"k");
    }
    void TearDown() override {
        EXPECT_EQ(store_->FBR_CloseDirEx(key_), FSSTATUS_SUCCESS);
        LiveStore::TearDown();
    }
    FBR_STATUS Set(const std::wstring& name, const std::string& data, uint32_t type = REG_BINARY) {
        return store_->FBR_SetValue(key_, name.c_str(), type, data.data(), data.size());
    }

    int64_t key_ = 0;
};

std::string Pattern(size_t bytes) {
    std::string data(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<char>('a' + i % 23);
    return data;
}

// Every length around the room that a first query has to spare, with short and long names, into
// buffers of every length around the data's: never a byte too many, the bytes that fit, and a
// status that tells.
TEST_F(NativeValues, QueriesAnswerRightForEveryShortfall) {
    for (const std::wstring& name : {std::wstring(L"n"), std::wstring(40, L'n')}) {
        for (size_t length : {1, 3, 4, 5, 23, 24, 25, 500, 5000}) {
            const std::string data = Pattern(length);
            ASSERT_EQ(Set(name, data, 77), FSSTATUS_SUCCESS);
            for (size_t room = length > 3 ? length - 3 : 0; room < length + 3; ++room) {
                std::string buffer(length + 8, '#');
                uint64_t size = 0;
                uint32_t type = 0;
                const FBR_STATUS status =
                    store_->FBR_QueryValue(key_, name.c_str(), buffer.data(), room, &size, &type);
                EXPECT_EQ(size, length);
                EXPECT_EQ(type, 77u);
                const size_t given = std::min(room, length);
                EXPECT_EQ(buffer.substr(0, given), data.substr(0, given)) << length << "/" << room;
                EXPECT_EQ(buffer.substr(given), std::string(buffer.size() - given, '#'));
                if (room >= length || status != FSSTATUS_BUFFER_OVERFLOW) {
                    EXPECT_EQ(status, FSSTATUS_SUCCESS) << length << "/" << room;
                }
                if (name.size() > 2 && room < length) {
                    EXPECT_EQ(status, FSSTATUS_BUFFER_OVERFLOW);
                }
            }
        }
    }
}

// Sizes are counted in 32 bits: one that becomes no buffer at all is refused.
TEST_F(NativeValues, SizesThatAreNoneAreRefused) {
    char byte;
    ASSERT_EQ(Set(L"long", Pattern(100)), FSSTATUS_SUCCESS);
    EXPECT_EQ(store_->FBR_QueryValue(key_, L"long", &byte, 0xFFFFFFE8u, nullptr, nullptr),
              FSSTATUS_FAILED);
    EXPECT_EQ(store_->FBR_SetValue(key_, L"huge", REG_BINARY, &byte, uint64_t{1} << 32),
              FSSTATUS_INVALID_PARAMETER);
}

TEST_F(NativeValues, NoMemoryIsToldAndLeavesNothing) {
    ASSERT_EQ(Set(L"value", Pattern(1000)), FSSTATUS_SUCCESS);
    WChar* name = nullptr;
    char buffer[1000];
    {
        support::FailingHeap heap(1, true);
        std::vector<WString> names;
        for (const FBR_STATUS answer :
             {store_->FBR_EnumIntFileEx(key_, 0, &name), store_->FBR_GetName_DirEx(key_, &name),
              store_->FBR_GetFullName_DirEx(key_, &name),
              store_->FBR_QueryValue(key_, L"value", buffer, sizeof buffer, nullptr, nullptr),
              store_->FBR_EnumerateAllValues(key_, names)})
            EXPECT_EQ(answer, FSSTATUS_OUT_OF_MEMORY);
    }
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(store_->FBR_QueryValue(key_, L"value", buffer, sizeof buffer, nullptr, nullptr),
              FSSTATUS_SUCCESS);
}

// A provider of the native functions that lies about lengths is refused, and never read past.
TEST_F(NativeValues, LyingAnswersAreRefused) {
    using Answer = NTSTATUS(NTAPI*)(HANDLE, ULONG, ULONG, PVOID, ULONG, PULONG);
    std::vector<WString> names;
    WChar* name = nullptr;
    {
        support::ReplacedEntry endless(
            &NtDllFunctions::ZwEnumerateKey,
            Answer([](HANDLE, ULONG, ULONG, PVOID, ULONG bytes, PULONG needed) -> NTSTATUS {
                *needed = bytes;
                return static_cast<NTSTATUS>(0x80000005);
            }));
        EXPECT_EQ(store_->FBR_EnumerateAllKeys(key_, names), FSSTATUS_BUFFER_OVERFLOW);
        EXPECT_EQ(store_->FBR_EnumIntDirEx(key_, 0, &name), FSSTATUS_BUFFER_OVERFLOW);
    }
    support::ReplacedEntry tooLong(
        &NtDllFunctions::ZwEnumerateKey,
        Answer([](HANDLE, ULONG, ULONG, PVOID answer, ULONG, PULONG) -> NTSTATUS {
            const ULONG length = 0x7fffffff;
            std::memcpy(static_cast<char*>(answer) + 12, &length, sizeof length);
            return 0;
        }));
    EXPECT_EQ(store_->FBR_EnumerateAllKeys(key_, names), FSSTATUS_FAILED);
    EXPECT_EQ(store_->FBR_EnumIntDirEx(key_, 0, &name), FSSTATUS_FAILED);
    EXPECT_EQ(name, nullptr);
    EXPECT_TRUE(names.empty());

    ASSERT_EQ(Set(L"v", Pattern(8)), FSSTATUS_SUCCESS);
    support::ReplacedEntry farAway(
        &NtDllFunctions::ZwQueryValueKey,
        +[](HANDLE, PUNICODE_STRING, ULONG, PVOID answer, ULONG, PULONG needed) -> NTSTATUS {
            const ULONG fields[] = {0, 3, 0xfffffff0, 8};
            std::memcpy(answer, fields, sizeof fields);
            *needed = 28;
            return 0;
        });
    char buffer[8];
    EXPECT_EQ(store_->FBR_QueryValue(key_, L"v", buffer, sizeof buffer, nullptr, nullptr),
              FSSTATUS_FAILED);
}

}  // namespace
}  // namespace native
