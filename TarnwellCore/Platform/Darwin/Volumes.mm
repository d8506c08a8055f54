#include "TarnwellCore/Platform/Volumes.hpp"

#include "TarnwellCore/Platform/Darwin/FoundationText.hpp"
#include "TarnwellCore/Platform/LinkResolution.hpp"
#include "TarnwellCore/Platform/TimeLimitedCalls.hpp"

#import <Foundation/Foundation.h>
#include <sys/mount.h>
#include <sys/param.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

namespace tarnwell {

namespace {

using Values = NSDictionary<NSURLResourceKey, id>;

NSArray<NSURLResourceKey>* _Nonnull volumeKeys() {
    return @[
        NSURLVolumeNameKey, NSURLVolumeTotalCapacityKey, NSURLVolumeAvailableCapacityKey,
        NSURLVolumeAvailableCapacityForImportantUsageKey,
        NSURLVolumeAvailableCapacityForOpportunisticUsageKey, NSURLVolumeIsInternalKey,
        NSURLVolumeIsRemovableKey, NSURLVolumeIsEjectableKey, NSURLVolumeIsRootFileSystemKey,
        NSURLVolumeIsReadOnlyKey, NSURLVolumeIsLocalKey, NSURLVolumeIsBrowsableKey, NSURLVolumeUUIDStringKey
    ];
}

/// The path with its links followed; null when there is no such item. Foundation's own resolving strips
/// "/private", under which the system mounts volumes too: one volume would have two paths.
NSURL* _Nullable resolvedURLOf(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? fileURL(real.get(), false) : nil;
}

bool isVolume(NSURL* _Nullable url) {
    NSNumber* value = nil;
    return [url getResourceValue:&value forKey:NSURLIsVolumeKey error:nil] && value.boolValue;
}

/// The mount point of the volume that holds the item, written as in the list of volumes.
NSURL* _Nullable volumeOf(NSURL* _Nullable url) {
    NSURL* volume = nil;
    return [url getResourceValue:&volume forKey:NSURLVolumeURLKey error:nil] ? volume : nil;
}

/// Without the trailing "/" of a folder's URL.
std::string pathOf(NSURL* _Nonnull url) {
    std::string path = url.fileSystemRepresentation;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::optional<std::string> text(Values* _Nonnull values, NSURLResourceKey _Nonnull key) {
    NSString* value = values[key];
    if (value == nil || value.UTF8String == nullptr)
        return std::nullopt;
    return value.UTF8String;
}

std::optional<std::int64_t> integer(Values* _Nonnull values, NSURLResourceKey _Nonnull key) {
    NSNumber* value = values[key];
    if (value == nil)
        return std::nullopt;
    return value.longLongValue;
}

std::optional<bool> boolean(Values* _Nonnull values, NSURLResourceKey _Nonnull key) {
    NSNumber* value = values[key];
    if (value == nil)
        return std::nullopt;
    return value.boolValue;
}

/// Nothing when the volume has gone since it was listed.
std::optional<VolumeProperties> readProperties(NSURL* _Nonnull url) {
    Values* values = [url resourceValuesForKeys:volumeKeys() error:nil];
    if (values == nil)
        return std::nullopt;
    VolumeProperties properties;
    properties.path = pathOf(url);
    properties.name = text(values, NSURLVolumeNameKey);
    properties.totalCapacity = integer(values, NSURLVolumeTotalCapacityKey);
    properties.availableCapacity = integer(values, NSURLVolumeAvailableCapacityKey);
    properties.availableForImportantUsage = integer(values, NSURLVolumeAvailableCapacityForImportantUsageKey);
    properties.availableForOpportunisticUsage =
        integer(values, NSURLVolumeAvailableCapacityForOpportunisticUsageKey);
    properties.isInternal = boolean(values, NSURLVolumeIsInternalKey);
    properties.isRemovable = boolean(values, NSURLVolumeIsRemovableKey);
    properties.isEjectable = boolean(values, NSURLVolumeIsEjectableKey);
    properties.isRootFileSystem = boolean(values, NSURLVolumeIsRootFileSystemKey);
    properties.isReadOnly = boolean(values, NSURLVolumeIsReadOnlyKey);
    properties.isLocal = boolean(values, NSURLVolumeIsLocalKey);
    properties.isBrowsable = boolean(values, NSURLVolumeIsBrowsableKey);
    properties.uuid = text(values, NSURLVolumeUUIDStringKey);
    return properties;
}

std::int64_t byteCount(std::uint64_t blocks, std::uint64_t blockSize) {
    std::uint64_t bytes = 0;
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    if (__builtin_mul_overflow(blocks, blockSize, &bytes))
        bytes = largest;
    return static_cast<std::int64_t>(std::min(bytes, largest));
}

} // namespace

std::vector<VolumeProperties> mountedVolumeProperties(bool includeHidden) {
    @autoreleasepool {
        const NSVolumeEnumerationOptions options = includeHidden ? 0 : NSVolumeEnumerationSkipHiddenVolumes;
        NSArray<NSURL*>* urls =
            [[[NSFileManager alloc] init] mountedVolumeURLsIncludingResourceValuesForKeys:volumeKeys()
                                                                                  options:options];
        std::vector<VolumeProperties> volumes;
        for (NSURL* url in urls) {
            if (auto properties = readProperties(url))
                volumes.push_back(std::move(*properties));
        }
        return volumes;
    }
}

std::optional<VolumeProperties> volumeProperties(const std::string& path) {
    @autoreleasepool {
        NSURL* url = fileURL(path, false);
        if (!isVolume(url)) {
            url = resolvedURLOf(path);
            if (!isVolume(url))
                return std::nullopt;
        }
        NSURL* volume = volumeOf(url);
        return readProperties(volume != nil ? volume : url);
    }
}

std::optional<std::string> mountPointContaining(const std::string& path) {
    @autoreleasepool {
        NSURL* volume = volumeOf(resolvedURLOf(path));
        if (volume == nil)
            return std::nullopt;
        return pathOf(volume);
    }
}

std::optional<FileSystemStatistics> fileSystemStatistics(const std::string& path) {
    struct statfs record;
    if (::statfs(path.c_str(), &record) != 0)
        return std::nullopt;
    return FileSystemStatistics{byteCount(record.f_blocks, record.f_bsize),
                                byteCount(record.f_bavail, record.f_bsize), record.f_fstypename,
                                (record.f_flags & MNT_RDONLY) != 0};
}

bool mayNeverAnswer(const std::string& path) {
    std::vector<struct statfs> mounts;
    for (int count = ::getfsstat(nullptr, 0, MNT_NOWAIT); count > static_cast<int>(mounts.size());) {
        mounts.resize(static_cast<std::size_t>(count) + 8);
        const auto bytes = static_cast<int>(mounts.size() * sizeof(struct statfs));
        count = ::getfsstat(mounts.data(), bytes, MNT_NOWAIT);
        if (count < static_cast<int>(mounts.size())) {
            mounts.resize(static_cast<std::size_t>(std::max(count, 0)));
            break;
        }
    }
    // File systems that a process serves call themselves local.
    const auto mayHang = [](const struct statfs& mount) {
        return (mount.f_flags & MNT_LOCAL) == 0 ||
               std::string_view(mount.f_fstypename).find("fuse") != std::string_view::npos;
    };
    const auto isHeldByOne = [&](std::string_view item) {
        const struct statfs* innermost = nullptr;
        for (const struct statfs& mount : mounts) {
            const std::string_view point = mount.f_mntonname;
            const bool holds = point == "/" || (item.starts_with(point) &&
                                                (item.size() == point.size() || item[point.size()] == '/'));
            if (holds &&
                (innermost == nullptr || point.size() > std::string_view(innermost->f_mntonname).size()))
                innermost = &mount;
        }
        return innermost != nullptr && mayHang(*innermost);
    };
    if (std::ranges::none_of(mounts, mayHang))
        return false;
    if (isHeldByOne(path))
        return true;
    // A link may lead there all the same. A disk that has to start first takes longer than a server.
    constexpr auto limit = 10 * volumeAnswerLimit;
    static auto& limitedCalls = *new TimeLimitedCalls<std::string>; // for threads that outlive statics
    const auto target =
        limitedCalls.get(path, limit, [path] { return std::optional(resolveEveryLink(path)); });
    return !target || isHeldByOne(*target);
}

/// Snapshots hold blocks that no folder shows, and who may list them is another question.
bool holdsWholeFileSystem(const std::string&) {
    return false;
}

} // namespace tarnwell
