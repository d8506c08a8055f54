#include "TarnwellCore/Platform/EntryNames.hpp"

#include <dirent.h>

#include <memory>
#include <string_view>

namespace tarnwell {

// The standard library's iterator ends the process where memory runs out.
std::vector<std::string> entryNames(const std::filesystem::path& folder) {
    struct Closing {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    const std::unique_ptr<DIR, Closing> open(::opendir(folder.empty() ? "." : folder.c_str()));
    std::vector<std::string> names;
    while (const dirent* const entry = open ? ::readdir(open.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}

} // namespace tarnwell
