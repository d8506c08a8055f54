#include "TarnwellCore/Platform/Trash.hpp"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <exception>
#include <memory>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Holds on to an item while it moves. The kernel knows the present path of what a descriptor refers to, so
/// the item is found again whatever name the Trash gave it; neither its old name nor its inode would do,
/// because names collide and hard links share their inode.
class MovingItem {
public:
    explicit MovingItem(const char* path) : descriptor_(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC)) {}
    ~MovingItem() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    MovingItem(const MovingItem&) = delete;
    MovingItem& operator=(const MovingItem&) = delete;

    /// Nothing when /proc is not there, or when the item has been deleted in the meantime.
    std::optional<fs::path> presentPath() const {
        if (descriptor_ < 0)
            return std::nullopt;
        char target[PATH_MAX];
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor_);
        const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
        if (length <= 0 || length == static_cast<ssize_t>(sizeof target))
            return std::nullopt;
        std::string path(target, static_cast<std::size_t>(length));
        // A deleted item reads "… (deleted)"; only what is really there counts.
        struct stat held;
        struct stat found;
        if (::fstat(descriptor_, &held) != 0 || ::lstat(path.c_str(), &found) != 0 ||
            held.st_dev != found.st_dev || held.st_ino != found.st_ino)
            return std::nullopt;
        return fs::path(std::move(path));
    }

private:
    int descriptor_;
};

/// GIO strikes "." and ".." out of a path as text, which leads to another item than the kernel's reading when
/// the component before is a link. A path with ".." gets its folder resolved first; one that ends in either
/// names no item that could be moved.
std::expected<std::string, std::string> unambiguousPath(const fs::path& item) {
    const fs::path name = item.filename();
    if (name == "." || name == "..")
        return std::unexpected(std::generic_category().message(EINVAL));
    bool climbs = false;
    for (const fs::path& component : item)
        climbs = climbs || component == "..";
    if (!climbs)
        return item.string();
    const fs::path folder = item.has_parent_path() ? item.parent_path() : fs::path(".");
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(folder.c_str(), nullptr),
                                                               &std::free);
    if (!resolved)
        return std::unexpected(std::generic_category().message(errno));
    return (fs::path(resolved.get()) / name).string();
}

/// The original path as the note on an item tells it: relative to the volume in a volume's Trash, so that it
/// holds wherever the volume is mounted; absolute in the home Trash.
std::string notedPath(const fs::path& original, const fs::path& trash) {
    fs::path volume;
    if (trash.filename().native().starts_with(".Trash-"))
        volume = trash.parent_path();
    else if (trash.parent_path().filename() == ".Trash")
        volume = trash.parent_path().parent_path();
    return volume.empty() ? original.string() : original.lexically_relative(volume).string();
}

/// Fills in the note on a trashed item where GIO left it empty: it writes through a temporary file, whose
/// name is too long for the file system when the item's is nearly so, and moves the item all the same.
/// Without a note nobody could put the item back. Does its best; the item is in the Trash either way.
void completeNote(const fs::path& original, const fs::path& landed) {
    const fs::path trash = landed.parent_path().parent_path();
    const fs::path note = trash / "info" / (landed.filename().string() + ".trashinfo");
    using Text = std::unique_ptr<char, decltype(&g_free)>;
    const Text path(g_uri_escape_string(notedPath(original, trash).c_str(), "/", FALSE), &g_free);
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> now(g_date_time_new_now_local(),
                                                                       &g_date_time_unref);
    const Text date(g_date_time_format(now.get(), "%Y-%m-%dT%H:%M:%S"), &g_free);
    const std::string text =
        std::string("[Trash Info]\nPath=") + path.get() + "\nDeletionDate=" + date.get() + "\n";

    const int descriptor = ::open(note.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return;
    struct stat status;
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) [[maybe_unused]]
        const ssize_t written = ::write(descriptor, text.data(), text.size());
    ::close(descriptor);
}

/// After the move nothing may fail any more: a caller that hears of a failure believes the item is where it
/// was.
std::optional<fs::path> whereItLanded(const std::optional<fs::path>& original,
                                      const MovingItem& moving) noexcept {
    std::optional<fs::path> landed;
    try {
        landed = moving.presentPath();
        if (original && landed)
            completeNote(*original, *landed);
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // Out of memory: the item is in the Trash all the same.
    }
    return landed;
}

/// A folder, not a link to one; of this owner where one is asked for.
bool isRealFolder(const fs::path& path, mode_t neededBits, std::optional<uid_t> owner) {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           (status.st_mode & neededBits) == neededBits && (!owner || status.st_uid == *owner);
}

