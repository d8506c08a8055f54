#include "TarnwellCore/Platform/UserPaths.hpp"

#import <Foundation/Foundation.h>
#include <sys/stat.h>

#include <cstdlib>
#include <vector>

namespace tarnwell {

namespace {

/// Null when the bytes are no file name that Foundation can hold.
NSString* _Nullable pathString(std::string_view path) {
    return [NSFileManager.defaultManager stringWithFileSystemRepresentation:path.data() length:path.size()];
}

/// The bytes of a path of any length; nothing when it has no file-system form.
std::optional<std::string> pathBytes(NSString* _Nullable path) {
    if (path == nil)
        return std::nullopt;
    std::vector<char> buffer([path maximumLengthOfBytesUsingEncoding:NSUTF8StringEncoding] * 3 + 1);
    if (![path getFileSystemRepresentation:buffer.data() maxLength:buffer.size()])
        return std::nullopt;
    return std::string(buffer.data());
}

} // namespace

std::filesystem::path homeDirectory() {
    @autoreleasepool {
        return pathBytes(NSHomeDirectory()).value_or("/");
    }
}

std::string expandTilde(std::string_view path) {
    if (!path.starts_with('~'))
        return std::string(path);
    @autoreleasepool {
        return pathBytes(pathString(path).stringByExpandingTildeInPath).value_or(std::string(path));
    }
}

std::string resolveLinks(const std::filesystem::path& path) {
    @autoreleasepool {
        NSString* text = pathString(path.native());
        if (text.length == 0)
            return path.native();
        NSURL* url = [NSURL fileURLWithPath:text].URLByStandardizingPath.URLByResolvingSymlinksInPath;
        const std::string resolved = pathBytes(url.path).value_or(path.native());
        // Foundation strips "/private" from what it resolves, which turns /private/tmp back into a link.
        struct stat status = {};
        if (::lstat(resolved.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
            return resolved;
        char* real = ::realpath(resolved.c_str(), nullptr);
        std::string target = real != nullptr ? real : resolved;
        std::free(real);
        return target;
    }
}

std::optional<std::filesystem::path> applicationSupportDirectory() {
    @autoreleasepool {
        NSURL* folder = [NSFileManager.defaultManager URLsForDirectory:NSApplicationSupportDirectory
                                                             inDomains:NSUserDomainMask]
                            .firstObject;
        const std::optional<std::string> path = pathBytes(folder.path);
        if (!path)
            return std::nullopt;
        return std::filesystem::path(*path);
    }
}

} // namespace tarnwell
