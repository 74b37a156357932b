// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterRecords.h"

#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>

#include <fmt/format.h>

#include "FS_Library_DLL/cluster/Base64.h"
#include "include/ZrFsTypes.h"

using nlohmann::json;
using platform::UtcTime;
using platform::WChar;

namespace cluster {
namespace {

// For a person, who reads the name first. What others wrote is read without an order, which would
// take the square of a record's members.
using Written = nlohmann::ordered_json;

std::string Text(const Written& record) {
    return record.dump(-1, ' ', false, Written::error_handler_t::replace);
}

bool ParseRecord(std::string_view text, json* record) {
    *record = json::parse(text, nullptr, false);
    return record->is_object();
}

bool Read(const json& record, const char* name, std::string* text) {
    const auto found = record.find(name);
    if (found == record.end() || !found->is_string()) return false;
    *text = found->get<std::string>();
    return true;
}

bool Read(const json& record, const char* name, uint64_t most, uint64_t* number) {
    const auto found = record.find(name);
    if (found == record.end() || !found->is_number_unsigned()) return false;
    *number = found->get<uint64_t>();
    return *number <= most;
}

bool ReadNameField(const json& record, WString* name) {
    std::string text;
    return Read(record, "name", &text) && ReadName(text, name);
}

// ---- The data of a value ----

std::string BytesOf(WStringView text) {
    std::string bytes;
    bytes.reserve(text.size() * 2);
    for (const WChar unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

// False when the bytes are not whole units, or when UTF-8 does not give them back.
bool UnitsOf(std::string_view bytes, WString* text) {
    if (bytes.size() % 2 != 0) return false;
    text->resize(bytes.size() / 2);
    for (size_t i = 0; i < text->size(); ++i)
        (*text)[i] = static_cast<WChar>(static_cast<uint8_t>(bytes[2 * i]) |
                                        static_cast<uint8_t>(bytes[2 * i + 1]) << 8);
    return platform::FromUtf8(platform::ToUtf8(*text)) == *text;
}

bool IsText(uint32_t type) {
    return type == FBR_TYPE_SZ || type == FBR_TYPE_EXPAND_SZ;
}

size_t NumberBytes(uint32_t type) {
    return type == FBR_TYPE_DWORD ? 4 : type == FBR_TYPE_QWORD ? 8 : 0;
}

// Strings that end in a zero each, and one zero more.
bool TextsOf(const WString& text, Written* list) {
    *list = Written::array();
    for (size_t start = 0; start + 1 < text.size();) {
        const size_t end = text.find(WChar{0}, start);
        if (end == WString::npos || end == start) return false;
        list->push_back(platform::ToUtf8(WStringView(text).substr(start, end - start)));
        start = end + 1;
        if (start + 1 == text.size()) return text.back() == 0;
    }
    return false;
}

// What nobody reads anyhow, and might grow as text past what a request may have.
constexpr size_t kMostTextBytes = 64 * 1024;

void PutData(const ValueRecord& value, Written* record) {
    if (value.data.size() > kMostTextBytes) {
        (*record)["data"] = ToBase64(value.data);
        return;
    }
    WString text;
    Written list;
    const size_t numberBytes = NumberBytes(value.type);
    if (IsText(value.type) && UnitsOf(value.data, &text) && !text.empty() &&
        text.find(WChar{0}) == text.size() - 1) {
        text.pop_back();
        (*record)["text"] = platform::ToUtf8(text);
    } else if (value.type == FBR_TYPE_MULTI_SZ && UnitsOf(value.data, &text) &&
               TextsOf(text, &list)) {
        (*record)["texts"] = std::move(list);
    } else if (numberBytes != 0 && value.data.size() == numberBytes) {
        uint64_t number = 0;
        for (size_t i = numberBytes; i-- > 0;)
            number = number << 8 | static_cast<uint8_t>(value.data[i]);
        (*record)["number"] = number;
    } else {
        (*record)["data"] = ToBase64(value.data);
    }
}

bool ReadTexts(const json& list, std::string* data) {
    if (!list.is_array()) return false;
    for (const json& one : list) {
        if (!one.is_string()) return false;
        *data += BytesOf(platform::FromUtf8(one.get_ref<const std::string&>()) + WChar{0});
    }
    *data += std::string(2, '\0');
    return true;
}

bool ReadData(const json& record, ValueRecord* value) {
    std::string text;
    uint64_t number = 0;
    if (Read(record, "text", &text)) {
        value->data = BytesOf(platform::FromUtf8(text) + WChar{0});
        return true;
    }
    const auto texts = record.find("texts");
    if (texts != record.end()) return ReadTexts(*texts, &value->data);
    if (record.contains("number")) {
        const size_t bytes = NumberBytes(value->type);
        if (bytes == 0 || !Read(record, "number", ~uint64_t{0} >> (64 - 8 * bytes), &number))
            return false;
        for (size_t i = 0; i < bytes; ++i)
            value->data += static_cast<char>(number >> (8 * i) & 0xFF);
        return true;
    }
    return Read(record, "data", &text) && FromBase64(text, &value->data);
}

bool ReadDigits(std::string_view text, size_t at, size_t count, uint16_t* number) {
    const char* const end = text.data() + at + count;
    const auto [stopped, error] = std::from_chars(text.data() + at, end, *number);
    return error == std::errc() && stopped == end;
}

}  // namespace

std::string ChildText(const ChildRecord& child) {
    return Text({{"name", NameText(child.name)}, {"id", child.id}});
}

bool ReadChild(std::string_view text, std::string_view folded, ChildRecord* child) {
    json record;
    return ParseRecord(text, &record) && Read(record, "id", &child->id) && IsId(child->id) &&
           child->id != kRootId && ReadNameField(record, &child->name) && !child->name.empty() &&
           child->name.find('\\') == WString::npos && FoldedText(child->name) == folded;
}

std::string KeyText(const KeyRecord& key) {
    return Text(
        {{"name", NameText(key.name)}, {"parent", key.parent}, {"made", TimeText(key.made)}});
}

std::string RootText(const UtcTime& made) {
    return Text({{"layout", kLayout}, {"made", TimeText(made)}});
}

bool ReadKeyRecord(std::string_view text, KeyRecord* key) {
    json record;
    std::string made;
    if (!ParseRecord(text, &record) || !Read(record, "made", &made) || !ReadTime(made, &key->made))
        return false;
    key->parent.clear();
    key->name.clear();
    if (record.contains("layout")) return true;
    return Read(record, "parent", &key->parent) && IsId(key->parent) &&
           ReadNameField(record, &key->name) && !key->name.empty();
}

bool ReadLayout(std::string_view text, int* layout) {
    json record;
    uint64_t number = 0;
    if (!ParseRecord(text, &record) || !Read(record, "layout", 1 << 30, &number)) return false;
    *layout = static_cast<int>(number);
    return true;
}

std::string GoneText(const std::string& parent) {
    return parent.empty() ? "{}" : Text({{"parent", parent}});
}

std::string ReadGone(std::string_view text) {
    json record;
    std::string parent;
    return ParseRecord(text, &record) && Read(record, "parent", &parent) ? parent : "";
}

std::string TimeText(const UtcTime& time) {
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", time.year, time.month,
                       time.day, time.hour, time.minute, time.second, time.millisecond);
}

bool ReadTime(std::string_view text, UtcTime* time) {
    constexpr std::string_view kShape = "0000-00-00T00:00:00.000Z";
    if (text.size() != kShape.size()) return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (kShape[i] != '0' ? text[i] != kShape[i] : text[i] < '0' || text[i] > '9') return false;
    return ReadDigits(text, 0, 4, &time->year) && ReadDigits(text, 5, 2, &time->month) &&
           ReadDigits(text, 8, 2, &time->day) && ReadDigits(text, 11, 2, &time->hour) &&
           ReadDigits(text, 14, 2, &time->minute) && ReadDigits(text, 17, 2, &time->second) &&
           ReadDigits(text, 20, 3, &time->millisecond) && time->year >= 1601 && time->month >= 1 &&
           time->month <= 12 && time->day >= 1 && time->day <= 31 && time->hour < 24 &&
           time->minute < 60 && time->second < 60;
}

std::string ValueText(const ValueRecord& value) {
    Written record = {{"name", NameText(value.name)}, {"type", value.type}};
    if (value.pieces.empty()) {
        PutData(value, &record);
    } else {
        record["size"] = value.size;
        record["pieces"] = value.pieces;
    }
    return Text(record);
}

bool ReadValue(std::string_view text, std::string_view folded, ValueRecord* value) {
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    json record;
    uint64_t type = 0;
    *value = {};
    if (!ParseRecord(text, &record) || !Read(record, "type", kMost, &type) ||
        !ReadNameField(record, &value->name) || FoldedText(value->name) != folded)
        return false;
    value->type = static_cast<uint32_t>(type);
    if (record.contains("pieces"))
        return Read(record, "pieces", &value->pieces) && IsId(value->pieces) &&
               Read(record, "size", kMost, &value->size);
    if (!ReadData(record, value)) return false;
    value->size = value->data.size();
    return true;
}

bool ReadValueName(std::string_view text, std::string_view folded, WString* name) {
    json record;
    return ParseRecord(text, &record) && ReadNameField(record, name) && FoldedText(*name) == folded;
}

std::string LockText(const LockRecord& lock, const UtcTime& since) {
    return Text({{"holder", lock.holder},
                 {"process", platform::ProcessId()},
                 {"since", TimeText(since)},
                 {"change", lock.change}});
}

bool ReadLock(std::string_view text, LockRecord* lock) {
    json record;
    return ParseRecord(text, &record) && Read(record, "holder", &lock->holder) &&
           Read(record, "change", &lock->change);
}

}  // namespace cluster
