#include "Tests/Support/JSONListing.hpp"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <utility>
#include <vector>

namespace tarnwell::test {

namespace {

class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler> {
public:
    bool StartObject() {
        open_.emplace_back();
        return true;
    }
    bool EndObject(rapidjson::SizeType) {
        const Item item = std::move(open_.back());
        open_.pop_back();
        if (open_.empty())
            return true;
        ++listing_.itemCount;
        listing_.sizes[item.path] = item.size;
        return true;
    }
    bool Key(const char* text, rapidjson::SizeType length, bool) {
        key_.assign(text, length);
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (key_ == "path")
            open_.back().path.assign(text, length);
        return true;
    }
    bool Int(int value) { return Int64(value); }
    bool Uint(unsigned value) { return Int64(value); }
    bool Uint64(std::uint64_t value) {
        return std::in_range<std::int64_t>(value) && Int64(static_cast<std::int64_t>(value));
    }
    bool Int64(std::int64_t value) {
        const bool isRoot = open_.size() == 1;
        if (key_ == "size")
            open_.back().size = value;
        if (isRoot && key_ == "totalSize") {
            listing_.totalSize = value;
            hasTotal_ = true;
        }
        if (isRoot && key_ == "totalAllocatedSize")
            listing_.totalAllocatedSize = value;
        return true;
    }

    bool hasTotal() const { return hasTotal_; }
    JSONListing& listing() { return listing_; }

private:
    struct Item {
        std::string path;
        std::int64_t size = 0;
    };

    std::vector<Item> open_; // objects that have not come to their end, the root first
    std::string key_;
    bool hasTotal_ = false;
    JSONListing listing_;
};

} // namespace

std::optional<JSONListing> readJSONListing(const std::string& text) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    Handler handler;
    const bool isWhole =
        !rapidjson::Reader().Parse<rapidjson::kParseValidateEncodingFlag>(stream, handler).IsError();
    return isWhole && handler.hasTotal() ? std::optional(std::move(handler.listing())) : std::nullopt;
}

} // namespace tarnwell::test
