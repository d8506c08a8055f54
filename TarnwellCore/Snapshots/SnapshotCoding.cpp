#include "TarnwellCore/Snapshots/SnapshotCoding.hpp"

#include "TarnwellCore/Snapshots/EscapedPath.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellCore/Text/Utf8.hpp"

#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tarnwell::SnapshotCoding {

namespace {

/// Longer than any path; a text beyond it is not one of ours.
constexpr std::size_t longestToken = std::size_t{16} << 20;
/// How deep the value of an unknown key may be nested.
constexpr int deepestNesting = 512;
constexpr std::size_t pieceSize = std::size_t{64} << 10;

/// The bytes at the end that begin a character whose other bytes are still to come.
std::size_t unfinishedBytes(std::string_view bytes) {
    for (std::size_t count = 1; count <= std::min<std::size_t>(3, bytes.size()); ++count) {
        const auto byte = static_cast<unsigned char>(bytes[bytes.size() - count]);
        if (byte >= 0xC0)
            return count < (byte >= 0xF0 ? 4u : byte >= 0xE0 ? 3u : 2u) ? count : 0;
        if (byte < 0x80)
            return 0;
    }
    return 0;
}

/// Shortens numbers that RapidJSON refuses, though they stand where nobody asks for them: digits beyond the
/// 40th and those of an exponent beyond the second are left out. No number that fits a field is changed.
class NumberShortener {
public:
    /// Begins behind the key of a member. Works on the bytes where they stand and gives how many are left;
    /// they may come in any pieces.
    std::size_t shorten(char* bytes, std::size_t count) {
        char* end = bytes;
        for (const char byte : std::span(bytes, count))
            if (isKept(byte))
                *end++ = byte;
        return static_cast<std::size_t>(end - bytes);
    }

private:
    bool isKept(char byte) {
        if (isInString_) {
            isInString_ = isEscaped_ || byte != '"';
            isEscaped_ = !isEscaped_ && byte == '\\';
            return true;
        }
        if (byte >= '0' && byte <= '9')
            return ++digits_ <= (isInExponent_ ? 2 : 40);
        isInString_ = byte == '"';
        isInExponent_ = byte == 'e' || byte == 'E' || (isInExponent_ && (byte == '+' || byte == '-'));
        digits_ = 0;
        return true;
    }

    bool isInString_ = false;
    bool isEscaped_ = false;
    bool isInExponent_ = false;
    std::size_t digits_ = 0; // so far, without a pause
};

/// RapidJSON's input stream over a source. It ends early, which RapidJSON takes for a damaged document, where
/// the bytes cannot be read or are not UTF-8, and in a token without end.
class SourceStream {
public:
    using Ch = char;

    explicit SourceStream(const ByteSource& source)
        : source_(source), piece_(std::make_unique_for_overwrite<char[]>(pieceSize)) {
        next_ = end_ = piece_.get();
        refill();
    }

    char Peek() const { return *next_; }
    char Take() {
        const char character = *next_;
        if (++next_ >= end_)
            refill();
        return character;
    }
    std::size_t Tell() const { return position_ + static_cast<std::size_t>(next_ - piece_.get()); }

    // Only streams that are parsed in place are written to.
    char* PutBegin() { return nullptr; }
    void Put(char) {}
    void Flush() {}
    std::size_t PutEnd(char*) { return 0; }

    /// To be called at every token.
    void markToken() { tokenPosition_ = Tell(); }

    /// To be called behind the key of a member that is unknown; what follows may then hold any number.
    void shortenNumbers() {
        if (shortener_)
            return;
        shortener_.emplace();
        end_ = next_ + shorten(next_, static_cast<std::size_t>(end_ - next_));
        if (next_ >= end_)
            refill();
    }

    /// Whether every byte of the source was taken, and all were good.
    bool isExhausted() const { return isExhausted_; }

private:
    /// Gives how many of the whole characters are left; those that wait behind them follow these.
    std::size_t shorten(char* bytes, std::size_t count) {
        const std::size_t kept = shortener_->shorten(bytes, count);
        std::memmove(bytes + kept, bytes + count, waitingBytes_);
        position_ += count - kept;
        return kept;
    }

