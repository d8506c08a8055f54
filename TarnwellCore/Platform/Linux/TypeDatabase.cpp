// The type database is the desktop's: shared-mime-info. Its types have a media type,
// parents and the name of a generic icon, and no families such as "archive" or "source code". The rules below
// make those families of all three, so that an extension lands where a user of either system looks for it.

#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include "TarnwellCore/Platform/Linux/SharedMimeInfo.hpp"

#include <glib.h>

#include <algorithm>
#include <filesystem>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

namespace tarnwell {

namespace {

/// What the part before the "/" says by itself.
constexpr struct {
    std::string_view prefix;
    TypeConformance::Bit bit;
} mediaRules[] = {
    {"video/", TypeConformance::video},
    {"audio/", TypeConformance::audio},
    {"image/", TypeConformance::image},
    {"font/", TypeConformance::font},
};

/// Types whose descendants belong to a family, by an older or newer name.
constexpr struct {
    const char* ancestor;
    TypeConformance::Bit bit;
} ancestorRules[] = {
    {"application/x-raw-disk-image", TypeConformance::diskImage},
    {"application/x-cd-image", TypeConformance::diskImage},
    {"application/x-apple-diskimage", TypeConformance::diskImage},
    {"application/x-amiga-disk-format", TypeConformance::diskImage},
    {"application/x-compressed-iso", TypeConformance::diskImage},
    {"application/x-discjuggler-cd-image", TypeConformance::diskImage},
    {"application/x-hfe-floppy-image", TypeConformance::diskImage},
    {"application/x-qed-disk", TypeConformance::diskImage},
    {"application/x-qemu-disk", TypeConformance::diskImage},
    {"application/x-vdi-disk", TypeConformance::diskImage},
    {"application/x-vhd-disk", TypeConformance::diskImage},
    {"application/x-vhdx-disk", TypeConformance::diskImage},
    {"application/x-vmdk-disk", TypeConformance::diskImage},
    {"application/vnd.squashfs", TypeConformance::diskImage},
    {"application/vnd.ms-access", TypeConformance::database},
    {"application/vnd.oasis.opendocument.database", TypeConformance::database},
    {"application/vnd.sqlite3", TypeConformance::database},
    {"application/x-dbf", TypeConformance::database},
    {"application/x-gdbm", TypeConformance::database},
    {"application/x-kexiproject-sqlite2", TypeConformance::database},
    {"application/x-kexiproject-sqlite3", TypeConformance::database},
    {"application/x-sqlite2", TypeConformance::database},
    {"application/pdf", TypeConformance::pdf},
    {"text/plain", TypeConformance::text},
};

/// Programming languages among the texts; those that run as they stand are children of an executable.
constexpr const char* sourceTypes[] = {
    "application/x-gdscript",
    "application/x-godot-shader",
    "text/tcl",
    "text/vnd.wap.wmlscript",
    "text/x-adasrc",
    "text/x-chdr",
    "text/x-cobol",
    "text/x-common-lisp",
    "text/x-crystal",
    "text/x-csharp",
    "text/x-csrc",
    "text/x-dart",
    "text/x-dsl",
    "text/x-eiffel",
    "text/x-elixir",
    "text/x-emacs-lisp",
    "text/x-erlang",
    "text/x-fortran",
    "text/x-genie",
    "text/x-go",
    "text/x-haskell",
    "text/x-idl",
    "text/x-java",
    "text/x-kotlin",
    "text/x-literate-haskell",
    "text/x-makefile",
    "text/x-matlab",
    "text/x-meson",
    "text/x-moc",
    "text/x-modelica",
    "text/x-ocaml",
    "text/x-ocl",
    "text/x-pascal",
    "text/x-qml",
    "text/x-scala",
    "text/x-scheme",
    "text/x-svhdr",
    "text/x-svsrc",
    "text/x-twig",
    "text/x-verilog",
    "text/x-vhdl",
    "text/rust",
};

/// What the generic icon says. A word processor's file counts as text: no other family leads to documents.
constexpr struct {
    std::string_view icon;
    TypeConformance::Bit bit;
} iconRules[] = {
    {"video-x-generic", TypeConformance::video},
    {"audio-x-generic", TypeConformance::audio},
    {"image-x-generic", TypeConformance::image},
    {"font-x-generic", TypeConformance::font},
    {"package-x-generic", TypeConformance::archive},
    {"text-x-script", TypeConformance::script},
    {"text-html", TypeConformance::text},
    {"x-office-document", TypeConformance::text},
    {"x-office-presentation", TypeConformance::presentation},
    {"x-office-spreadsheet", TypeConformance::spreadsheet},
};

/// Types with an icon that would mislead: object files as documents, halves of downloads as archives.
constexpr const char* typesWithoutIcon[] = {"application/x-object", "application/x-partial-download"};

/// Containers whose descendants are archives, unless they have an icon of their own: office documents are
/// zip files too.
constexpr const char* archiveTypes[] = {"application/zip", "application/gzip", "application/x-tar",
                                        "application/x-cpio"};

/// A type with all that it is a kind of.
struct Kinds {
    const TypeRelations& relations;
    std::unordered_set<std::string> names;

