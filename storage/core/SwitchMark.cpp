// SPDX-License-Identifier: MIT
#include "storage/core/SwitchMark.h"

#include <bit>

#include "storage/core/PageIo.h"

namespace storage {

namespace {

// Behind the superblock in page 1.
constexpr uint32_t kListCount = sizeof(Superblock);  // u32
constexpr uint32_t kListCheck = kListCount + 8;      // u64
constexpr uint32_t kListFirst = kListCount + 16;     // 16 bytes a page: its number, 0, its digest
constexpr uint32_t kListEnd = kListFirst + 16 * kMostSwitched;

uint64_t Mix(uint64_t sum, uint64_t word) {
    return std::rotl(sum ^ word, 29) * 0x9E3779B97F4A7C15;
}

uint64_t CheckOf(uint32_t counter, const SwitchList& list) {
    uint64_t sum = Mix(counter, list.count);
    for (uint32_t i = 0; i < list.count; ++i)
        sum = Mix(Mix(sum, list.pages[i].number), list.pages[i].digest);
    return sum;
}

}  // namespace

bool HasSwitchList(const StorageContext* context) {
    return context->pageSize >= kListEnd && !context->byteSwapped;
}

// Four sums, each of every fourth word, so that none has to wait for the other.
uint64_t DigestPage(const uint8_t* page, uint32_t size) {
    uint64_t sums[4] = {1, 2, 3, 4};
    for (uint32_t at = 0; at < size; at += 32)
        for (uint32_t i = 0; i < 4; ++i) sums[i] = Mix(sums[i], LoadU64(page, at + 8 * i));
    return Mix(Mix(Mix(sums[0], sums[1]), sums[2]), sums[3]);
}

void PutSwitchList(StorageContext* context, const SwitchList& list) {
    uint8_t* page = context->superblock;
    std::memset(page + kListCount, 0, kListEnd - kListCount);
    if (list.count == 0) return;
    Store(page, kListCount, list.count);
    Store(page, kListCheck, CheckOf(context->Super()->transactionCounter, list));
    for (uint32_t i = 0; i < list.count; ++i) {
        Store(page, kListFirst + 16 * i, list.pages[i].number);
        Store(page, kListFirst + 16 * i + 8, list.pages[i].digest);
    }
}

void ClearSwitchList(StorageContext* context) {
    if (HasSwitchList(context)) PutSwitchList(context, {});
}

bool GetSwitchList(const StorageContext* context, SwitchList* list) {
    list->count = 0;
    if (!HasSwitchList(context)) return true;
    const uint8_t* page = context->superblock;
    const uint32_t count = LoadU32(page, kListCount);
    const uint64_t check = LoadU64(page, kListCheck);
    if (count == 0 && check == 0) return true;
    if (count == 0 || count > kMostSwitched) return false;
    list->count = count;
    for (uint32_t i = 0; i < count; ++i)
        list->pages[i] = {LoadU32(page, kListFirst + 16 * i),
                          LoadU64(page, kListFirst + 16 * i + 8)};
    if (check == CheckOf(context->Super()->transactionCounter, *list)) return true;
    list->count = 0;
    return false;
}

bool AreSwitched(StorageContext* context, const SwitchList& list) {
    if (list.count == 0) return true;
    uint8_t* page = static_cast<uint8_t*>(platform::HeapAllocate(context->pageSize));
    bool all = page != nullptr;
    for (uint32_t i = 0; i < list.count && all; ++i) {
        const uint64_t address = uint64_t{context->basePage} + list.pages[i].number;
        all = ReadPageRaw(context->file, page, context->pageSize, address, context->pageSize) ==
                  kOk &&
              DigestPage(page, context->pageSize) == list.pages[i].digest;
    }
    platform::HeapRelease(page);
    return all;
}

bool IsAsAwaited(const StorageContext* context, const uint8_t* page, uint32_t number) {
    for (uint32_t i = 0; i < context->awaited.count; ++i)
        if (context->awaited.pages[i].number == number &&
            context->awaited.pages[i].digest != DigestPage(page, context->pageSize))
            return false;
    return true;
}

}  // namespace storage
