#include "TarnwellCore/Scanning/EntryClassifier.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Classification/UTTypeCache.hpp"

namespace tarnwell {

namespace {

FileCategory lookUp(std::string_view name, std::string_view extension) {
    if (const auto category = FileClassifier::classifyExtension(extension, name))
        return *category;
    if (extension.empty())
        return FileCategory::other;
    return FileClassifier::utTypeCache().category(extension).value_or(FileCategory::other);
}

} // namespace

ExtensionView EntryClassifier::extension(std::string_view name) {
    const std::string_view raw = PathUtil::rawFileExtension(name);
    if (raw.size() > longestExtension)
        return {};
    ExtensionView view;
    for (std::size_t index = 0; index < raw.size(); ++index) {
        const char character = raw[index];
        const bool isUpper = character >= 'A' && character <= 'Z';
        buffer_[index] = isUpper ? static_cast<char>(character + ('a' - 'A')) : character;
        view.packed |= static_cast<std::uint64_t>(static_cast<unsigned char>(buffer_[index]))
                       << (8 * (index % 8));
    }
    view.text = {buffer_.data(), raw.size()};
    if (raw.size() > sizeof view.packed)
        view.packed = 0;
    return view;
}

FileCategory EntryClassifier::file(std::string_view name, const ExtensionView& extension) {
    if (extension.packed == 0)
        return lookUp(name, extension.text);
    // The upper bits of the product depend on every byte of the extension.
    Remembered& remembered = memory_[(extension.packed * 0x9E3779B97F4A7C15u) >> 55];
    if (remembered.packed != extension.packed) {
        remembered.category = lookUp(name, extension.text);
        remembered.packed = extension.packed;
    }
    return remembered.category;
}

FileCategory EntryClassifier::folder(std::string_view name, const ExtensionView& extension) {
    return FileClassifier::classifyDirectoryByNameOrExtension(name, extension.text)
        .value_or(FileCategory::folder);
}

} // namespace tarnwell
