#include "Tests/Support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tarnwell::test {

TemporaryFolder::TemporaryFolder(const fs::path& parent) {
    std::string pattern =
        ((parent.empty() ? fs::temp_directory_path() : parent) / "tarnwell-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary folder at " + pattern);
    path_ = fs::canonical(pattern);
}

TemporaryFolder::~TemporaryFolder() {
    // The system's own tool copes with trees that are deeper than PATH_MAX.
    const std::string quoted = "'" + path_.string() + "'";
    const std::string command = "chmod -R u+rwX " + quoted + " 2>/dev/null; rm -rf " + quoted;
    if (std::system(command.c_str()) != 0)
        ADD_FAILURE() << "could not remove " << path_;
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
