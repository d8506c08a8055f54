#include "TarnwellCore/Platform/UserPaths.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"
#include "TarnwellCore/Platform/LinkResolution.hpp"

#import <Foundation/Foundation.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <vector>

namespace tarnwell {

namespace {

/// Nil when the bytes are no text: Foundation holds no such file names.
NSString* _Nullable pathString(std::string_view path) {
    if (stringFromUTF8(path) == nil)
        return nil;
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
    // Foundation rewrites what it is given: it gets the first component only.
    const std::size_t end = std::min(path.find('/'), path.size());
    @autoreleasepool {
        std::string expanded = pathBytes(pathString(path.substr(0, end)).stringByExpandingTildeInPath)
                                   .value_or(std::string(path));
        if (expanded.starts_with('~'))
            return std::string(path);
        if (expanded == "/" && end < path.size())
            expanded.clear();
        expanded += path.substr(end);
        return expanded;
    }
}

std::string resolveLinks(const std::filesystem::path& path) {
    @autoreleasepool {
        NSString* text = path.native().size() < PATH_MAX ? pathString(path.native()) : nil;
        NSURL* url = text.length > 0 ? [NSURL fileURLWithPath:text] : nil;
        url = url.URLByStandardizingPath.URLByResolvingSymlinksInPath;
        const std::optional<std::string> resolved = pathBytes(url.path);
        if (!resolved)
            return resolveEveryLink(path.native());
        // Foundation strips "/private" from what it resolves, which turns /private/tmp back into a link.
        struct stat status = {};
        const bool isLink = ::lstat(resolved->c_str(), &status) == 0 && S_ISLNK(status.st_mode);
        return isLink ? resolveEveryLink(*resolved) : *resolved;
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
