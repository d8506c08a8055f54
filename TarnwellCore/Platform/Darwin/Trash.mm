#include "TarnwellCore/Platform/Trash.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <Foundation/Foundation.h>
#include <sys/stat.h>

#include <climits>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

std::optional<fs::path> pathOf(NSURL* _Nullable url) {
    char buffer[PATH_MAX];
    if (url == nil || ![url getFileSystemRepresentation:buffer maxLength:sizeof buffer])
        return std::nullopt;
    return fs::path(buffer);
}

} // namespace

std::expected<std::optional<fs::path>, std::string> moveItemToTrash(const fs::path& item) {
    @autoreleasepool {
        struct stat status;
        const bool isDirectory = ::lstat(item.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        NSURL* url = fileURL(item, isDirectory);
        NSURL* landed = nil;
        NSError* error = nil;
        if (![[[NSFileManager alloc] init] trashItemAtURL:url resultingItemURL:&landed error:&error])
            return std::unexpected(descriptionOf(error));
        return pathOf(landed);
    }
}

WayOut wayOutOf(const fs::path& item) {
    @autoreleasepool {
        struct stat status;
        if (item == "/" || ::lstat(item.c_str(), &status) != 0)
            return WayOut::none;
        NSError* error = nil;
        NSURL* trash = [[[NSFileManager alloc] init] URLForDirectory:NSTrashDirectory
                                                            inDomain:NSUserDomainMask
                                                   appropriateForURL:fileURL(item, S_ISDIR(status.st_mode))
                                                              create:NO
                                                               error:&error];
        // Any other failure leaves open whether there is one.
        if (trash == nil)
            return
                [error.domain isEqualToString:NSCocoaErrorDomain] && error.code == NSFeatureUnsupportedError
                    ? WayOut::deletion
                    : WayOut::none;
        const std::optional<fs::path> folder = pathOf(trash);
        std::error_code ignored;
        for (fs::path above = item.parent_path(); folder && above.has_relative_path();
             above = above.parent_path())
            if (fs::equivalent(above, *folder, ignored))
                return WayOut::deletion;
        return WayOut::trash;
    }
}

fs::path homeTrashDirectory(const fs::path& home) {
    return home / ".Trash";
}

std::vector<fs::path> volumeTrashDirectories(const fs::path& volume, uid_t user) {
    return {volume / ".Trashes" / std::to_string(user) / ""};
}

bool isUsersTrash(const fs::path& folder, uid_t user) {
    const fs::path trash = folder.has_filename() ? folder : folder.parent_path();
    struct stat shared;
    struct stat own;
    // Where a volume ignores ownership, everything is the asking user's.
    return ::lstat(trash.parent_path().c_str(), &shared) == 0 && S_ISDIR(shared.st_mode) &&
           ::lstat(trash.c_str(), &own) == 0 && S_ISDIR(own.st_mode) && own.st_uid == user;
}

} // namespace tarnwell
