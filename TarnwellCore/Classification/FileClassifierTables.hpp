#pragma once

// The tables behind FileClassifier, kept apart so that they can be read against a list. Extensions are
// lower case and without the dot. The order of the rows counts where a comment says so.

#include "TarnwellCore/Classification/FileCategory.hpp"
#include "TarnwellCore/Classification/NameTable.hpp"

namespace tarnwell::FileClassifier {

inline constexpr NameList videoExtensions("mp4", "m4v", "mov", "avi", "mkv", "webm", "flv", "wmv", "mpg",
                                          "mpeg", "m2v", "mts", "m2ts", "vob", "3gp", "3g2", "ogv", "rm",
                                          "rmvb", "asf", "divx", "f4v", "mxf", "braw", "r3d", "prproj",
                                          "fcpbundle", "imovielibrary", "dv");

inline constexpr NameList audioExtensions("mp3", "m4a", "aac", "wav", "aiff", "aif", "flac", "ogg", "oga",
                                          "opus", "wma", "alac", "ape", "mid", "midi", "caf", "amr", "dsf",
                                          "dff", "logicx", "band", "aup", "aupreset", "m4b", "m4r", "au",
                                          "voc");

inline constexpr NameList imageExtensions("jpg", "jpeg", "png", "gif", "bmp", "tif", "tiff", "heic", "heif",
                                          "webp", "svg", "ico", "icns", "psd", "psb", "ai", "eps", "raw",
                                          "cr2", "cr3", "nef", "arw", "dng", "orf", "rw2", "raf", "sr2",
                                          "pef", "avif", "jxl", "xcf", "sketch", "fig", "afphoto", "afdesign",
                                          "exr", "hdr");

inline constexpr NameList documentExtensions("pdf", "doc", "docx", "odt", "rtf", "txt", "md", "markdown",
                                             "pages", "key", "keynote", "numbers", "xls", "xlsx", "ods",
                                             "csv", "tsv", "ppt", "pptx", "odp", "epub", "mobi", "azw",
                                             "azw3", "djvu", "tex", "bib", "org", "one", "vsd", "xmind",
                                             "graffle", "textbundle", "webarchive", "oo3");

inline constexpr NameList codeExtensions("swift", "m", "mm", "h", "hpp", "hh", "c", "cc", "cpp", "cxx",
                                         "java", "kt", "kts", "js", "jsx", "ts", "tsx", "mjs", "cjs", "py",
                                         "pyc", "pyo", "rb", "go", "rs", "php", "pl", "pm", "sh", "bash",
                                         "zsh", "fish", "ps1", "bat", "cmd", "lua", "r", "jl", "scala", "clj",
                                         "cljs", "ex", "exs", "erl", "hrl", "hs", "ml", "fs", "fsx", "vb",
                                         "cs", "dart", "groovy", "gradle", "json", "yaml", "yml", "toml",
                                         "xml", "plist", "html", "htm", "css", "scss", "sass", "less", "vue",
                                         "svelte", "sql", "graphql", "gql", "proto", "cmake", "makefile",
                                         "mk", "ninja", "dockerfile", "tf", "tfvars", "ipynb", "asm", "s",
                                         "wasm", "zig", "nim", "v", "sol", "lock");

inline constexpr NameList archiveExtensions("zip", "tar", "gz", "tgz", "bz2", "tbz", "xz", "txz", "zst", "7z",
                                            "rar", "lz", "lzma", "lz4", "z", "cpio", "ar", "sit", "sitx",
                                            "hqx", "cab", "arj", "iso");

inline constexpr NameList diskImageExtensions("dmg", "sparseimage", "sparsebundle", "img", "cdr", "toast");

inline constexpr NameList installerExtensions("pkg", "mpkg", "deb", "rpm", "msi", "exe", "appx", "xip");

inline constexpr NameList databaseExtensions("db", "sqlite", "sqlite3", "sqlitedb", "realm", "mdb", "accdb",
                                             "dbf", "ldb", "leveldb", "wal", "shm", "sql-journal",
                                             "sqlite-wal", "sqlite-shm", "cdb", "bdb", "storedata");

inline constexpr NameList fontExtensions("ttf", "otf", "ttc", "woff", "woff2", "eot", "dfont", "fon", "pfb",
                                         "pfm", "suit");

inline constexpr NameList virtualMachineExtensions("vmdk", "vdi", "qcow2", "qcow", "vhd", "vhdx", "pvm",
                                                   "hds", "vbox", "vmwarevm", "utm", "raw", "ova", "ovf",
                                                   "bundle-vm");

inline constexpr NameList logExtensions("log", "logs", "crash", "diag", "ips", "panic", "hang", "spin",
                                        "tracev3", "asl");

inline constexpr NameList backupExtensions("backup", "bak", "old", "sparsebundle-backup", "mbdb", "mbdx");

inline constexpr NameList mailExtensions("emlx", "eml", "mbox", "msg", "partial.emlx", "pst", "ost", "olm");

/// Folders that the user sees as one document. Not part of `extensionCategories`.
inline constexpr NameList
    packageExtensions("app", "framework", "bundle", "plugin", "kext", "prefpane", "qlgenerator", "mdimporter",
                      "component", "vst", "vst3", "audiounit", "photoslibrary", "aplibrary", "musiclibrary",
                      "tvlibrary", "imovielibrary", "theater", "fcpbundle", "logicx", "band", "pages", "key",
                      "numbers", "rtfd", "sparsebundle", "xcappdata", "xcarchive", "xcodeproj", "xcworkspace",
                      "playground", "download", "pkg", "mpkg", "scptd", "workflow", "wdgt", "docset", "appex",
                      "vmwarevm", "pvm", "utm", "sketch", "graffle", "oo3");

/// File extensions in the order in which they are entered: a later row replaces what an earlier one said.
/// That decides "raw", which is a photograph before it is a disk of a virtual machine.
inline constexpr CategoryNames extensionCategories[] = {
    {FileCategory::code, codeExtensions},
    {FileCategory::documents, documentExtensions},
    {FileCategory::backups, backupExtensions},
    {FileCategory::mail, mailExtensions},
    {FileCategory::logs, logExtensions},
    {FileCategory::archives, archiveExtensions},
    {FileCategory::databases, databaseExtensions},
    {FileCategory::virtualMachines, virtualMachineExtensions},
    {FileCategory::packagesInstallers, installerExtensions},
    {FileCategory::diskImages, diskImageExtensions},
    {FileCategory::fonts, fontExtensions},
    {FileCategory::images, imageExtensions},
    {FileCategory::audio, audioExtensions},
    {FileCategory::video, videoExtensions},
};

/// File names without an extension; exact letter case.
inline constexpr CategoryNames bareNameCategories[] = {
    {FileCategory::code,
     {"makefile", "Makefile", "GNUmakefile", "Dockerfile", "dockerfile", "Rakefile", "Gemfile", "Podfile",
      "Brewfile", "justfile", "CMakeLists", "Cartfile", "Vagrantfile"}},
};

/// Folder names, exact letter case; each also fixes the category of what lies below it.
inline constexpr CategoryNames componentCategories[] = {
    {FileCategory::developer,
     {"node_modules", "DerivedData", "Pods",       "__pycache__", "site-packages", ".gradle",
      ".cargo",       ".rustup",     ".pub-cache", ".nuget",      ".m2",           ".stack",
      ".venv",        "venv",        ".dart_tool", ".terraform",  ".turbo",        ".nx",
      ".next",        ".bundle",     ".cocoapods", ".git",        "CoreSimulator", "Xcode"}},
    {FileCategory::caches, {"Caches", ".cache", "_cacache"}},
    {FileCategory::logs, {"Logs", "DiagnosticReports", "CrashReporter"}},
    {FileCategory::backups, {"MobileSync", "Backups.backupdb"}},
    {FileCategory::fonts, {"Fonts"}},
    {FileCategory::virtualMachines, {"VirtualBox VMs", "Parallels", "system-images", "avd"}},
};

/// Folder extensions, lower case. A music or TV library counts with the images like a photo library.
inline constexpr CategoryNames folderExtensionCategories[] = {
    {FileCategory::applications, {"app", "appex"}},
    {FileCategory::system,
     {"framework", "bundle", "plugin", "kext", "component", "prefpane", "qlgenerator", "mdimporter", "vst",
      "vst3", "audiounit", "docset"}},
    {FileCategory::images, {"photoslibrary", "aplibrary", "musiclibrary", "tvlibrary", "sketch"}},
    {FileCategory::video, {"imovielibrary", "fcpbundle", "theater"}},
    {FileCategory::audio, {"logicx", "band"}},
    {FileCategory::developer, {"xcodeproj", "xcworkspace", "playground", "xcarchive", "xcappdata"}},
    {FileCategory::virtualMachines, {"vmwarevm", "pvm", "utm"}},
    {FileCategory::diskImages, {"sparsebundle"}},
    {FileCategory::packagesInstallers, {"pkg", "mpkg"}},
    {FileCategory::documents, {"pages", "key", "numbers", "rtfd", "graffle", "oo3"}},
};

/// Folder names that count where the path is known as well, exact letter case. Not the same list as
/// `componentCategories`: here the path rules that follow cover part of what that one must name itself.
inline constexpr CategoryNames folderNameCategories[] = {
    {FileCategory::developer,
     {"node_modules", "DerivedData", "Pods", "__pycache__", ".gradle", ".cargo", ".rustup", ".pub-cache",
      ".nuget", "vendor", ".venv", "venv", "site-packages", ".dart_tool", ".terraform", ".turbo", ".next",
      "CoreSimulator", "Developer"}},
    {FileCategory::caches, {"Caches", ".cache", "_cacache"}},
    {FileCategory::logs, {"Logs", "DiagnosticReports"}},
    {FileCategory::fonts, {"Fonts"}},
    {FileCategory::backups, {"Backup", "Backups.backupdb"}},
    {FileCategory::mail, {"Mail"}},
};

inline constexpr NameList developerPathFragments("/node_modules/", "/DerivedData/", "/.git/objects",
                                                 "/.gradle/", "/.cargo/registry", "/go/pkg/mod/",
                                                 "/Library/Developer/", "/.pub-cache/", "/.nuget/",
                                                 "/.m2/repository", "/.stack/", "/.rustup/",
                                                 "/vendor/bundle/", "/.cocoapods/", "/Pods/", "/.venv/",
                                                 "/site-packages/", "/target/debug/", "/target/release/",
                                                 "/.next/cache/", "/.nx/cache/", "/.turbo/", "/__pycache__/",
                                                 "/.bundle/", "/.dart_tool/", "/build/intermediates/");

inline constexpr NameList virtualMachinePathFragments("/com.docker.docker/", "/Parallels/",
                                                      "/Virtual Machines.localized/", "/VirtualBox VMs/",
                                                      "/Library/Containers/com.utmapp", "/.docker/",
                                                      "/Library/Application Support/minikube",
                                                      "/system-images/", "/avd/");

inline constexpr NameList backupPathFragments("/MobileSync/Backup/", "/Backups.backupdb/",
                                              "/Time Machine Backups/", "/MobileDevice/");

inline constexpr NameList mailPathFragments("/Library/Mail/", "/com.apple.mail/",
                                            "/Library/Containers/com.apple.mail");

inline constexpr NameList logPathFragments("/Library/Logs/", "/var/log/", "/DiagnosticReports/",
                                           "/CrashReporter/");

inline constexpr NameList cachePathFragments("/Library/Caches/", "/.cache/", "/Caches/", "/.npm/_cacache",
                                             "/Library/Containers/", "/CacheStorage/", "/Code Cache/",
                                             "/GPUCache/", "/Service Worker/CacheStorage/");

/// What a path contains, the first row that matches winning: a build cache is the developer's before it
/// is a cache.
inline constexpr CategoryNames pathFragmentCategories[] = {
    {FileCategory::developer, developerPathFragments},
    {FileCategory::virtualMachines, virtualMachinePathFragments},
    {FileCategory::backups, backupPathFragments},
    {FileCategory::mail, mailPathFragments},
    {FileCategory::logs, logPathFragments},
    {FileCategory::caches, cachePathFragments},
};

/// Where files that no other table knows belong to the system.
inline constexpr NameList systemPathPrefixes("/System/", "/usr/", "/bin/", "/sbin/", "/private/var/db/",
                                             "/private/var/folders/", "/Library/Apple/", "/private/var/vm/",
                                             "/opt/");

} // namespace tarnwell::FileClassifier
