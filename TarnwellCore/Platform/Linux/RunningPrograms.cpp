#include "TarnwellCore/Platform/RunningPrograms.hpp"

#include "TarnwellCore/Platform/EntryNames.hpp"
#include "TarnwellCore/Platform/PathNesting.hpp"
#include "TarnwellCore/Platform/WholeFile.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

constexpr std::size_t longestCommandLine = std::size_t{1} << 20;

/// The file that a process was started from. Of other users' processes only what they call themselves can be
/// read; of a script, it is the interpreter's first argument that is no option. The kernel hands an
/// interpreter what stands behind its path in the script's first line as one word.
std::optional<fs::path> fileIn(const fs::path& process, const fs::path& place) {
    std::error_code error;
    std::string file = fs::read_symlink(process / "exe", error).native();
    constexpr std::string_view removed = " (deleted)";
    if (file.ends_with(removed))
        file.resize(file.size() - removed.size());
    if (!error && isAtOrBelow(file, place.native()))
        return file;
    const WholeFile line = WholeFile::read(process / "cmdline", FileCalls::live(), longestCommandLine);
    std::string_view words = line.text;
    for (int word = 0; word < 2 && !words.empty();) {
        const std::string_view text = words.substr(0, words.find('\0'));
        words.remove_prefix(std::min(text.size() + 1, words.size()));
        if (word == 1 && text.starts_with('-'))
            continue;
        // What an editor was told to open is no program, as a rule.
        if (isAtOrBelow(text, place.native()) &&
            (word == 0 || ::access(std::string(text).c_str(), X_OK) == 0) && !fs::is_directory(text, error))
            return fs::path(text);
        ++word;
    }
    return std::nullopt;
}

} // namespace

std::vector<RunningProgram> programsRunningFrom(const fs::path& place) {
    std::vector<RunningProgram> programs;
    if (place.empty())
        return programs;
    for (const std::string& name : entryNames("/proc")) {
        std::int64_t process = 0;
        const auto read = std::from_chars(name.data(), name.data() + name.size(), process);
        if (read.ec != std::errc() || read.ptr != name.data() + name.size() || process == ::getpid())
            continue;
        if (auto file = fileIn(fs::path("/proc") / name, place))
            programs.push_back({process, *std::move(file)});
    }
    return programs;
}

} // namespace tarnwell
