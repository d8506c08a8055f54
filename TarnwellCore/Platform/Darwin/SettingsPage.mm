#include "TarnwellCore/Platform/SettingsPage.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"

#import <AppKit/AppKit.h>

namespace tarnwell {

/// Handed over to another process before it returns: needs no run loop, and no main thread.
bool openSettingsPage(const std::string& url) {
    @autoreleasepool {
        NSString* text = stringFromUTF8(url);
        NSURL* page = text != nil ? [NSURL URLWithString:text] : nil;
        return page != nil && [NSWorkspace.sharedWorkspace openURL:page] == YES;
    }
}

} // namespace tarnwell
