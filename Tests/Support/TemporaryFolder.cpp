#include "Tests/Support/TemporaryFolder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tarnwell::test {

namespace {

/// A folder whose path holds no link, however it is resolved: macOS keeps its temporary folders below
/// /private, which Foundation leaves out of paths.
fs::path usualParent() {
    fs::path folder = fs::canonical(fs::temp_directory_path());
    return folder.native().starts_with("/private/") ? fs::path("/Users/Shared") : folder;
}

/// Removes what is no folder from an open folder and names a folder that is left; empty when none is.
std::string removeFiles(int folder) {
    std::string inner;
    const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (DIR* stream = own >= 0 ? ::fdopendir(own) : nullptr) {
        while (const dirent* entry = ::readdir(stream)) {
            const std::string name = entry->d_name;
            struct stat status = {};
            if (name == "." || name == ".." ||
                ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            if (S_ISDIR(status.st_mode) && ::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0)
                inner = name;
            else
                ::unlinkat(folder, name.c_str(), 0);
        }
        ::closedir(stream);
    }
    return inner;
}

/// Removes all that is in a folder, at any depth: it goes down and up one folder at a time. Some systems' own
/// tools give up beyond 64 KiB of path.
void removeContents(const fs::path& top) {
    ::chmod(top.c_str(), 0700);
    int folder = ::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::vector<std::string> names; // of the folders from `top` down to `folder`
    while (folder >= 0) {
        const std::string inner = removeFiles(folder);
        if (inner.empty() && names.empty())
            break;
        if (!inner.empty())
            ::fchmodat(folder, inner.c_str(), 0700, 0);
        const int next =
            ::openat(folder, inner.empty() ? ".." : inner.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = next;
        if (!inner.empty()) {
            names.push_back(inner);
        } else if (::unlinkat(folder, names.back().c_str(), AT_REMOVEDIR) == 0) {
            names.pop_back();
        } else {
            break;
        }
    }
    ::close(folder);
}

} // namespace

TemporaryFolder::TemporaryFolder(const fs::path& parent) {
    std::string pattern = ((parent.empty() ? usualParent() : parent) / "tarnwell-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary folder at " + pattern);
    path_ = fs::canonical(pattern);
}

TemporaryFolder::~TemporaryFolder() {
    removeContents(path_);
    if (::rmdir(path_.c_str()) != 0)
        ADD_FAILURE() << "could not remove " << path_;
}

bool TemporaryFolder::takesAnyName() const {
    const fs::path probe = path_ / "\xFF";
    const int file = ::open(probe.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    if (file < 0)
        return false;
    ::close(file);
    ::unlink(probe.c_str());
    return true;
}

fs::path TemporaryFolder::makeFolder(std::string_view relativePath) const {
    const fs::path folder = path_ / relativePath;
    fs::create_directories(folder);
    return folder;
}

fs::path TemporaryFolder::makeFile(std::string_view relativePath, std::uint64_t size) const {
    return writeFile(relativePath, std::string(size, '\0'));
}

fs::path TemporaryFolder::writeFile(std::string_view relativePath, std::string_view text) const {
    const fs::path file = path_ / relativePath;
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!stream.flush())
        throw std::runtime_error("could not write " + file.string());
    return file;
}

std::string readFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        ADD_FAILURE() << "could not read " << path;
        return {};
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace tarnwell::test
