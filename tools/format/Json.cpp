// SPDX-License-Identifier: MIT
#include "tools/format/Json.h"

#include "tools/format/JsonLines.h"
#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace fbr {

void JsonObject::Name(const char* name) {
    if (text_.size() > 1) text_ += ',';
    ((text_ += '"') += name) += "\":";
}

JsonObject& JsonObject::Text(const char* name, platform::WStringView text) {
    Name(name);
    AppendJsonString(text_, text);
    return *this;
}

JsonObject& JsonObject::Text(const char* name, const std::string& utf8) {
    return Text(name, platform::WStringView(platform::FromUtf8(utf8)));
}

JsonObject& JsonObject::Number(const char* name, uint64_t number) {
    return Json(name, std::to_string(number));
}

JsonObject& JsonObject::True(const char* name, bool value) {
    return Json(name, value ? "true" : "false");
}

JsonObject& JsonObject::Json(const char* name, const std::string& json) {
    Name(name);
    text_ += json;
    return *this;
}

JsonObject& JsonObject::Data(uint32_t type, const Bytes& data) {
    Number("type", type).Text("typeName", TypeName(type)).Number("size", data.size());
    Name("data");
    text_ += '"';
    AppendHex(text_, data.data(), data.size(), {});
    text_ += '"';
    if (ReadsAsText(type, data)) Text("text", DataInFull(type, data));
    return *this;
}

}  // namespace fbr
