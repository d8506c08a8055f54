#include "TarnwellCore/Platform/DesktopEntry.hpp"

#include <glib.h>

#include <memory>

namespace tarnwell {

namespace {

struct FreeKeys {
    void operator()(GKeyFile* keys) const { ::g_key_file_free(keys); }
};
struct FreeText {
    void operator()(char* text) const { ::g_free(text); }
};
struct FreeWords {
    void operator()(char** words) const { ::g_strfreev(words); }
};

constexpr const char* group = G_KEY_FILE_DESKTOP_GROUP;

std::string textAt(GKeyFile* keys, const char* key) {
    const std::unique_ptr<char, FreeText> text(::g_key_file_get_string(keys, group, key, nullptr));
    return text ? text.get() : "";
}

} // namespace

std::optional<DesktopEntry> readDesktopEntry(std::string_view text) {
    const std::unique_ptr<GKeyFile, FreeKeys> keys(::g_key_file_new());
    if (text.empty() ||
        ::g_key_file_load_from_data(keys.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ==
            FALSE ||
        textAt(keys.get(), G_KEY_FILE_DESKTOP_KEY_TYPE) != G_KEY_FILE_DESKTOP_TYPE_APPLICATION)
        return std::nullopt;
    DesktopEntry entry;
    const std::unique_ptr<char, FreeText> name(
        ::g_key_file_get_locale_string(keys.get(), group, G_KEY_FILE_DESKTOP_KEY_NAME, nullptr, nullptr));
    if (name)
        entry.name = name.get();
    int count = 0;
    char** split = nullptr;
    const std::string command = textAt(keys.get(), G_KEY_FILE_DESKTOP_KEY_EXEC);
    if (::g_shell_parse_argv(command.c_str(), &count, &split, nullptr) == FALSE)
        return entry;
    const std::unique_ptr<char*, FreeWords> words(split);
    for (int index = 0; index < count; ++index)
        entry.command.emplace_back(words.get()[index]);
    return entry;
}

} // namespace tarnwell
