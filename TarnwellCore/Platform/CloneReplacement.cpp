#include "TarnwellCore/Platform/CloneReplacement.hpp"

#include "TarnwellCore/Platform/ContentReading.hpp"
#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/UUID.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

namespace tarnwell {

namespace {

using Kind = SharingFault::Kind;

std::unexpected<SharingFault> failed(int error) {
    const Kind kind = error == ENOTSUP || error == EOPNOTSUPP ? Kind::unsupported
                      : error == EXDEV                        ? Kind::otherFileSystem
                                                              : Kind::failed;
    return std::unexpected(SharingFault{kind, error});
}

std::expected<void, SharingFault> compareContents(const SharingFile& first, const SharingFile& further,
                                                  const std::function<bool()>& isCancelled) {
    const std::unique_ptr<std::byte[]> others(new std::byte[ContentReader::pieceLength]);
    std::int64_t offset = 0;
    SharingFault fault{Kind::different};
    ContentReader reader;
    const int error = reader.read(first.file, first.version.size, [&](std::span<const std::byte> bytes) {
        if (isCancelled()) {
            fault.kind = Kind::cancelled;
            return false;
        }
        for (std::size_t filled = 0; filled < bytes.size();) {
            const ssize_t count = withoutInterruption([&] {
                return ::pread(further.file, others.get() + filled, bytes.size() - filled,
                               offset + static_cast<std::int64_t>(filled));
            });
            if (count < 0)
                fault = {Kind::failed, errno};
            if (count <= 0)
                return false;
            filled += static_cast<std::size_t>(count);
        }
        offset += static_cast<std::int64_t>(bytes.size());
        return std::memcmp(bytes.data(), others.get(), bytes.size()) == 0;
    });
    if (error == ECANCELED || error == ESTALE)
        return std::unexpected(fault);
    if (error != 0)
        return failed(error);
    return {};
}

/// Whether the name still leads to the file, which has no other and was not touched.
bool isUntouched(const SharingFile& file) {
    const auto named = measureFile(file.folder, file.name);
    return named && named->version == file.version && requireVersion(file.file, file.version);
}

/// As far as can be told of a file that got another name, which counts as a change of it.
bool hasSameContents(int file, const FileVersion& version) {
    const auto found = measureFile(file);
    return found && found->version.size == version.size && found->version.modified == version.modified;
}

} // namespace

std::expected<std::int64_t, SharingFault> replaceByClone(const SharingFile& first, const SharingFile& further,
                                                         std::int64_t bytesToFree, const CloneCalls& calls,
                                                         const std::function<bool()>& isCancelled) {
    const auto found = measureFile(further.file);
    if (found && found->linkCount > 1)
        return std::unexpected(SharingFault{Kind::hasOtherLinks});
    if (first.version.size != further.version.size || !isUntouched(first) || !isUntouched(further))
        return std::unexpected(SharingFault{Kind::different});
    if (const auto isEqual = compareContents(first, further, isCancelled); !isEqual)
        return std::unexpected(isEqual.error());

    const std::string temporaryName = std::string(temporaryNameStart) + UUID::random().text();
    const char* const temporary = temporaryName.c_str();
    if (calls.clone(first.file, further.folder, temporary) != 0)
        return failed(errno);
    const auto withdraw = [&](SharingFault fault) {
        calls.remove(further.folder, temporary);
        return std::unexpected(fault);
    };
    if (calls.copyMetadata(further.file, further.folder, temporary) != 0)
        return withdraw({Kind::failed, errno});
    if (!isUntouched(first) || !isUntouched(further))
        return withdraw({Kind::different});
    if (calls.exchange(further.folder, temporary, further.name) != 0)
        return withdraw(failed(errno).error());
    // From here on the temporary name is the old file's. Only what is known to be that is removed.
    const auto old = measureFile(further.folder, temporary);
    if (!old || !old->version.isSameFile(further.version) || old->linkCount > 1 ||
        !hasSameContents(further.file, further.version)) {
        if (calls.exchange(further.folder, temporary, further.name) != 0)
            return std::unexpected(SharingFault{Kind::failed, errno});
        return withdraw({Kind::different});
    }
    if (calls.remove(further.folder, temporary) != 0)
        return std::unexpected(SharingFault{Kind::failed, errno});
    return bytesToFree;
}

} // namespace tarnwell
