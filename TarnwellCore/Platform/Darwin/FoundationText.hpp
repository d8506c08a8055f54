#pragma once

// Texts and paths on their way between this library and Foundation. For Objective-C++ only; whoever calls
// holds an autorelease pool.

#import <Foundation/Foundation.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace tarnwell {

/// Nil when the bytes are not UTF-8.
inline NSString* _Nullable stringFromUTF8(std::string_view bytes) {
    return [[NSString alloc] initWithBytes:bytes.data() length:bytes.size() encoding:NSUTF8StringEncoding];
}

/// Empty when there is no text.
inline std::string utf8FromString(NSString* _Nullable text) {
    const char* const bytes = text.UTF8String;
    return bytes != nullptr ? bytes : "";
}

/// What a failed call says to the user.
inline std::string descriptionOf(NSError* _Nullable error) {
    std::string text = utf8FromString(error.localizedDescription);
    return text.empty() ? "The operation could not be completed." : text;
}

/// A fresh URL of exactly these bytes: it carries no resource values from an earlier look.
inline NSURL* _Nonnull fileURL(const std::filesystem::path& path, bool isDirectory) {
    return [NSURL fileURLWithFileSystemRepresentation:path.c_str() isDirectory:isDirectory relativeToURL:nil];
}

} // namespace tarnwell