    /// Brings in the next piece, of whole characters: the bytes of one that is cut wait for the piece after.
    /// At the end a zero stands in its place, RapidJSON's mark.
    void refill() {
        char* const begin = piece_.get();
        position_ += static_cast<std::size_t>(end_ - begin);
        std::size_t count = std::exchange(waitingBytes_, 0);
        std::memmove(begin, end_, count);
        next_ = end_ = begin;
        while (!isEnded_ && end_ == begin) {
            const bool isEndless = position_ - tokenPosition_ > longestToken;
            const std::ptrdiff_t added = isEndless ? -1 : source_({begin + count, pieceSize - count});
            if (added <= 0) {
                isExhausted_ = added == 0 && count == 0;
                isEnded_ = true;
                break;
            }
            count += static_cast<std::size_t>(added);
            waitingBytes_ = unfinishedBytes({begin, count});
            std::size_t whole = count - waitingBytes_;
            isEnded_ = !isValidUTF8({begin, whole});
            if (shortener_)
                whole = shorten(begin, whole);
            end_ = begin + whole;
            count = waitingBytes_;
        }
        if (isEnded_) {
            end_ = begin;
            *begin = '\0';
        }
    }

    const ByteSource& source_;
    std::unique_ptr<char[]> piece_;
    char* next_;
    char* end_;
    std::size_t waitingBytes_ = 0; // they stand behind end_
    std::size_t position_ = 0;     // of the piece in the document
    std::size_t tokenPosition_ = 0;
    std::optional<NumberShortener> shortener_; // once it was asked for
    bool isEnded_ = false;
    bool isExhausted_ = false;
};

/// Everything that has a name in the stored form.
enum class Field : std::uint8_t {
    id,
    createdAt,
    rootPath,
    totalSize,
    totalAllocatedSize,
    totalReclaimableSize,
    totalFiles,
    entries,
    minimumSize,
    // Ours alone: of another program's values nothing is asked.
    escapedPaths,
    isScheduled,
    entryPath,
    entrySize,
    entryAllocatedSize,
    entryReclaimableSize,
    entryFileCount,
    entryIsDirectory,
    unknown,
    none, // no key came before the value
};

constexpr unsigned bit(Field field) {
    return 1u << static_cast<unsigned>(field);
}

constexpr unsigned requiredOfSnapshot = bit(Field::id) | bit(Field::createdAt) | bit(Field::rootPath) |
                                        bit(Field::totalSize) | bit(Field::totalAllocatedSize) |
                                        bit(Field::totalFiles) | bit(Field::entries);
constexpr unsigned requiredOfEntry = bit(Field::entryPath) | bit(Field::entrySize) |
                                     bit(Field::entryAllocatedSize) | bit(Field::entryFileCount) |
                                     bit(Field::entryIsDirectory);

struct Name {
    std::string_view key;
    Field field;
};

constexpr Name snapshotNames[] = {{"id", Field::id},
                                  {"createdAt", Field::createdAt},
                                  {"rootPath", Field::rootPath},
                                  {"totalSize", Field::totalSize},
                                  {"totalAllocatedSize", Field::totalAllocatedSize},
                                  {"totalReclaimableSize", Field::totalReclaimableSize},
                                  {"totalFiles", Field::totalFiles},
                                  {"entries", Field::entries},
                                  {"minimumSize", Field::minimumSize},
                                  {"escapedPaths", Field::escapedPaths},
                                  {"isScheduled", Field::isScheduled}};
constexpr Name entryNames[] = {{"path", Field::entryPath},
                               {"size", Field::entrySize},
                               {"allocatedSize", Field::entryAllocatedSize},
                               {"reclaimableSize", Field::entryReclaimableSize},
                               {"fileCount", Field::entryFileCount},
                               {"isDirectory", Field::entryIsDirectory}};

Field fieldNamed(std::string_view key, std::span<const Name> names) {
    const auto name = std::ranges::find(names, key, &Name::key);
    return name == names.end() ? Field::unknown : name->field;
}

/// Puts the tokens of a document into a snapshot. A function that returns false ends the parsing: the
/// document is not a snapshot. The functions' names are RapidJSON's.
class Receiver : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Receiver> {
public:
    Receiver(SourceStream& stream, ScanSnapshot& snapshot) : stream_(stream), snapshot_(snapshot) {}

    bool StartObject() {
        stream_.markToken();
        if (isIgnoring())
            return descend();
        if (place_ == Place::document) {
            place_ = Place::snapshot;
            return true;
        }
        if (place_ != Place::entries)
            return false;
        place_ = Place::entry;
        snapshot_.entries.emplace_back();
        seenOfEntry_ = 0;
        return true;
    }

    bool EndObject(rapidjson::SizeType) {
        stream_.markToken();
        if (ignoredDepth_ > 0)
            return ascend();
        if (place_ == Place::snapshot) {
            place_ = Place::document;
            return finishSnapshot();
        }
        place_ = Place::entries;
        field_ = Field::none;
        return finishEntry();
    }

