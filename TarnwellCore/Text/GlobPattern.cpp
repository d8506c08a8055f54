#include "TarnwellCore/Text/GlobPattern.hpp"

#include "TarnwellCore/Text/Utf8.hpp"

#include <algorithm>

namespace tarnwell {

namespace {

constexpr std::size_t wordBits = 64;
constexpr std::size_t asciiCount = 128;

} // namespace

GlobPattern::GlobPattern(std::string_view pattern) {
    parse(pattern);
    prepare();
}

GlobPattern GlobPattern::containing(std::string_view text) {
    GlobPattern result;
    result.addStar(true);
    while (!text.empty())
        result.elements_.push_back({.kind = Element::Kind::character, .character = takeCharacter(text)});
    if (result.elements_.size() > 1)
        result.addStar(true);
    result.prepare();
    // What begins with a "/" is not to be found where there is none.
    std::ranges::fill(result.skippable_, Word{0});
    return result;
}

void GlobPattern::parse(std::string_view rest) {
    while (!rest.empty()) {
        const std::string_view here = rest;
        char32_t character = takeCharacter(rest);
        if (character == '*') {
            const bool isDeep = rest.starts_with('*');
            while (rest.starts_with('*'))
                rest.remove_prefix(1);
            const std::size_t count = elements_.size();
            // "**/**/" says no more than "**/".
            if (isDeep && rest.starts_with('/') && count >= 2 &&
                elements_[count - 2].kind == Element::Kind::deepStar && elements_[count - 1].character == '/')
                rest.remove_prefix(1);
            else
                addStar(isDeep);
            continue;
        }
        if (character == '?') {
            elements_.push_back({.kind = Element::Kind::any});
            continue;
        }
        if (character == '[') {
            rest = here;
            if (parseSet(rest))
                continue;
            rest = here.substr(1);
        } else if (character == '\\' && !rest.empty()) {
            character = takeCharacter(rest);
        }
        elements_.push_back({.kind = Element::Kind::character, .character = character});
    }
}

/// Takes a set in brackets off the front; leaves everything as it is when the bracket has no end.
bool GlobPattern::parseSet(std::string_view& rest) {
    std::string_view text = rest.substr(1);
    Element set{.kind = Element::Kind::set};
    if (text.starts_with('!') || text.starts_with('^')) {
        set.isNegated = true;
        text.remove_prefix(1);
    }
    const auto take = [&] {
        char32_t character = takeCharacter(text);
        if (character == '\\' && !text.empty())
            character = takeCharacter(text);
        return character;
    };
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        if (text.front() == ']' && !isFirst) {
            rest = text.substr(1);
            elements_.push_back(std::move(set));
            return true;
        }
        const char32_t first = take();
        char32_t last = first;
        if (text.size() >= 2 && text[0] == '-' && text[1] != ']') {
            text.remove_prefix(1);
            last = take();
        }
        set.ranges.push_back({first, last});
    }
    return false;
}

void GlobPattern::addStar(bool isDeep) {
    elements_.push_back({.kind = isDeep ? Element::Kind::deepStar : Element::Kind::star});
}

bool GlobPattern::meets(const Element& element, char32_t character) {
    switch (element.kind) {
    case Element::Kind::character:
        return element.character == character;
    case Element::Kind::any:
        return character != '/';
    case Element::Kind::set:
        return character != '/' && std::ranges::any_of(element.ranges, [&](const Range& range) {
                                       return range.first <= character && character <= range.last;
                                   }) != element.isNegated;
    case Element::Kind::star:
    case Element::Kind::deepStar:
        return false;
    }
    return false;
}

void GlobPattern::prepare() {
    wordCount_ = elements_.size() / wordBits + 1;
    consumed_.assign(asciiCount * wordCount_, 0);
    stars_.assign(wordCount_, 0);
    deepStars_.assign(wordCount_, 0);
    skippable_.assign(wordCount_, 0);
    for (std::size_t index = 0; index < elements_.size(); ++index) {
        const Element& element = elements_[index];
        const std::size_t word = index / wordBits;
        const Word bit = Word{1} << index % wordBits;
        for (char32_t character = 0; character < asciiCount; ++character)
            if (meets(element, character))
                consumed_[character * wordCount_ + word] |= bit;
        if (element.kind == Element::Kind::star || element.kind == Element::Kind::deepStar)
            stars_[word] |= bit;
        if (element.kind != Element::Kind::deepStar)
            continue;
        deepStars_[word] |= bit;
        const bool isFolder = index == 0 || elements_[index - 1].character == '/';
        if (isFolder && index + 1 < elements_.size() && elements_[index + 1].character == '/')
            skippable_[word] |= bit;
    }
}

/// Adds the places that are reached without a character: of what is newly reached, those behind a "**/", and
/// those behind a star. No star follows a star, and no "**/" a "**/".
GlobPattern::Word GlobPattern::Closing::close(Word entered, Word kept, Word skippable, Word stars) {
    const Word skipped = entered & skippable;
    const Word places = entered | skipped << 2 | skipCarry | kept;
    const Word starred = places & stars;
    const Word closed = places | starred << 1 | starCarry;
    skipCarry = skipped >> (wordBits - 2);
    starCarry = starred >> (wordBits - 1);
    return closed;
}

void GlobPattern::step(std::span<Word> places, const Word* consumed, const Word* kept) const {
    Closing closing;
    Word carry = 0;
    for (std::size_t word = 0; word < wordCount_; ++word) {
        const Word moved = places[word] & consumed[word];
        places[word] =
            closing.close(moved << 1 | carry, places[word] & kept[word], skippable_[word], stars_[word]);
        carry = moved >> (wordBits - 1);
    }
}

void GlobPattern::start(std::span<Word> places) const {
    Closing closing;
    for (std::size_t word = 0; word < wordCount_; ++word)
        places[word] = closing.close(word == 0, 0, skippable_[word], stars_[word]);
}

void GlobPattern::advance(std::span<Word> places, std::string_view text) const {
    std::vector<Word> consumed;
    while (!text.empty()) {
        const char32_t character = takeCharacter(text);
        const Word* const kept = character == '/' ? deepStars_.data() : stars_.data();
        if (character < asciiCount) {
            step(places, consumed_.data() + character * wordCount_, kept);
            continue;
        }
        consumed.assign(wordCount_, 0);
        for (std::size_t index = 0; index < elements_.size(); ++index)
            if (meets(elements_[index], character))
                consumed[index / wordBits] |= Word{1} << index % wordBits;
        step(places, consumed.data(), kept);
    }
}

bool GlobPattern::accepts(std::span<const Word> places) const {
    return (places[elements_.size() / wordBits] >> elements_.size() % wordBits & 1) != 0;
}

bool GlobPattern::matches(std::string_view text) const {
    if (wordCount_ == 1) {
        Word places = 0;
        start(std::span(&places, 1));
        advance(std::span(&places, 1), text);
        return accepts(std::span(&places, 1));
    }
    std::vector<Word> places(wordCount_);
    start(places);
    advance(places, text);
    return accepts(places);
}

} // namespace tarnwell
