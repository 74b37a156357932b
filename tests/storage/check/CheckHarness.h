// Containers made by the builder, damaged, and given to check and repair.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "storage/StorageApi.h"
#include "storage/core/Format.h"
#include "storage/namespace/Search.h"
#include "tests/container/Shapes.h"
#include "tests/support/ContainerBuilder.h"
#include "tests/support/ContainerReader.h"
#include "tests/support/TempDir.h"

namespace check {

using storage::Status;
using support::Bytes;
namespace container = support::container;

struct Event {
    uint32_t code, a, b;
    uint8_t clean;
};

struct Outcome {
    Status status = 0;
    std::vector<Event> events;
    std::u16string name;  // given with the last bad entry

    // The pages told of with a code, rising.
    std::vector<uint32_t> Pages(uint32_t code) const {
        std::vector<uint32_t> pages;
        for (const Event& event : events)
            if (event.code == code) pages.push_back(event.a);
        std::sort(pages.begin(), pages.end());
        return pages;
    }
    bool FoundNothing() const { return Pages(8).empty() && Pages(9).empty() && Pages(15).empty(); }
    std::string Findings() const {
        std::string text;
        for (const Event& event : events)
            if (event.code >= 8)
                text += std::to_string(event.code) + ":" + std::to_string(event.a) + " ";
        return text;
    }
};

class Patient {
  public:
    explicit Patient(const Bytes& bytes) { support::WriteBytes(dir_ / "c.dat", bytes); }

    Outcome Run(uint32_t flags, uint32_t cancelAtCode = 0) {
        struct State {
            platform::WChar name[64];
            Outcome outcome;
            uint32_t cancelAt;
        } state{};
        state.cancelAt = cancelAtCode;
        const auto callback = [](void* data, uint32_t code, uint32_t a, uint32_t b, uint8_t clean,
                                 uint8_t* cancel) {
            State* self = static_cast<State*>(data);
            self->outcome.events.push_back({code, a, b, clean});
            if (code == 15)
                self->outcome.name.assign(self->name, self->name + platform::Length(self->name));
            if (code == self->cancelAt) *cancel = 1;
        };
        state.outcome.status = storage::StorageCheckAndRepair(
            dir_.File("c.dat").c_str(), nullptr, flags, nullptr, nullptr, &state, callback);
        return state.outcome;
    }
    Outcome Check() { return Run(3); }
    Outcome Repair() { return Run(2); }
    Bytes Contents() { return support::ReadBytes(dir_ / "c.dat"); }
    const support::TempDir& Dir() const { return dir_; }
    container::Reading Read() { return container::ReadContainer(Contents()); }

    // What repair promises. `mustServe` leaves out containers that are lost.
    void ExpectMended() {
        const Bytes once = Contents();
        const Outcome check = Check();
        EXPECT_EQ(check.status, 0);
        EXPECT_TRUE(check.FoundNothing()) << check.Findings();
        EXPECT_EQ(Contents(), once) << "the check changed the container";
        const Outcome again = Repair();
        EXPECT_EQ(again.status, 0);
        EXPECT_TRUE(again.FoundNothing()) << again.Findings();
        EXPECT_EQ(Contents(), once) << "the second repair changed the container";
        UseIt();
    }
    // Opens the container, reads all of it and writes to it.
    void UseIt() {
        storage::StorageContext* context = nullptr;
        ASSERT_EQ(storage::StorageOpen(dir_.File("c.dat").c_str(), &context, '\\', nullptr, 0), 0);
        ReadAll(context, platform::WString());
        storage::FileHandle* file = nullptr;
        EXPECT_EQ(storage::StorageCreateFile(context, WTEXT("\\written after"), 1, 1, 0, 0, 0,
                                             WTEXT(""), 0, &file, 1, 1),
                  0);
        if (file != nullptr) {
            uint32_t done = 0;
            const Bytes bytes = container::Pattern(20000);
            EXPECT_EQ(storage::StorageWriteFile(file, bytes.data(), 20000, &done), 0);
            EXPECT_EQ(storage::StorageCloseFile(file), 0);
        }
        uint8_t corrupted = 7;
        EXPECT_EQ(storage::StorageIsCorrupted(context, &corrupted), 0);
        EXPECT_EQ(corrupted, 0);
        EXPECT_EQ(storage::StorageClose(context), 0);
        const Outcome check = Check();
        EXPECT_TRUE(check.FoundNothing()) << "after use: " << check.Findings();
    }

  private:
    void ReadAll(storage::StorageContext* context, const platform::WString& path) {
        std::vector<std::pair<platform::WString, uint32_t>> entries;
        storage::StorageSearchStruct search{};
        Status status = storage::StorageFindFirst(context, &search, (path + WTEXT("\\*")).c_str(),
                                                  0xFFFFFFFF, 0);
        while (status == 0) {
            entries.emplace_back(search.name, search.attributes);
            status = storage::StorageFindNext(context, &search);
        }
        // A name with a zero in it is not found again by its text.
        EXPECT_TRUE(status == storage::kNoMore || status == storage::kNotFound ||
                    status == storage::kParentMissing)
            << status << " " << platform::ToUtf8(path);
        storage::StorageFindClose(context, &search);
        for (const auto& [name, attributes] : entries) {
            // No path leads to a name that damage left without units, or made one of a path's own.
            if (name.empty() || name[0] == '.' || name.find('\\') != platform::WString::npos)
                continue;
            const platform::WString child = path + WTEXT("\\") + name;
            if ((attributes & storage::kAttrDirectory) != 0) ReadAll(context, child);
            if ((attributes & storage::kAttrFile) != 0) ReadFile(context, child);
        }
    }
    void ReadFile(storage::StorageContext* context, const platform::WString& path) {
        storage::FileHandle* file = nullptr;
        const Status opened =
            storage::StorageOpenFile(context, path.c_str(), 1, 0, 0, 0, WTEXT(""), 0, &file);
        // Two entries of one name, or a name that was cut, cannot be told apart by a path.
        if (opened == storage::kNotFound || opened == storage::kParentMissing) return;
        EXPECT_EQ(opened, 0) << platform::ToUtf8(path);
        if (opened != 0) return;
        Bytes bytes(100000);
        uint32_t done = 0;
        const Status status = storage::StorageReadFile(file, bytes.data(), 100000, &done);
        EXPECT_TRUE(status == 0 || status == storage::kEndOfData || status == storage::kBadBlock)
            << status << " " << platform::ToUtf8(path);
        storage::StorageCloseFile(file);
    }

    support::TempDir dir_;
};

}  // namespace check
