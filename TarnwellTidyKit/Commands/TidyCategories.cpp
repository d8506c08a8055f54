#include "TarnwellTidyKit/Commands/TidyCategories.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"

#include <algorithm>
#include <string>

namespace tarnwell {

namespace {

std::string letters(std::string_view text) {
    std::string plain;
    for (const char character : text) {
        if (character >= 'A' && character <= 'Z')
            plain += static_cast<char>(character - 'A' + 'a');
        else if (character >= 'a' && character <= 'z')
            plain += character;
    }
    return plain;
}

} // namespace

std::optional<FileCategory> categoryFromText(std::string_view text) {
    const std::string wanted = letters(text);
    for (const FileCategory category : allFileCategories())
        if (!wanted.empty() && letters(displayName(category)) == wanted)
            return category;
    return std::nullopt;
}

std::vector<FileCategory> categoriesFrom(const TidyArguments& arguments, std::string_view option) {
    std::vector<FileCategory> categories;
    for (const std::string& text : arguments.values(option)) {
        const auto category = categoryFromText(text);
        if (!category) {
            std::string all;
            for (const FileCategory each : allFileCategories())
                all.append(all.empty() ? "" : ", ").append(displayName(each));
            throw TidyUsageError("There is no category '" + harmless(text) + "'. There are: " + all + ".");
        }
        if (std::ranges::find(categories, *category) == categories.end())
            categories.push_back(*category);
    }
    return categories;
}

} // namespace tarnwell
