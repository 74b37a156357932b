// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/EtcdApi.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "FS_Library_DLL/cluster/Base64.h"

namespace cluster {
namespace {

using nlohmann::json;

// ---- Requests ----

// All texts are in base 64, so nothing in them is to be escaped.
class Writer {
  public:
    Writer& Bytes(const char* name, std::string_view bytes) {
        return Raw(name, '"' + ToBase64(bytes) + '"');
    }
    Writer& Word(const char* name, const char* word) {
        return Raw(name, '"' + std::string(word) + '"');
    }
    Writer& Number(const char* name, int64_t number) {
        return Raw(name, '"' + std::to_string(number) + '"');
    }
    Writer& Where(const Span& span) {
        Bytes("key", span.from);
        return span.to.empty() ? *this : Bytes("range_end", span.to);
    }
    Writer& Raw(const char* name, const std::string& text) {
        text_ += text_.size() > 1 ? ",\"" : "\"";
        text_ += name;
        text_ += "\":";
        text_ += text;
        return *this;
    }
    std::string Take() { return std::move(text_) + '}'; }

  private:
    std::string text_ = "{";
};

template <class Items, class Write>
std::string List(const Items& items, Write write) {
    std::string text = "[";
    for (const auto& item : items) {
        if (text.size() > 1) text += ',';
        text += write(item);
    }
    return text + ']';
}

std::string RangeText(const RangeRequest& request) {
    Writer writer;
    writer.Where(request.span);
    if (request.limit != 0) writer.Number("limit", request.limit);
    if (request.revision != 0) writer.Number("revision", request.revision);
    if (request.keysOnly) writer.Raw("keys_only", "true");
    return writer.Take();
}

std::string CompareText(const Compare& compare) {
    const bool created = compare.what == Compare::What::Created;
    return Writer()
        .Where(compare.span)
        .Word("target", created ? "CREATE" : "MOD")
        .Word("result", compare.how == Compare::How::Equal ? "EQUAL" : "GREATER")
        .Number(created ? "create_revision" : "mod_revision", compare.revision)
        .Take();
}

// A range is read as it was at the revision.
std::string OperationText(const Operation& operation, int64_t revision) {
    switch (operation.what) {
        case Operation::What::Put: {
            Writer put;
            put.Bytes("key", operation.span.from).Bytes("value", operation.value);
            if (operation.lease != 0) put.Number("lease", operation.lease);
            return Writer().Raw("request_put", put.Take()).Take();
        }
        case Operation::What::Delete:
            return Writer()
                .Raw("request_delete_range", Writer().Where(operation.span).Take())
                .Take();
        default:
            return Writer()
                .Raw("request_range", RangeText({operation.span, operation.limit, revision}))
                .Take();
    }
}

// ---- Replies: any field may be missing or of another kind ----

const json* Field(const json& object, const char* name) {
    if (!object.is_object()) return nullptr;
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

// Numbers of 64 bits come as texts; one that is zero does not come.
bool ReadNumber(const json& object, const char* name, int64_t* number) {
    *number = 0;
    const json* field = Field(object, name);
    if (field == nullptr) return true;
    if (field->is_number_integer()) {
        *number = field->get<int64_t>();
        return true;
    }
    if (!field->is_string()) return false;
    const auto& text = field->get_ref<const std::string&>();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

bool ReadBytes(const json& object, const char* name, std::string* bytes) {
    bytes->clear();
    const json* field = Field(object, name);
    if (field == nullptr) return true;
    return field->is_string() && FromBase64(field->get_ref<const std::string&>(), bytes);
}

bool ReadFlag(const json& object, const char* name, bool* flag) {
    const json* field = Field(object, name);
    *flag = field != nullptr && field->is_boolean() && field->get<bool>();
    return field == nullptr || field->is_boolean();
}

bool ReadRevision(const json& reply, int64_t* revision) {
    const json* header = Field(reply, "header");
    return header != nullptr && ReadNumber(*header, "revision", revision) && *revision > 0;
}

bool ReadRange(const json& range, RangeReply* reply) {
    if (!range.is_object() || !ReadFlag(range, "more", &reply->hasMore)) return false;
    const json* found = Field(range, "kvs");
    if (found == nullptr) return true;
    if (!found->is_array()) return false;
    reply->found.reserve(found->size());
    for (const json& one : *found) {
        KeyValue& pair = reply->found.emplace_back();
        if (!one.is_object() || !ReadBytes(one, "key", &pair.key) ||
            !ReadBytes(one, "value", &pair.value) ||
            !ReadNumber(one, "create_revision", &pair.created) ||
            !ReadNumber(one, "mod_revision", &pair.modified) ||
            !ReadNumber(one, "lease", &pair.lease))
            return false;
    }
    return true;
}

bool Parse(std::string_view text, json* value) {
    *value = json::parse(text, nullptr, false);
    return value->is_object();
}

}  // namespace

Span AllBelow(std::string prefix) {
    std::string end = prefix;
    while (end.size() > 1 && end.back() == '\xFF') end.pop_back();
    ++end.back();
    return {std::move(prefix), std::move(end)};
}

Operation Put(std::string key, std::string value, int64_t lease) {
    return {Operation::What::Put, {std::move(key)}, std::move(value), lease};
}
Operation Delete(Span span) {
    return {Operation::What::Delete, std::move(span)};
}
Operation Get(Span span, int64_t limit) {
    return {Operation::What::Range, std::move(span), {}, 0, limit};
}

bool ReadRangeReply(std::string_view text, RangeReply* reply, int64_t* revision) {
    json range;
    *reply = {};
    return Parse(text, &range) && ReadRevision(range, revision) && ReadRange(range, reply);
}

bool ReadTransactionReply(std::string_view text, size_t operations, TransactionReply* reply) {
    json whole;
    *reply = {};
    if (!Parse(text, &whole) || !ReadRevision(whole, &reply->revision) ||
        !ReadFlag(whole, "succeeded", &reply->isTrue))
        return false;
    const json* responses = Field(whole, "responses");
    const size_t count = responses == nullptr ? 0 : responses->size();
    if (responses != nullptr && !responses->is_array()) return false;
    reply->results.resize(count);
    for (size_t i = 0; i < count; ++i) {
        const json* range = Field((*responses)[i], "response_range");
        if (range != nullptr && !ReadRange(*range, &reply->results[i])) return false;
    }
    // The caller looks at the results by their places.
    return !reply->isTrue || count == operations;
}

bool ReadLeaseReply(std::string_view text, int64_t* id, int64_t* seconds) {
    json reply;
    if (!Parse(text, &reply)) return false;
    const json* result = Field(reply, "result");  // of a stream
    const json& fields = result != nullptr ? *result : reply;
    return ReadNumber(fields, "ID", id) && ReadNumber(fields, "TTL", seconds) && *id != 0;
}

bool TellsOf(Events wanted, std::string_view line) {
    json reply;
    if (!Parse(line, &reply)) return true;
    const json* result = Field(reply, "result");
    bool canceled = false;
    if (result == nullptr || !ReadFlag(*result, "canceled", &canceled) || canceled) return true;
    const json* events = Field(*result, "events");
    if (events == nullptr || !events->is_array()) return false;
    for (const json& event : *events) {
        const json* type = Field(event, "type");
        if (wanted == Events::All || (type != nullptr && *type == "DELETE")) return true;
    }
    return false;
}

Outcome EtcdApi::Range(const RangeRequest& request, RangeReply* reply, int64_t* revision) {
    std::string text;
    RangeRequest asked = request;
    asked.revision = Reads(request.revision);
    const Outcome outcome = Ask("/v3/kv/range", RangeText(asked), &text);
    if (outcome != Outcome::Answered) return outcome;
    int64_t read = 0;
    if (!ReadRangeReply(text, reply, &read)) return Outcome::Malformed;
    if (asked.revision != 0) read = asked.revision;
    if (revision != nullptr) *revision = read;
    HasRead(read);
    return outcome;
}

Outcome EtcdApi::Do(const Transaction& transaction, TransactionReply* reply) {
    const auto textOf = [this](const Operation& one) { return OperationText(one, Reads(0)); };
    const std::string body = Writer()
                                 .Raw("compare", List(transaction.compares, CompareText))
                                 .Raw("success", List(transaction.ifTrue, textOf))
                                 .Raw("failure", List(transaction.ifFalse, textOf))
                                 .Take();
    std::string text;
    const Outcome outcome = Ask("/v3/kv/txn", body, &text);
    if (outcome != Outcome::Answered) return outcome;
    const bool isReply = ReadTransactionReply(text, transaction.ifTrue.size(), reply);
    const bool isWhole =
        isReply && (reply->isTrue || reply->results.size() == transaction.ifFalse.size());
    if (!isWhole) return Outcome::Malformed;
    HasRead(reply->revision);
    return outcome;
}

Outcome EtcdApi::Grant(int64_t seconds, int64_t* lease) {
    std::string text;
    const Outcome outcome = Ask("/v3/lease/grant", Writer().Number("TTL", seconds).Take(), &text);
    int64_t granted = 0;
    if (outcome != Outcome::Answered) return outcome;
    return ReadLeaseReply(text, lease, &granted) && granted > 0 ? outcome : Outcome::Malformed;
}

// The answer to the first of several requests may be lost.
Outcome EtcdApi::Revoke(int64_t lease) {
    std::string text;
    size_t sent = 0;
    const Outcome outcome =
        Ask("/v3/lease/revoke", Writer().Number("ID", lease).Take(), &text, &sent);
    return outcome == Outcome::NoSuchLease && sent > 1 ? Outcome::Answered : outcome;
}

Outcome EtcdApi::KeepAlive(int64_t lease) {
    std::string text;
    const Outcome outcome = Ask("/v3/lease/keepalive", Writer().Number("ID", lease).Take(), &text);
    int64_t id = 0, seconds = 0;
    if (outcome != Outcome::Answered) return outcome;
    if (!ReadLeaseReply(text, &id, &seconds)) return Outcome::Malformed;
    return seconds > 0 ? outcome : Outcome::NoSuchLease;
}

// One watch for each of the spans, in one stream.
Outcome EtcdApi::WaitFor(Events wanted, const std::vector<Span>& spans, int64_t revision,
                         Milliseconds patience, const EtcdHttp::GoesOn& goesOn) {
    std::string body;
    for (const Span& span : spans) {
        const std::string what = Writer().Where(span).Number("start_revision", revision).Take();
        body += Writer().Raw("create_request", what).Take();
    }
    return http_.Stream(
        "/v3/watch", body, patience, [&](std::string_view line) { return !TellsOf(wanted, line); },
        goesOn);
}

}  // namespace cluster
