// The type database is the desktop's: shared-mime-info, read through GIO. Its types have a media type,
// parents and the name of a generic icon, and no families such as "archive" or "source code". The rules below
// make those families of all three, so that an extension lands where a user of either system looks for it.

#include "TarnwellCore/Platform/TypeDatabase.hpp"

#include "TarnwellCore/Platform/Linux/TypePatterns.hpp"

#include <gio/gio.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarnwell {

namespace {

struct Free {
    void operator()(char* text) const { g_free(text); }
};
using GText = std::unique_ptr<char, Free>;

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

/// Types whose descendants belong to a family. GIO follows aliases: a type may bear an older or newer name.
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

bool isA(const char* type, const char* ancestor) {
    return g_content_type_is_a(type, ancestor) != FALSE;
}

template <std::size_t count>
bool isAnyOf(const char* type, const char* const (&ancestors)[count]) {
    for (const char* ancestor : ancestors)
        if (isA(type, ancestor))
            return true;
    return false;
}

TypeConformance conformanceOf(const char* type) {
    TypeConformance conformance;
    for (const auto& rule : mediaRules)
        if (std::string_view(type).starts_with(rule.prefix))
            conformance.insert(rule.bit);
    for (const auto& rule : ancestorRules)
        if (isA(type, rule.ancestor))
            conformance.insert(rule.bit);

    if (conformance.has(TypeConformance::text) && isAnyOf(type, sourceTypes))
        conformance.insert(TypeConformance::sourceCode);
    if (isA(type, "application/x-executable"))
        conformance.insert(conformance.has(TypeConformance::text) ? TypeConformance::script
                                                                  : TypeConformance::application);

    const GText iconText(g_content_type_get_generic_icon_name(type));
    const std::string_view icon = iconText ? iconText.get() : "";
    if (!isAnyOf(type, typesWithoutIcon))
        for (const auto& rule : iconRules)
            if (icon == rule.icon)
                conformance.insert(rule.bit);
    if (icon == "application-x-generic" && isAnyOf(type, archiveTypes))
        conformance.insert(TypeConformance::archive);
    return conformance;
}

/// Those of the folders that GIO reads its database from.
TypePatterns installedPatterns() {
    std::vector<std::filesystem::path> folders{std::filesystem::path(g_get_user_data_dir()) / "mime"};
    for (const char* const* folder = g_get_system_data_dirs(); *folder != nullptr; ++folder)
        folders.push_back(std::filesystem::path(*folder) / "mime");
    return TypePatterns::read(folders);
}

} // namespace

bool mayHaveType(std::string_view fileExtension) {
    // GIO takes a file name: nothing in it may end it or make it a path.
    if (fileExtension.empty() ||
        fileExtension.find_first_of(std::string_view("\0/", 2)) != std::string_view::npos)
        return false;
    // The database takes "*.1" to "*.9" for manual pages; far more files end so for a version or a
    // generation.
    if (fileExtension.size() == 1 && fileExtension[0] >= '0' && fileExtension[0] <= '9')
        return false;
    // What gets installed later is not known to a process that runs already.
    static const TypePatterns patterns = installedPatterns();
    return patterns.mayKnow(fileExtension);
}

std::optional<TypeConformance> typeConformance(std::string_view fileExtension) {
    if (!mayHaveType(fileExtension))
        return std::nullopt;
    const std::string name = "x." + std::string(fileExtension);

    // GIO guards its database by one lock, which it takes for every question below and which a thread
    // sanitizer cannot see. Taken once around all of them, this one spares the threads that contention.
    static std::mutex database;
    const std::lock_guard guard(database);
    gboolean uncertain = TRUE;
    const GText type(g_content_type_guess(name.c_str(), nullptr, 0, &uncertain));
    if (!type || uncertain || isA(type.get(), "inode/directory"))
        return std::nullopt;
    return conformanceOf(type.get());
}

} // namespace tarnwell
