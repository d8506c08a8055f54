#include "TarnwellCore/Platform/TrashNotes.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/OpenDescriptor.hpp"
#include "TarnwellCore/Platform/TrashInfo.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Four times the longest path that the kernel takes, each byte escaped.
constexpr std::size_t longestNote = 65'536;

/// The folder of the notes of the Trash that this item lies in; not open when the item's folder is none of a
/// Trash.
int openNotes(const fs::path& location) {
    if (location.parent_path().filename() != "files")
        return -1;
    const OpenDescriptor trash(openFolder(location.parent_path().parent_path().native()));
    return trash.number() < 0 ? -1 : openSubfolder(trash.number(), "info", nullptr);
}

std::string noteName(const fs::path& location) {
    return location.filename().native() + ".trashinfo";
}

std::optional<std::string> readNote(int notes, const std::string& name) {
    const OpenDescriptor note(withoutInterruption([&] {
        return ::openat(notes, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }));
    struct stat status = {};
    if (note.number() < 0 || ::fstat(note.number(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    std::string text;
    std::array<char, 4096> buffer;
    while (text.size() <= longestNote) {
        const ssize_t count =
            withoutInterruption([&] { return ::read(note.number(), buffer.data(), buffer.size()); });
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

/// Names only: nothing that leads up, and at least one of them.
bool staysBelow(std::string_view path) {
    bool hasName = false;
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        const std::string_view name = path.substr(0, length);
        if (name == "..")
            return false;
        hasName = hasName || (!name.empty() && name != ".");
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return hasName;
}

/// The volume whose Trash this is by its name; empty for a home's.
fs::path volumeOf(const fs::path& trash) {
    if (trash.filename().native().starts_with(".Trash-"))
        return trash.parent_path();
    if (trash.parent_path().filename() == ".Trash")
        return trash.parent_path().parent_path();
    return {};
}

} // namespace

std::optional<NotedOrigin> notedOrigin(const fs::path& location) {
    const OpenDescriptor notes(openNotes(location));
    const auto text = notes.number() < 0 ? std::nullopt : readNote(notes.number(), noteName(location));
    const auto info = text ? parseTrashInfo(*text) : std::nullopt;
    if (!info || !staysBelow(info->path))
        return std::nullopt;
    const fs::path trash = location.parent_path().parent_path();
    const bool isAbsolute = info->path.starts_with('/');
    std::string path = fs::path(info->path).relative_path().lexically_normal().native();
    if (path.ends_with('/'))
        path.pop_back();
    NotedOrigin origin{.base = "/", .relativePath = std::move(path), .trashedAt = info->deletionDate};
    if (const fs::path volume = volumeOf(trash); !volume.empty()) {
        if (isAbsolute)
            return std::nullopt;
        origin.base = volume;
        origin.isOfOthers = true;
    } else if (!isAbsolute) {
        origin.base = trash.parent_path();
    }
    return origin;
}

void removeNote(const fs::path& location) noexcept {
    try {
        const OpenDescriptor notes(openNotes(location));
        if (notes.number() >= 0)
            ::unlinkat(notes.number(), noteName(location).c_str(), 0);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // Out of memory: a note on nothing does no harm.
    }
}

} // namespace tarnwell