    bool StartArray() {
        stream_.markToken();
        if (isIgnoring())
            return descend();
        if (field_ != Field::entries)
            return false;
        place_ = Place::entries;
        field_ = Field::none;
        snapshot_.entries.clear();
        return true;
    }

    bool EndArray(rapidjson::SizeType) {
        stream_.markToken();
        if (ignoredDepth_ > 0)
            return ascend();
        place_ = Place::snapshot;
        seenOfSnapshot_ |= bit(Field::entries);
        return true;
    }

    bool Key(const char* text, rapidjson::SizeType length, bool) {
        stream_.markToken();
        if (ignoredDepth_ > 0)
            return true;
        field_ = place_ == Place::entry ? fieldNamed({text, length}, entryNames)
                                        : fieldNamed({text, length}, snapshotNames);
        if (isIgnoring())
            stream_.shortenNumbers();
        return true;
    }

    bool String(const char* text, rapidjson::SizeType length, bool) {
        stream_.markToken();
        if (isIgnoring())
            return true;
        const std::string_view value(text, length);
        // Of an escape for half a character RapidJSON makes bytes that are not UTF-8.
        if (!isValidUTF8(value))
            return false;
        switch (field_) {
        case Field::id:
            return set(snapshot_.id, UUID::parse(value));
        case Field::createdAt:
            return set(snapshot_.createdAt, dateFromISO8601(value));
        case Field::rootPath:
            snapshot_.rootPath = value;
            break;
        case Field::entryPath:
            snapshot_.entries.back().path = value;
            break;
        default:
            return false;
        }
        return see();
    }

    /// Every number comes as its text: RapidJSON's own conversion is undefined for some (JSONNumber.hpp).
    bool RawNumber(const char* text, rapidjson::SizeType length, bool) {
        stream_.markToken();
        if (isIgnoring())
            return true;
        std::int64_t* const place = integer();
        if (place == nullptr)
            return false;
        const auto [end, error] = std::from_chars(text, text + length, *place);
        return error == std::errc() && end == text + length && see();
    }

    bool Bool(bool value) {
        if (field_ == Field::escapedPaths && ignoredDepth_ == 0)
            arePathsEscaped_ = value;
        if (field_ == Field::isScheduled && ignoredDepth_ == 0)
            snapshot_.isScheduled = value;
        if (field_ != Field::entryIsDirectory)
            return ignoreValue();
        stream_.markToken();
        snapshot_.entries.back().isDirectory = value;
        return see();
    }

    bool Null() {
        return ignoreValue() || field_ == Field::totalReclaimableSize || field_ == Field::minimumSize ||
               field_ == Field::entryReclaimableSize;
    }

private:
    enum class Place : std::uint8_t { document, snapshot, entries, entry };

    // --- Values that are nobody's -----------------------------------------------------------------------

    /// Keys inside such a value are passed over, so that the field stays unknown to its end.
    bool isIgnoring() const {
        return field_ == Field::unknown || field_ == Field::escapedPaths || field_ == Field::isScheduled;
    }
    bool ignoreValue() {
        stream_.markToken();
        return isIgnoring();
    }
    bool descend() { return ++ignoredDepth_ <= deepestNesting; }
    bool ascend() {
        --ignoredDepth_;
        return true;
    }

    // --- Values of ours ---------------------------------------------------------------------------------

    bool see() {
        (place_ == Place::entry ? seenOfEntry_ : seenOfSnapshot_) |= bit(field_);
        return true;
    }

    template <class Value>
    bool set(Value& place, const std::optional<Value>& value) {
        if (!value)
            return false;
        place = *value;
        return see();
    }

    std::int64_t* integer() {
        switch (field_) {
        case Field::totalSize:
            return &snapshot_.totalSize;
        case Field::totalAllocatedSize:
            return &snapshot_.totalAllocatedSize;
        case Field::totalReclaimableSize:
            return &snapshot_.totalReclaimableSize;
        case Field::totalFiles:
            return &snapshot_.totalFiles;
        case Field::minimumSize:
            return &snapshot_.minimumSize;
        case Field::entrySize:
            return &snapshot_.entries.back().size;
        case Field::entryAllocatedSize:
            return &snapshot_.entries.back().allocatedSize;
        case Field::entryReclaimableSize:
            return &snapshot_.entries.back().reclaimableSize;
        case Field::entryFileCount:
            return &snapshot_.entries.back().fileCount;
        default:
            return nullptr;
        }
    }

