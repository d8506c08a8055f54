#pragma once

// A real folder for one test, gone when the test ends.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace tarnwell::test {

class TemporaryFolder {
public:
    /// Made below the system's folder for such things, or below `parent`, for instance a file system mounted
    /// for the test.
    explicit TemporaryFolder(const std::filesystem::path& parent = {});
    /// Removes the folder with all it holds, also where permissions were taken away.
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Absolute, links resolved.
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

    /// Whether names may be any bytes here; some file systems take UTF-8 only.
    bool takesAnyName() const;

    /// A folder at a path relative to this one, with those above it.
    std::filesystem::path makeFolder(std::string_view relativePath) const;
    /// A file of `size` zero bytes that are really written.
    std::filesystem::path makeFile(std::string_view relativePath, std::uint64_t size = 0) const;
    /// A file with this text.
    std::filesystem::path writeFile(std::string_view relativePath, std::string_view text) const;

private:
    std::filesystem::path path_;
};

/// The bytes of a file; fails the test when it cannot be read.
std::string readFile(const std::filesystem::path& path);

} // namespace tarnwell::test
