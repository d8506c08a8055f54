#include "TarnwellCore/Platform/Linux/FileSystemIdentity.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace tarnwell {

namespace {

/// As in the header of Linux 6.9, which is newer than most systems that this is built on.
struct KernelUUID {
    std::uint8_t length;
    std::array<std::uint8_t, 16> bytes;
};
constexpr auto getKernelUUID = _IOR(0x15, 0, KernelUUID);

std::string uuidText(const std::array<std::uint8_t, 16>& bytes) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text.push_back('-');
        text.push_back(digits[bytes[index] >> 4]);
        text.push_back(digits[bytes[index] & 15]);
    }
    return text;
}

} // namespace

FileSystemIdentity readIdentity(const std::string& path) {
    FileSystemIdentity identity;
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (folder < 0)
        return identity;
    std::array<char, FSLABEL_MAX + 1> label{};
    if (::ioctl(folder, FS_IOC_GETFSLABEL, label.data()) == 0)
        identity.label = label.data();
    KernelUUID uuid{};
    // All zeros is what file systems have that were never given one.
    if (::ioctl(folder, getKernelUUID, &uuid) == 0 && uuid.length == uuid.bytes.size() &&
        uuid.bytes != decltype(uuid.bytes){})
        identity.uuid = uuidText(uuid.bytes);
    ::close(folder);
    return identity;
}

} // namespace tarnwell
