// Strings of the system's foundation, by ICU.

#include "Tests/DarwinEmulation/include/CoreFoundation/CoreFoundation.h"

#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cstdlib>
#include <string>

struct __CFString {
    std::u16string text;
};

void CFRelease(CFTypeRef object) {
    delete static_cast<CFStringRef>(object);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
    UErrorCode error = U_ZERO_ERROR;
    std::u16string text(static_cast<std::size_t>(count), u'\0');
    std::int32_t length = 0;
    u_strFromUTF8(text.data(), static_cast<std::int32_t>(text.size()), &length,
                  reinterpret_cast<const char*>(bytes), static_cast<std::int32_t>(count), &error);
    if (encoding != kCFStringEncodingUTF8 || U_FAILURE(error) != 0)
        return nullptr;
    text.resize(static_cast<std::size_t>(length));
    return new __CFString{std::move(text)};
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef text) {
    return new __CFString(*text);
}

void CFStringNormalize(CFMutableStringRef text, CFStringNormalizationForm form) {
    UErrorCode error = U_ZERO_ERROR;
    const UNormalizer2* const decomposition = unorm2_getNFDInstance(&error);
    std::u16string decomposed(text->text.size() * 4 + 1, u'\0');
    const std::int32_t length =
        unorm2_normalize(decomposition, text->text.data(), static_cast<std::int32_t>(text->text.size()),
                         decomposed.data(), static_cast<std::int32_t>(decomposed.size()), &error);
    if (form != kCFStringNormalizationFormD || U_FAILURE(error) != 0)
        std::abort();
    decomposed.resize(static_cast<std::size_t>(length));
    text->text = std::move(decomposed);
}

CFIndex CFStringGetLength(CFStringRef text) {
    return static_cast<CFIndex>(text->text.size());
}

CFIndex CFStringGetBytes(CFStringRef text, CFRange range, CFStringEncoding encoding, UInt8, Boolean,
                         UInt8* buffer, CFIndex size, CFIndex* used) {
    UErrorCode error = U_ZERO_ERROR;
    std::string bytes(static_cast<std::size_t>(range.length) * 3, '\0');
    std::int32_t length = 0;
    u_strToUTF8(bytes.data(), static_cast<std::int32_t>(bytes.size()), &length,
                text->text.data() + range.location, static_cast<std::int32_t>(range.length), &error);
    if (encoding != kCFStringEncodingUTF8 || U_FAILURE(error) != 0 || (buffer != nullptr && size < length))
        std::abort();
    if (buffer != nullptr)
        std::copy_n(bytes.data(), length, reinterpret_cast<char*>(buffer));
    *used = length;
    return range.length;
}
