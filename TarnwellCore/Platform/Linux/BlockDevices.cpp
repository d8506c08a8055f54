#include "TarnwellCore/Platform/Linux/BlockDevices.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// More than any chain of volumes on volumes; keeps a strange tree from holding us.
constexpr std::size_t mostDevices = 64;

/// What a folder holds; nothing when it cannot be read or goes away while it is.
std::vector<fs::path> entries(const fs::path& folder) {
    std::vector<fs::path> paths;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        paths.push_back(entry->path());
    return paths;
}

bool readsOne(const fs::path& file) {
    std::ifstream stream(file);
    return stream.get() == '1';
}

/// Whether one of the path's names, each a step from the machine to the device, is such a bus or driver.
bool passesOutside(const fs::path& device) {
    for (const fs::path& step : device) {
        const std::string& name = step.native();
        if (name.starts_with("usb") || name.starts_with("fw") || name.starts_with("loop"))
            return true;
    }
    return false;
}

/// Undoes the "\x20" with which the device manager writes what a file name cannot hold well.
std::string unescaped(const std::string& name) {
    std::string text;
    for (std::size_t position = 0; position < name.size(); ++position) {
        if (name.compare(position, 2, "\\x") == 0 && position + 4 <= name.size() &&
            name.find_first_not_of("0123456789abcdefABCDEF", position + 2) >= position + 4) {
            text.push_back(static_cast<char>(std::stoul(name.substr(position + 2, 2), nullptr, 16)));
            position += 3;
        } else {
            text.push_back(name[position]);
        }
    }
    return text;
}

} // namespace

std::optional<BlockDeviceFacts> readBlockDevice(dev_t device, const fs::path& sysfs) {
    std::error_code error;
    const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
    fs::path folder = fs::canonical(sysfs / "dev" / "block" / number, error);
    if (error)
        return std::nullopt;

    BlockDeviceFacts facts;
    std::vector<fs::path> devices = {folder};
    for (std::size_t index = 0; index < devices.size() && index < mostDevices; ++index) {
        folder = devices[index];
        if (fs::exists(folder / "partition", error))
            folder = folder.parent_path();
        facts.isRemovable |= readsOne(folder / "removable");
        facts.isExternal |= passesOutside(folder);
        for (const fs::path& slave : entries(folder / "slaves")) {
            const fs::path below = fs::canonical(slave, error);
            if (!error)
                devices.push_back(below);
        }
    }
    return facts;
}

std::map<dev_t, std::string> deviceNames(const fs::path& folder) {
    std::map<dev_t, std::string> names;
    for (const fs::path& link : entries(folder)) {
        struct stat status = {};
        if (::stat(link.c_str(), &status) == 0 && S_ISBLK(status.st_mode))
            names.emplace(status.st_rdev, unescaped(link.filename().native()));
    }
    return names;
}

} // namespace tarnwell
