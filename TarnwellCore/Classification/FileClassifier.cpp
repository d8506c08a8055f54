#include "TarnwellCore/Classification/FileClassifier.hpp"

#include "TarnwellCore/Classification/FileClassifierTables.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Classification/UTTypeCache.hpp"
#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include <algorithm>

namespace tarnwell::FileClassifier {

namespace {

constexpr NameTable<1024> fileExtensions(extensionCategories);
constexpr NameTable<64> bareNames(bareNameCategories);
constexpr NameTable<128> components(componentCategories);
constexpr NameTable<128> folderExtensions(folderExtensionCategories);
constexpr NameTable<128> folderNames(folderNameCategories);

constexpr CategoryNames packageRows[] = {{FileCategory::folder, packageExtensions}};
constexpr NameTable<128> packages(packageRows);

std::optional<FileCategory> classifyByPath(std::string_view path) {
    for (const auto& [category, fragments] : pathFragmentCategories)
        for (const std::string_view fragment : fragments)
            if (path.find(fragment) != std::string_view::npos)
                return category;
    return std::nullopt;
}

FileCategory classifyDirectory(std::string_view name, std::string_view ext,
                               std::optional<std::string_view> path) {
    if (const auto category = folderExtensions.find(ext))
        return *category;
    if (const auto category = folderNames.find(name))
        return *category;
    if (const auto category = path ? classifyByPath(*path) : std::nullopt)
        return *category;
    return FileCategory::folder;
}

FileCategory classifyFile(std::string_view name, std::string_view ext, std::optional<std::string_view> path) {
    if (const auto category = path ? classifyByPath(*path) : std::nullopt)
        return *category;
    if (const auto category = classifyExtension(ext, name))
        return *category;
    const auto startsPath = [&](std::string_view prefix) { return path->starts_with(prefix); };
    if (path && std::ranges::any_of(systemPathPrefixes, startsPath))
        return FileCategory::system;
    return classifyByUTType(ext).value_or(FileCategory::other);
}

} // namespace

FileCategory classify(const std::filesystem::path& url, bool isDirectory) {
    const std::string_view path = PathUtil::withoutTrailingSlashes(url.native());
    return classify(PathUtil::lastComponent(path), path, isDirectory);
}

FileCategory classify(std::string_view name, std::optional<std::string_view> path, bool isDirectory) {
    char buffer[PathUtil::extensionBufferSize];
    const std::string_view ext = PathUtil::lowerCaseExtension(name, buffer);
    return isDirectory ? classifyDirectory(name, ext, path) : classifyFile(name, ext, path);
}

std::optional<FileCategory> classifyExtension(std::string_view ext, std::string_view name) {
    return ext.empty() ? bareNames.find(name) : fileExtensions.find(ext);
}

std::optional<FileCategory> classifyDirectoryByNameOrExtension(std::string_view name, std::string_view ext) {
    const auto category = folderExtensions.find(ext);
    return category ? category : components.find(name);
}

std::optional<FileCategory> componentCategory(std::string_view name) {
    return components.find(name);
}

bool isPackage(std::string_view name) {
    char buffer[PathUtil::extensionBufferSize];
    return isPackageExtension(PathUtil::lowerCaseExtension(name, buffer));
}

bool isPackageExtension(std::string_view ext) {
    return packages.find(ext).has_value();
}

std::optional<FileCategory> classifyByUTType(std::string_view ext) {
    if (ext.empty())
        return std::nullopt;
    std::optional<FileCategory> category;
    bool isFirst = true;
    for (const TypeConformance conformance : typeConformances(ext)) {
        const auto each = categoryOfType(conformance);
        if (!isFirst && each != category)
            return std::nullopt;
        category = each;
        isFirst = false;
    }
    return category;
}

std::optional<FileCategory> categoryOfType(TypeConformance conformance) {
    static constexpr struct {
        TypeConformance::Bit bit;
        FileCategory category;
    } order[] = {
        {TypeConformance::movie, FileCategory::video},
        {TypeConformance::video, FileCategory::video},
        {TypeConformance::audio, FileCategory::audio},
        {TypeConformance::image, FileCategory::images},
        {TypeConformance::font, FileCategory::fonts},
        {TypeConformance::diskImage, FileCategory::diskImages},
        {TypeConformance::archive, FileCategory::archives},
        {TypeConformance::sourceCode, FileCategory::code},
        {TypeConformance::script, FileCategory::code},
        {TypeConformance::application, FileCategory::applications},
        {TypeConformance::database, FileCategory::databases},
        {TypeConformance::spreadsheet, FileCategory::documents},
        {TypeConformance::presentation, FileCategory::documents},
        {TypeConformance::text, FileCategory::documents},
        {TypeConformance::pdf, FileCategory::documents},
    };
    for (const auto& [bit, category] : order)
        if (conformance.has(bit))
            return category;
    return std::nullopt;
}

UTTypeCache& utTypeCache() {
    // Never destroyed: threads may still classify while the process exits.
    static UTTypeCache& cache = *new UTTypeCache;
    return cache;
}

} // namespace tarnwell::FileClassifier
