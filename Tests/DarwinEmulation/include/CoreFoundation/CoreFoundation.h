#pragma once

// As much of the framework's header as the macOS side of the platform uses.

#include <cstdint>

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using CFIndex = long;
using CFTypeRef = const void*;
using CFAllocatorRef = const void*;
struct __CFString;
using CFStringRef = const __CFString*;
using CFMutableStringRef = __CFString*;
using CFStringEncoding = std::uint32_t;
enum CFStringNormalizationForm : CFIndex { kCFStringNormalizationFormD = 0 };

struct CFRange {
    CFIndex location;
    CFIndex length;
};

inline constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;
inline constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    return {location, length};
}

extern "C" {
void CFRelease(CFTypeRef object);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean isExternal);
CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFStringRef text);
void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form);
CFIndex CFStringGetLength(CFStringRef text);
CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternal, UInt8* buffer, CFIndex size, CFIndex* used);
}
