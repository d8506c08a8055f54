#include "TarnwellCore/Classification/FileCategoryMemo.hpp"

#include "TarnwellCore/Classification/FileClassifier.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Classification/UTTypeCache.hpp"
#include "TarnwellCore/Platform/TypeDatabase.hpp"

namespace tarnwell {

FileCategory FileCategoryMemo::classify(std::string_view name) {
    char buffer[PathUtil::extensionBufferSize];
    const std::string_view ext = PathUtil::lowerCaseExtension(name, buffer);
    if (const auto category = FileClassifier::classifyExtension(ext, name))
        return *category;
    if (!mayHaveType(ext)) // needs no place in the cache that all workers share
        return FileCategory::other;
    return FileClassifier::utTypeCache().category(ext).value_or(FileCategory::other);
}

} // namespace tarnwell
