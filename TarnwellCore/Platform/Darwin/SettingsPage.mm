#include "TarnwellCore/Platform/SettingsPage.hpp"

#import <AppKit/AppKit.h>

namespace tarnwell {

bool openSettingsPage(const std::string& url) {
    @autoreleasepool {
        NSString* text = [NSString stringWithUTF8String:url.c_str()];
        NSURL* page = text != nil ? [NSURL URLWithString:text] : nil;
        return page != nil && [NSWorkspace.sharedWorkspace openURL:page] == YES;
    }
}

} // namespace tarnwell
