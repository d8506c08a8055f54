#include "TarnwellCore/Platform/MeasuredFile.hpp"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tarnwell {

std::expected<void, FileFault> MeasuredFileDetail::compared(const FileMeasurement& found,
                                                            const FileVersion& version) {
    if (found.kind != VnodeType::regular || !found.version.isSameFile(version))
        return std::unexpected(FileFault{FileFault::Kind::replaced});
    if (found.linkCount == 0)
        return std::unexpected(FileFault{FileFault::Kind::vanished});
    if (found.isDataless || found.version != version)
        return std::unexpected(FileFault{FileFault::Kind::changed});
    return {};
}

FileFault FileFault::of(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return {Kind::vanished, error};
    case ELOOP: // a link
    case ENXIO: // a socket, a device without a driver
        return {Kind::replaced, error};
    case ESTALE:
        return {Kind::changed, error};
    default:
        return {Kind::failed, error};
    }
}

std::string FileFault::description() const {
    switch (kind) {
    case Kind::vanished:
        return "It is not there any more.";
    case Kind::replaced:
        return "Something else has taken its place.";
    case Kind::changed:
        return "It has changed in the meantime.";
    case Kind::failed:
        break;
    }
    return std::generic_category().message(error);
}

std::expected<int, FileFault> openMeasuredFile(int folder, const char* name, const FileVersion& version) {
    const auto file = MeasuredFileDetail::openForReading(folder, name, version);
    if (!file)
        return file;
    if (const auto isWanted = requireVersion(*file, version); !isWanted) {
        ::close(*file);
        return std::unexpected(isWanted.error());
    }
    return file;
}

std::expected<void, FileFault> requireVersion(int file, const FileVersion& version) {
    const auto found = measureFile(file);
    if (!found)
        return std::unexpected(found.error());
    return MeasuredFileDetail::compared(*found, version);
}

} // namespace tarnwell
