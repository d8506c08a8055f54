#include "Tests/Support/RandomTree.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

namespace tarnwell::test {

namespace {

class Maker {
public:
    Maker(std::string root, std::uint64_t seed) : random_(seed), folders_{std::move(root)} {}

    void makeItem() {
        const std::string path = pick(folders_) + "/" + name();
        const auto kind = random_() % 100;
        if (kind < 25) {
            if (::mkdir(path.c_str(), 0755) == 0)
                folders_.push_back(path);
        } else if (kind < 35) {
            // A link's target matters to nobody: it is not followed.
            (void)!::symlink(pick(folders_).c_str(), path.c_str());
        } else if (kind < 45 && !files_.empty()) {
            if (::link(pick(files_).c_str(), path.c_str()) == 0)
                files_.push_back(path);
        } else if (kind < 47) {
            ::mkfifo(path.c_str(), 0644);
        } else {
            makeFile(path);
        }
    }

private:
    const std::string& pick(const std::vector<std::string>& paths) { return paths[random_() % paths.size()]; }

    std::string name() {
        static constexpr const char* extensions[] = {".txt", ".MP4", ".o", "", ".tar.gz", ".app", ".", ".x~"};
        std::string text(1 + random_() % 12, ' ');
        const bool isWild = random_() % 4 == 0;
        for (char& character : text) {
            do
                character = static_cast<char>(isWild ? random_() % 256 : 'a' + random_() % 26);
            while (character == '/' || character == '\0');
        }
        return text + extensions[random_() % 8];
    }

    void makeFile(const std::string& path) {
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (file < 0)
            return;
        const std::string bytes(random_() % 3 == 0 ? 0 : random_() % 20'000, 'x');
        (void)!::write(file, bytes.data(), bytes.size());
        if (random_() % 5 == 0)
            (void)!::ftruncate(file, static_cast<off_t>(random_() % 300'000));
        ::close(file);
        files_.push_back(path);
    }

    std::mt19937_64 random_;
    std::vector<std::string> folders_;
    std::vector<std::string> files_;
};

} // namespace

void makeRandomTree(const std::filesystem::path& folder, int itemCount, std::uint64_t seed) {
    Maker maker(folder.string(), seed);
    for (int item = 0; item < itemCount; ++item)
        maker.makeItem();
}

} // namespace tarnwell::test