    bool finishSnapshot() {
        if ((seenOfSnapshot_ & bit(Field::totalReclaimableSize)) == 0)
            snapshot_.totalReclaimableSize = snapshot_.totalAllocatedSize;
        if (arePathsEscaped_) {
            snapshot_.rootPath = unescapedPath(snapshot_.rootPath);
            for (ScanSnapshot::Entry& entry : snapshot_.entries)
                entry.path = unescapedPath(entry.path);
        }
        return (seenOfSnapshot_ & requiredOfSnapshot) == requiredOfSnapshot;
    }

    bool finishEntry() {
        ScanSnapshot::Entry& entry = snapshot_.entries.back();
        if ((seenOfEntry_ & bit(Field::entryReclaimableSize)) == 0)
            entry.reclaimableSize = entry.allocatedSize;
        return (seenOfEntry_ & requiredOfEntry) == requiredOfEntry;
    }

    SourceStream& stream_;
    ScanSnapshot& snapshot_;
    Place place_ = Place::document;
    Field field_ = Field::none;
    int ignoredDepth_ = 0;
    bool arePathsEscaped_ = false;
    unsigned seenOfSnapshot_ = 0;
    unsigned seenOfEntry_ = 0;
};

bool isText(const ScanSnapshot& snapshot) {
    return isValidUTF8(snapshot.rootPath) &&
           std::ranges::all_of(snapshot.entries, isValidUTF8, &ScanSnapshot::Entry::path);
}

void encodePath(JSONWriter& writer, const std::string& path, bool isEscaped) {
    writer.string(isEscaped ? escapedPath(path) : path);
}

void encodeEntry(JSONWriter& writer, const ScanSnapshot::Entry& entry, bool isEscaped) {
    writer.beginObject();
    writer.key("allocatedSize");
    writer.integer(entry.allocatedSize);
    writer.key("fileCount");
    writer.integer(entry.fileCount);
    writer.key("isDirectory");
    writer.boolean(entry.isDirectory);
    writer.key("path");
    encodePath(writer, entry.path, isEscaped);
    writer.key("reclaimableSize");
    writer.integer(entry.reclaimableSize);
    writer.key("size");
    writer.integer(entry.size);
    writer.endObject();
}

} // namespace

std::string encode(const ScanSnapshot& snapshot) {
    const std::optional<std::string> createdAt = iso8601Text(snapshot.createdAt);
    if (!createdAt)
        throw std::range_error("The snapshot's date lies outside the years 1 to 9999.");
    const bool isEscaped = !isText(snapshot);
    std::string document;
    JSONWriter writer(document);
    writer.beginObject();
    writer.key("createdAt");
    writer.string(*createdAt);
    writer.key("entries");
    writer.beginArray();
    for (const ScanSnapshot::Entry& entry : snapshot.entries)
        encodeEntry(writer, entry, isEscaped);
    writer.endArray();
    if (isEscaped) {
        writer.key("escapedPaths");
        writer.boolean(true);
    }
    writer.key("id");
    writer.string(snapshot.id.text());
    if (snapshot.isScheduled) {
        writer.key("isScheduled");
        writer.boolean(true);
    }
    writer.key("minimumSize");
    writer.integer(snapshot.minimumSize);
    writer.key("rootPath");
    encodePath(writer, snapshot.rootPath, isEscaped);
    writer.key("totalAllocatedSize");
    writer.integer(snapshot.totalAllocatedSize);
    writer.key("totalFiles");
    writer.integer(snapshot.totalFiles);
    writer.key("totalReclaimableSize");
    writer.integer(snapshot.totalReclaimableSize);
    writer.key("totalSize");
    writer.integer(snapshot.totalSize);
    writer.endObject();
    return document;
}

std::optional<ScanSnapshot> decode(const ByteSource& source) {
    std::optional<ScanSnapshot> snapshot(std::in_place);
    SourceStream stream(source);
    Receiver receiver(stream, *snapshot);
    // The parser without recursion; the receiver bounds its stack as well.
    constexpr unsigned flags = rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag;
    const rapidjson::ParseResult parsed = rapidjson::Reader().Parse<flags>(stream, receiver);
    if (!parsed || !stream.isExhausted())
        snapshot.reset();
    return snapshot;
}

std::optional<ScanSnapshot> decode(std::string_view document) {
    return decode([&document](std::span<char> piece) {
        const std::size_t count = document.copy(piece.data(), piece.size());
        document.remove_prefix(count);
        return static_cast<std::ptrdiff_t>(count);
    });
}

} // namespace tarnwell::SnapshotCoding
