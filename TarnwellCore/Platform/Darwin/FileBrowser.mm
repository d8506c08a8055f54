#include "TarnwellCore/Platform/FileBrowser.hpp"

#import <AppKit/AppKit.h>

namespace tarnwell {

namespace {

NSURL* urlOf(const std::filesystem::path& item) {
    return [NSURL fileURLWithFileSystemRepresentation:item.c_str() isDirectory:NO relativeToURL:nil];
}

} // namespace

bool revealItem(const std::filesystem::path& item) {
    @autoreleasepool {
        NSURL* url = urlOf(item);
        if (url == nil || ![url checkResourceIsReachableAndReturnError:nil])
            return false;
        [NSWorkspace.sharedWorkspace activateFileViewerSelectingURLs:@[ url ]];
        return true;
    }
}

bool openItem(const std::filesystem::path& item) {
    @autoreleasepool {
        NSURL* url = urlOf(item);
        return url != nil && [NSWorkspace.sharedWorkspace openURL:url] == YES;
    }
}

} // namespace tarnwell
