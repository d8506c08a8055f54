#include "TarnwellCore/Platform/PropertyList.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace tarnwell {

namespace {

constexpr std::string_view binaryStart = "bplist00";
constexpr std::size_t mostValues = 100'000;
constexpr std::size_t mostLevels = 128;
/// An XML list cannot be deeper than that, whatever its closing marks say.
constexpr std::size_t mostContainers = 4096;

// --- Binary -----------------------------------------------------------------------------------------------
//
// Objects, a table of their offsets, and a trailer of 32 bytes: 6 unused, the sizes of an offset and of a
// reference, then in 8 bytes each the number of objects, the top one, and where the table is. All numbers are
// big-endian. An object begins with its kind in the upper half of a byte; the lower half is its length, or
// 15, and an integer object with the length follows. An array (10) and a set (12) hold references, a
// dictionary (13) those of its keys, then those of its values.

class BinaryList {
public:
    explicit BinaryList(std::string_view bytes) : bytes_(bytes) {}

    bool isBounded() {
        constexpr std::size_t trailerLength = 32;
        if (bytes_.size() < binaryStart.size() + trailerLength)
            return false;
        const std::size_t trailer = bytes_.size() - trailerLength;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        const std::uint64_t count = number(trailer + 8, 8);
        const std::uint64_t top = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (count == 0 || count > mostValues || top >= count || !isWidth(offsetSize_) ||
            !isWidth(referenceSize_) || table_ > trailer || count * offsetSize_ > trailer - table_)
            return false;
        end_ = trailer;
        objects_.assign(static_cast<std::size_t>(count), {});
        return visit(static_cast<std::size_t>(top));
    }

private:
    struct Object {
        enum class State : std::uint8_t { unknown, open, known };
        State state = State::unknown;
        std::size_t values = 1; // with all that it holds, wherever that stands
        std::size_t levels = 1;
    };
    /// An object whose references are being looked at.
    struct Visit {
        std::size_t object;
        std::size_t references; // where they begin
        std::size_t count;
        std::size_t next = 0;
    };

    static bool isWidth(std::uint64_t width) { return width >= 1 && width <= 8; }

    std::uint64_t number(std::size_t at, std::size_t width) const {
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < width; ++index)
            value = value << 8 | static_cast<unsigned char>(bytes_[at + index]);
        return value;
    }

    /// The references of an object; none of one that is no container. Nothing for what is no object.
    std::optional<Visit> begin(std::size_t object) const {
        const std::uint64_t at = number(static_cast<std::size_t>(table_ + object * offsetSize_), offsetSize_);
        if (at < binaryStart.size() || at >= end_)
            return std::nullopt;
        auto place = static_cast<std::size_t>(at);
        const auto marker = static_cast<unsigned char>(bytes_[place++]);
        const unsigned kind = marker >> 4;
        if (kind != 10 && kind != 12 && kind != 13)
            return Visit{object, place, 0};
        std::uint64_t count = marker & 15;
        if (count == 15) {
            const auto length = place < end_ ? static_cast<unsigned char>(bytes_[place++]) : 0;
            const std::size_t width = std::size_t{1} << (length & 15);
            if (length >> 4 != 1 || width > 8 || end_ - place < width)
                return std::nullopt;
            count = number(place, width);
            place += width;
        }
        if (count > mostValues || count * (kind == 13 ? 2 : 1) * referenceSize_ > end_ - place)
            return std::nullopt;
        return Visit{object, place, static_cast<std::size_t>(count) * (kind == 13 ? 2 : 1)};
    }

    /// Depth first, with a stack of its own.
    bool visit(std::size_t top) {
        std::vector<Visit> stack;
        const auto push = [&](std::size_t object) {
            const auto begun = begin(object);
            if (begun)
                stack.push_back(*begun);
            objects_[object].state = Object::State::open;
            return begun.has_value() && stack.size() <= mostLevels;
        };
        if (!push(top))
            return false;
        while (!stack.empty()) {
            Visit& visit = stack.back();
            Object& object = objects_[visit.object];
            if (visit.next == visit.count) {
                object.state = Object::State::known;
                stack.pop_back();
                continue;
            }
            const std::uint64_t reference =
                number(visit.references + visit.next * referenceSize_, referenceSize_);
            if (reference >= objects_.size())
                return false;
            const Object& held = objects_[static_cast<std::size_t>(reference)];
            if (held.state == Object::State::open)
                return false; // it holds itself
            if (held.state == Object::State::unknown) {
                if (!push(static_cast<std::size_t>(reference)))
                    return false;
                continue; // and then again, as a known one
            }
            ++visit.next;
            object.values += held.values;
            object.levels = std::max(object.levels, held.levels + 1);
            if (object.values > mostValues || object.levels > mostLevels)
                return false;
        }
        return true;
    }

    std::string_view bytes_;
    std::uint64_t offsetSize_ = 0;
    std::uint64_t referenceSize_ = 0;
    std::uint64_t table_ = 0;
    std::size_t end_ = 0; // of the objects and their table
    std::vector<Object> objects_;
};

// --- XML --------------------------------------------------------------------------------------------------

bool isBoundedXML(std::string_view bytes) {
    constexpr std::array<std::string_view, 2> containers = {"<dict", "<array"};
    std::size_t count = 0;
    for (const std::string_view container : containers)
        for (std::size_t at = bytes.find(container); at != std::string_view::npos;
             at = bytes.find(container, at + container.size()))
            ++count;
    // In another encoding the marks would look otherwise; entities may hold each other.
    return count <= mostContainers && bytes.find('\0') == std::string_view::npos &&
           bytes.find("<!ENTITY") == std::string_view::npos;
}

/// Without the mark and the blanks that may stand before an XML document.
bool beginsAsXML(std::string_view bytes) {
    if (bytes.starts_with("\xEF\xBB\xBF"))
        bytes.remove_prefix(3);
    const std::size_t first = bytes.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && bytes[first] == '<';
}

} // namespace

bool PropertyListDetail::isBounded(std::string_view bytes) {
    if (bytes.starts_with(binaryStart))
        return BinaryList(bytes).isBounded();
    return beginsAsXML(bytes) && isBoundedXML(bytes);
}

std::optional<PropertyListTexts> readPropertyList(std::string_view bytes) {
    if (!PropertyListDetail::isBounded(bytes))
        return std::nullopt;
    return PropertyListDetail::parse(bytes);
}

} // namespace tarnwell
