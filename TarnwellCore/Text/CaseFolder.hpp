#pragma once

// Folds the case of many names, most of which are ASCII and nearly all of which are made of characters that
// fold one by one.

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Gives what `caseFolded` gives, for any bytes: those that are not UTF-8 stay as they are. Confined to one
/// thread.
class CaseFolder {
public:
    CaseFolder();

    /// Valid until the next call.
    std::string_view fold(std::string_view bytes);

private:
    using Page = std::array<char32_t, 256>;

    char* room(std::size_t length);
    std::string_view foldCharacters(std::string_view bytes);
    std::string_view foldWhole(std::string_view bytes);
    char32_t foldedAlone(char32_t character);

    /// Whether ASCII letters fold to ASCII letters, as in nearly all languages.
    bool isPlain_ = true;
    std::vector<char> room_;
    std::string folded_;
    /// What characters fold to, by the upper bits of their codes; made when first asked for.
    std::vector<std::unique_ptr<Page>> pages_;
};

} // namespace tarnwell
