#include "Tests/Support/JSONListing.hpp"

#include <rapidjson/document.h>

#include <vector>

namespace tarnwell::test {

namespace {

using Value = rapidjson::Value;

/// 0 where there is none.
std::int64_t integer(const Value& object, const char* key) {
    const auto member = object.FindMember(key);
    return member != object.MemberEnd() && member->value.IsInt64() ? member->value.GetInt64() : 0;
}

} // namespace

std::optional<JSONListing> readJSONListing(const std::string& text) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("totalSize"))
        return std::nullopt;
    JSONListing listing;
    listing.totalSize = integer(document, "totalSize");
    listing.totalAllocatedSize = integer(document, "totalAllocatedSize");
    std::vector<const Value*> pending{&document};
    while (!pending.empty()) {
        const Value& value = *pending.back();
        pending.pop_back();
        if (value.IsArray())
            for (const Value& element : value.GetArray())
                pending.push_back(&element);
        if (!value.IsObject())
            continue;
        for (const auto& member : value.GetObject())
            pending.push_back(&member.value);
        if (&value == &document)
            continue;
        ++listing.itemCount;
        const auto path = value.FindMember("path");
        if (path != value.MemberEnd() && path->value.IsString())
            listing.sizes[{path->value.GetString(), path->value.GetStringLength()}] = integer(value, "size");
    }
    return listing;
}

} // namespace tarnwell::test
