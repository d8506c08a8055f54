#include "Tests/Truth/Linux/FoundItems.hpp"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace tarnwell::test {

namespace {

using INode = std::pair<std::uint64_t, std::uint64_t>;

INode inodeOf(const FoundItem& found) {
    return {found.item.device, found.item.inode};
}

std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char character : word)
        text += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return text + "'";
}

} // namespace

std::string outputOf(const std::vector<std::string>& command) {
    std::string line = "exec";
    for (const std::string& word : command)
        line += " " + quoted(word);
    FILE* stream = ::popen(line.c_str(), "re");
    if (stream == nullptr)
        throw std::runtime_error("cannot start " + command.front());
    std::string output;
    char buffer[65'536];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, stream))
        output.append(buffer, count);
    if (const int status = ::pclose(stream); status != 0)
        throw std::runtime_error(command.front() + " ended with status " + std::to_string(status));
    return output;
}

FoundItems find(const std::filesystem::path& folder) {
    // What vanishes while it looks makes it fail, and matters to nobody here.
    const std::string output =
        outputOf({"sh", "-c",
                  "find \"$1\" -xdev -printf '%y %D %i %n %s %b %T@ %p\\0' 2>/dev/null || :", "sh", folder});
    FoundItems items;
    std::string_view rest = output;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\0');
        std::istringstream line{std::string(rest.substr(0, end))};
        rest.remove_prefix(end + 1);
        char type = 0;
        FoundItem found;
        std::int64_t blocks = 0;
        auto& [item, modified] = found;
        line >> type >> item.device >> item.inode >> item.linkCount >> item.size >> blocks >> modified;
        line.ignore();
        std::string path;
        std::getline(line, path, '\0');
        item.isDirectory = type == 'd';
        item.allocatedSize = blocks * 512;
        if (item.isDirectory)
            item.size = item.allocatedSize = 0;
        items.emplace(std::move(path), found);
    }
    return items;
}

std::set<std::string> changedPaths(const FoundItems& before, const FoundItems& after) {
    std::set<std::string> changed;
    std::set<INode> changedFiles;
    const auto addWithParents = [&](std::string path) {
        while (changed.insert(path).second && path.find('/') != std::string::npos && path != "/")
            path = parentOf(path);
    };
    const auto addUnlessIn = [&](const FoundItems& items, const FoundItems& others) {
        for (const auto& [path, found] : items) {
            const auto other = others.find(path);
            if (other != others.end() && other->second == found)
                continue;
            addWithParents(path);
            changedFiles.insert(inodeOf(found));
        }
    };
    addUnlessIn(before, after);
    addUnlessIn(after, before);
    for (const FoundItems* items : {&before, &after})
        for (const auto& [path, found] : *items)
            if (found.item.linkCount > 1 && !found.item.isDirectory && changedFiles.contains(inodeOf(found)))
                addWithParents(path);
    return changed;
}

} // namespace tarnwell::test
