#include "TarnwellCore/Platform/WholeFile.hpp"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace tarnwell {

namespace {

WholeFile unavailable(int error) {
    return {.outcome = WholeFile::Outcome::unavailable, .error = error};
}

/// A descriptor that is closed with its owner.
class OpenFile {
public:
    OpenFile(const std::filesystem::path& path, const FileCalls& calls)
        : calls_(calls),
          // Opening must not wait, whatever has come to lie there.
          descriptor_(withoutInterruption(
              [&] { return calls.open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0); })) {}
    ~OpenFile() {
        if (descriptor_ != -1)
            calls_.close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor() const { return descriptor_; }

private:
    const FileCalls& calls_;
    const int descriptor_;
};

} // namespace

WholeFile WholeFile::read(const std::filesystem::path& path, const FileCalls& calls, std::size_t longest) {
    WholeFile file;
    // To open a device may do something.
    if (::stat(path.c_str(), &file.status) == 0 && !S_ISREG(file.status.st_mode))
        return unavailable(S_ISDIR(file.status.st_mode) ? EISDIR : EINVAL);
    const OpenFile open(path, calls);
    if (open.descriptor() == -1) {
        if (errno == ENOENT)
            return {.outcome = Outcome::missing};
        if (errno == EACCES || errno == EPERM)
            return {.outcome = Outcome::forbidden};
        return unavailable(errno);
    }
    if (::fstat(open.descriptor(), &file.status) != 0)
        return unavailable(errno);
    if (!S_ISREG(file.status.st_mode))
        return unavailable(EINVAL);
    std::array<char, 16'384> buffer;
    for (;;) {
        const ssize_t count =
            withoutInterruption([&] { return calls.read(open.descriptor(), buffer.data(), buffer.size()); });
        if (count == -1)
            return unavailable(errno);
        if (count == 0)
            break;
        if (file.text.size() + static_cast<std::size_t>(count) > longest)
            return unavailable(EFBIG);
        file.text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    file.outcome = Outcome::read;
    return file;
}

} // namespace tarnwell
