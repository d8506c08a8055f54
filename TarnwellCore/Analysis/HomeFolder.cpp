#include "TarnwellCore/Analysis/HomeFolder.hpp"

#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/PathNesting.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"

#include <algorithm>
#include <string>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

std::string withoutNeedlessSlashes(std::string_view path) {
    std::string text;
    for (const char byte : path)
        if (byte != '/' || !text.ends_with('/'))
            text += byte;
    if (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

} // namespace

HomeFolder::HomeFolder(const fs::path& path) {
    if (path.empty())
        return;
    spellings_.emplace_back(withoutNeedlessSlashes(path.native()));
    if (fs::path resolved = resolveLinks(spellings_.front()); resolved != spellings_.front())
        spellings_.push_back(std::move(resolved));
}

std::vector<fs::path> HomeFolder::spellingsOf(const fs::path& path) const {
    std::vector<fs::path> found{path};
    const fs::path plain = withoutNeedlessSlashes(path.native());
    const auto home = std::ranges::find_if(
        spellings_, [&](const fs::path& each) { return tarnwell::isWithin(plain, each); });
    if (home == spellings_.end())
        return found;
    std::string_view rest = std::string_view(plain.native()).substr(home->native().size());
    while (rest.starts_with('/'))
        rest.remove_prefix(1);
    for (const fs::path& spelling : spellings_) {
        fs::path other = rest.empty() ? spelling : spelling / rest;
        if (other.native() != path.native())
            found.push_back(std::move(other));
    }
    return found;
}

bool HomeFolder::isWithin(const fs::path& folder) const {
    return std::ranges::any_of(spellings_,
                               [&](const fs::path& each) { return tarnwell::isWithin(each, folder); });
}

bool HomeFolder::holdsDirectly(const fs::path& path) const {
    return std::ranges::find(spellings_, path.parent_path()) != spellings_.end();
}

bool isWithin(const fs::path& inner, const fs::path& outer) {
    return isAtOrBelow(inner.native(), PathUtil::withoutTrailingSlashes(outer.native()));
}

} // namespace tarnwell