/// Whether what has this real path lies in this user's Trash: of the home, or of any volume.
bool liesInTrash(const fs::path& item) {
    const fs::path homeTrash = homeTrashDirectory(g_get_home_dir());
    const std::string user = std::to_string(::geteuid());
    std::error_code ignored;
    for (fs::path files = item.parent_path(); files.has_relative_path(); files = files.parent_path()) {
        const fs::path trash = files.parent_path();
        if (files.filename() != "files")
            continue;
        const bool isNamedSo = trash.filename() == ".Trash-" + user ||
                               (trash.filename() == user && trash.parent_path().filename() == ".Trash");
        if (isNamedSo ? isUsersTrash(files / "", ::geteuid()) : fs::equivalent(files, homeTrash, ignored))
            return true;
    }
    return false;
}

} // namespace

std::expected<std::optional<fs::path>, std::string> moveItemToTrash(const fs::path& item) {
    const auto path = unambiguousPath(item);
    if (!path)
        return std::unexpected(path.error());
    const MovingItem moving(path->c_str());
    const std::optional<fs::path> original = moving.presentPath();
    // GIO would look for a Trash and try.
    if (original == "/")
        return std::unexpected(std::generic_category().message(EBUSY));
    const std::unique_ptr<GFile, decltype(&g_object_unref)> file(g_file_new_for_path(path->c_str()),
                                                                 &g_object_unref);
    GError* error = nullptr;
    if (!g_file_trash(file.get(), nullptr, &error)) {
        const std::unique_ptr<GError, decltype(&g_error_free)> owned(error, &g_error_free);
        return std::unexpected(std::string(error->message));
    }
    return whereItLanded(original, moving);
}

WayOut wayOutOf(const fs::path& item) {
    const auto path = unambiguousPath(item);
    if (!path)
        return WayOut::none;
    const std::optional<fs::path> real = MovingItem(path->c_str()).presentPath();
    if (!real || *real == "/")
        return WayOut::none;
    const std::unique_ptr<GFile, decltype(&g_object_unref)> file(g_file_new_for_path(path->c_str()),
                                                                 &g_object_unref);
    const std::unique_ptr<GFileInfo, void (*)(GFileInfo*)> info(
        g_file_query_info(file.get(),
                          G_FILE_ATTRIBUTE_ACCESS_CAN_TRASH "," G_FILE_ATTRIBUTE_ACCESS_CAN_DELETE,
                          G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr),
        [](GFileInfo* held) {
            if (held != nullptr)
                g_object_unref(held);
        });
    // What may not leave its folder cannot be trashed either, which says nothing of a Trash.
    if (info == nullptr || !g_file_info_has_attribute(info.get(), G_FILE_ATTRIBUTE_ACCESS_CAN_TRASH) ||
        !g_file_info_get_attribute_boolean(info.get(), G_FILE_ATTRIBUTE_ACCESS_CAN_DELETE))
        return WayOut::none;
    return g_file_info_get_attribute_boolean(info.get(), G_FILE_ATTRIBUTE_ACCESS_CAN_TRASH) &&
                   !liesInTrash(*real)
               ? WayOut::trash
               : WayOut::deletion;
}

fs::path homeTrashDirectory(const fs::path& home) {
    // GIO's own answers, since these decide where `moveItemToTrash` puts things.
    std::error_code ignored;
    const bool isOwnHome = fs::equivalent(home, g_get_home_dir(), ignored);
    const fs::path data = isOwnHome ? fs::path(g_get_user_data_dir()) : home / ".local" / "share";
    fs::path files = data / "Trash" / "files";
    // A home folder that came from a Mac has its Trash elsewhere.
    if (!fs::exists(files, ignored) && fs::exists(home / ".Trash", ignored))
        return home / ".Trash";
    return files;
}

std::vector<fs::path> volumeTrashDirectories(const fs::path& volume, uid_t user) {
    const std::string name = std::to_string(user);
    return {volume / ".Trash" / name / "files" / "", volume / (".Trash-" + name) / "files" / ""};
}

bool isUsersTrash(const fs::path& folder, uid_t user) {
    const fs::path files = folder.has_filename() ? folder : folder.parent_path();
    const fs::path trash = files.parent_path();
    const fs::path shared = trash.parent_path();
    // The shared Trash counts only as the freedesktop.org text wants it: sticky, so that nobody else can have
    // put another user's folder there.
    return (shared.filename() != ".Trash" || isRealFolder(shared, S_ISVTX, std::nullopt)) &&
           isRealFolder(trash, 0, user) && isRealFolder(files, 0, user);
}

} // namespace tarnwell
