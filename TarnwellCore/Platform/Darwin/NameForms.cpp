#include "TarnwellCore/Platform/NameForms.hpp"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <memory>
#include <type_traits>

namespace tarnwell {

namespace {

struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

template <class Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Release>;

} // namespace

bool mayHaveOtherForms(std::string_view text) noexcept {
    return std::ranges::any_of(text, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
}

std::string commonForm(std::string_view text) {
    const Owned<CFStringRef> original(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
    if (!original)
        return std::string(text);
    const Owned<CFMutableStringRef> decomposed(
        CFStringCreateMutableCopy(kCFAllocatorDefault, 0, original.get()));
    if (!decomposed)
        return std::string(text);
    CFStringNormalize(decomposed.get(), kCFStringNormalizationFormD);
    const CFRange whole = CFRangeMake(0, CFStringGetLength(decomposed.get()));
    CFIndex size = 0;
    CFStringGetBytes(decomposed.get(), whole, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(decomposed.get(), whole, kCFStringEncodingUTF8, 0, false,
                     reinterpret_cast<UInt8*>(bytes.data()), size, &size);
    return bytes;
}

} // namespace tarnwell
