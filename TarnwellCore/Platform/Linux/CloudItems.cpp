#include "TarnwellCore/Platform/CloudItems.hpp"

#include "TarnwellCore/Platform/FileStatus.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace tarnwell {

std::expected<CloudItemStatus, std::string> readCloudItemStatus(const std::filesystem::path& item) {
    struct stat status;
    if (::lstat(item.c_str(), &status) != 0)
        return std::unexpected(std::generic_category().message(errno));
    CloudItemStatus result;
    result.isDirectory = S_ISDIR(status.st_mode);
    result.isRegularFile = S_ISREG(status.st_mode);
    result.allocatedSize = entryFromStatus(status).allocatedSize;
    return result;
}

CloudEvictionReply evictFromUbiquitousStorage(const std::filesystem::path&) {
    return {CloudEvictionReply::Kind::notManaged, {}};
}

void evictFromFileProvider(const std::filesystem::path&,
                           // Where there is such a service it is kept until that answers.
                           // NOLINTNEXTLINE(performance-unnecessary-value-param)
                           std::function<void(const CloudEvictionReply&)> completion) {
    completion({CloudEvictionReply::Kind::notManaged, {}});
}

} // namespace tarnwell
