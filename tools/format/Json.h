// SPDX-License-Identifier: MIT
// What programs are told: one object a line, with "v", the version of its members, first.
#pragma once

#include <string>

#include "tools/format/Record.h"

namespace fbr {

class JsonObject {
  public:
    enum class Place { kLine, kInside };
    explicit JsonObject(Place place = Place::kInside)
        : text_(place == Place::kLine ? "{\"v\":1" : "{") {}

    JsonObject& Text(const char* name, platform::WStringView text);
    // What is no UTF-8 has marks in its place.
    JsonObject& Text(const char* name, const std::string& utf8);
    JsonObject& Number(const char* name, uint64_t number);
    JsonObject& True(const char* name, bool value);
    // A value that is JSON already.
    JsonObject& Json(const char* name, const std::string& json);
    // "type", "typeName", "size", "data" in hexadecimal, and "text" where people read it as text
    // or a number.
    JsonObject& Data(uint32_t type, const Bytes& data);

    std::string Done() { return text_ + "}"; }

  private:
    void Name(const char* name);
    std::string text_;
};

}  // namespace fbr
