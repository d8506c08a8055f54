#include "TarnwellCore/Analysis/InstallerStem.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace tarnwell {

namespace {

using namespace std::string_view_literals;

constexpr std::array installerExtensions{"dmg"sv, "pkg"sv,  "mpkg"sv, "xip"sv,      "iso"sv, "deb"sv,
                                         "rpm"sv, "appx"sv, "msi"sv,  "appimage"sv, "exe"sv};

/// Platforms and processors; also with a number behind them ("macos11").
constexpr std::array variantWords{"mac"sv,   "macos"sv, "osx"sv,   "darwin"sv,  "win"sv,      "windows"sv,
                                  "linux"sv, "arm"sv,   "arm64"sv, "aarch64"sv, "amd64"sv,    "x64"sv,
                                  "x86"sv,   "i386"sv,  "i686"sv,  "intel"sv,   "apple"sv,    "silicon"sv,
                                  "64bit"sv, "32bit"sv, "win32"sv, "win64"sv,   "universal"sv};

constexpr std::array emptyWords{"setup"sv, "installer"sv, "install"sv, "latest"sv, "release"sv, "stable"sv,
                                "final"sv, "copy"sv,      "alpha"sv,   "beta"sv,   "preview"sv, "rc"sv,
                                "build"sv, "version"sv,   "ver"sv,     "v"sv};

/// What may stand between a version number's digits and its letters: "v2", "3b2", "1rc1".
constexpr std::array versionLetters{"v"sv,  "ver"sv,  "version"sv, "r"sv,     "rev"sv, "b"sv,
                                    "rc"sv, "beta"sv, "alpha"sv,   "build"sv, "pre"sv, "dev"sv};

template <std::size_t count>
bool contains(const std::array<std::string_view, count>& words, std::string_view word) {
    return std::ranges::find(words, word) != words.end();
}

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, isDigit);
}

/// A number too long for 64 bits counts as the largest.
std::uint64_t numberOf(std::string_view digits) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() ? number : std::numeric_limits<std::uint64_t>::max();
}

/// A word of the name and the byte before it.
struct Piece {
    char separator;
    std::string_view text;
};

std::vector<Piece> pieces(std::string_view name) {
    std::vector<Piece> found;
    char separator = ' ';
    while (!name.empty()) {
        const std::size_t length = std::min(name.find_first_of(" .-_+()[]{},~@"), name.size());
        if (length > 0)
            found.push_back({separator, name.substr(0, length)});
        if (length < name.size())
            separator = name[length];
        name.remove_prefix(std::min(length + 1, name.size()));
    }
    return found;
}

/// The digits of a word that is a version by itself: "12", "v2", "3b2", "rc1"; empty for any other word.
std::string_view versionDigits(std::string_view word) {
    if (isNumber(word))
        return word;
    const auto isLetter = [](char byte) { return !isDigit(byte); };
    const auto firstDigit = static_cast<std::size_t>(std::ranges::find_if(word, isDigit) - word.begin());
    if (firstDigit == word.size())
        return {};
    if (firstDigit > 0 && !contains(versionLetters, word.substr(0, firstDigit)))
        return {};
    const std::string_view rest = word.substr(firstDigit);
    const auto digits = static_cast<std::size_t>(std::ranges::find_if(rest, isLetter) - rest.begin());
    const std::string_view suffix = rest.substr(digits);
    const auto letters = static_cast<std::size_t>(std::ranges::find_if(suffix, isDigit) - suffix.begin());
    const bool isPlain = suffix.empty() || (contains(versionLetters, suffix.substr(0, letters)) &&
                                            (letters == suffix.size() || isNumber(suffix.substr(letters))));
    return isPlain ? rest.substr(0, digits) : std::string_view();
}

std::string_view withoutNumberAtEnd(std::string_view word) {
    while (!word.empty() && isDigit(word.back()))
        word.remove_suffix(1);
    return word;
}

void appendWord(std::string& text, std::string_view word) {
    if (!text.empty())
        text += ' ';
    text += word;
}

std::string_view withoutExtension(std::string_view name) {
    const std::string_view extension = PathUtil::rawFileExtension(name);
    if (extension.size() + 1 >= name.size() || extension.empty() || isDigit(extension.front()) ||
        extension.find(' ') != std::string_view::npos || !versionDigits(extension).empty())
        return name;
    return name.substr(0, name.size() - extension.size() - 1);
}

} // namespace

bool isInstaller(std::string_view name) {
    return contains(installerExtensions, PathUtil::fileExtension(name));
}

InstallerName installerName(std::string_view name) {
    const std::string base = PathUtil::lowerCase(withoutExtension(name));
    const std::vector<Piece> words = pieces(base);
    InstallerName result;
    bool inVersion = false;    // the word before was a part of the version
    bool afterVariant = false; // a number behind "x86" or "copy" is not a version
    for (std::size_t index = 0; index < words.size(); ++index) {
        const auto [separator, word] = words[index];
        const std::string_view digits = versionDigits(word);
        if (!digits.empty()) {
            const bool isBits = isNumber(word) && index + 1 < words.size() && words[index + 1].text == "bit";
            const bool isCopyNumber = separator == '(' || separator == '[';
            const bool continues = inVersion && (separator == '.' || separator == '_');
            const bool starts = result.version.empty() && !afterVariant && !isBits && !isCopyNumber;
            inVersion = continues || starts;
            if (inVersion)
                result.version.push_back(numberOf(digits));
            if (isBits || (afterVariant && separator == '_'))
                appendWord(result.variant, word);
            afterVariant = false;
            continue;
        }
        inVersion = false;
        afterVariant = false;
        const std::string_view letters = withoutNumberAtEnd(word);
        if (contains(variantWords, word) || contains(variantWords, letters)) {
            appendWord(result.variant, contains(variantWords, word) ? word : letters);
            afterVariant = word == "x86";
        } else if (word == "bit") {
            continue;
        } else if (contains(emptyWords, word)) {
            afterVariant = word == "copy";
        } else if (letters.size() >= 3 && letters.size() < word.size()) {
            // "blender3.6": the number belongs to the version, not to the name.
            appendWord(result.stem, letters);
            if (result.version.empty()) {
                result.version.push_back(numberOf(word.substr(letters.size())));
                inVersion = true;
            }
        } else {
            appendWord(result.stem, word);
        }
    }
    if (result.stem.empty())
        result.stem = base;
    return result;
}

std::string installerStem(std::string_view name) {
    return installerName(name).stem;
}

} // namespace tarnwell