    bool has(std::string_view type) const { return names.contains(std::string(relations.canonical(type))); }
    bool hasAnyOf(std::span<const char* const> types) const {
        return std::ranges::any_of(types, [this](const char* type) { return has(type); });
    }
};

TypeConformance conformanceOf(std::string_view type, const TypeRelations& relations) {
    const Kinds kinds{relations, relations.withAncestors(type)};
    TypeConformance conformance;
    for (const auto& rule : mediaRules)
        if (type.starts_with(rule.prefix))
            conformance.insert(rule.bit);
    for (const auto& rule : ancestorRules)
        if (kinds.has(rule.ancestor))
            conformance.insert(rule.bit);

    if (conformance.has(TypeConformance::text) && kinds.hasAnyOf(sourceTypes))
        conformance.insert(TypeConformance::sourceCode);
    if (kinds.has("application/x-executable"))
        conformance.insert(conformance.has(TypeConformance::text) ? TypeConformance::script
                                                                  : TypeConformance::application);

    const std::string icon = relations.genericIcon(type);
    if (!kinds.hasAnyOf(typesWithoutIcon))
        for (const auto& rule : iconRules)
            if (icon == rule.icon)
                conformance.insert(rule.bit);
    if (icon == "application-x-generic" && kinds.hasAnyOf(archiveTypes))
        conformance.insert(TypeConformance::archive);
    return conformance;
}

/// The folders that the desktop reads its database from.
const std::vector<std::filesystem::path>& databaseFolders() {
    static const auto& folders = *new std::vector<std::filesystem::path>([] {
        std::vector<std::filesystem::path> found{std::filesystem::path(g_get_user_data_dir()) / "mime"};
        for (const char* const* folder = g_get_system_data_dirs(); *folder != nullptr; ++folder)
            found.push_back(std::filesystem::path(*folder) / "mime");
        return found;
    }());
    return folders;
}

// What gets installed later is not known to a process that runs already. Never destroyed: threads may still
// classify while the process exits.
const TypePatterns& installedPatterns() {
    static const auto& patterns = *new TypePatterns(TypePatterns::read(databaseFolders()));
    return patterns;
}

const TypeRelations& installedRelations() {
    static const auto& relations = *new TypeRelations(TypeRelations::read(databaseFolders()));
    return relations;
}

} // namespace

bool mayHaveType(std::string_view fileExtension) {
    // Patterns match names: nothing in it may end one or make it a path.
    if (fileExtension.empty() ||
        fileExtension.find_first_of(std::string_view("\0/", 2)) != std::string_view::npos)
        return false;
    // The database takes "*.1" to "*.9" for manual pages; far more files end so for a version or a
    // generation.
    if (fileExtension.size() == 1 && fileExtension[0] >= '0' && fileExtension[0] <= '9')
        return false;
    return installedPatterns().mayKnow(fileExtension);
}

std::vector<TypeConformance> typeConformances(std::string_view fileExtension) {
    std::vector<TypeConformance> conformances;
    if (!mayHaveType(fileExtension))
        return conformances;
    for (const std::string_view type : installedPatterns().types(fileExtension))
        if (!type.starts_with("inode/")) // what only a folder is
            conformances.push_back(conformanceOf(type, installedRelations()));
    return conformances;
}

} // namespace tarnwell
