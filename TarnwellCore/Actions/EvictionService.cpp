#include "TarnwellCore/Actions/EvictionService.hpp"

#include "TarnwellCore/Actions/ResumeOnce.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

/// Whether a URL says by itself that it means a folder.
bool hasDirectoryPath(const fs::path& url) {
    const fs::path name = url.filename();
    return url.native().ends_with('/') || name == "." || name == "..";
}

std::optional<EvictionRefusal> refusal(const CloudItemStatus& status) {
    using Kind = EvictionRefusal::Kind;
    if (status.isDirectory)
        return EvictionRefusal{Kind::directory};
    if (!status.isRegularFile)
        return EvictionRefusal{Kind::notRegularFile};
    if (status.isDataless)
        return EvictionRefusal{Kind::dataless};
    // An item of the platform's own drive always has a status; other services need not report one.
    const bool mayLackStatus = !status.isUbiquitous;
    const bool isCurrent = status.downloadingStatus
                               ? *status.downloadingStatus == UbiquitousDownloadingStatus::current
                               : mayLackStatus;
    if (!isCurrent)
        return EvictionRefusal{Kind::notCurrent};
    return std::nullopt;
}

EvictionOutcome evictOne(const EvictionService& service, const fs::path& url,
                         std::span<const SyncedRoots::PreparedRoot> roots) {
    using Kind = EvictionRefusal::Kind;
    if (hasDirectoryPath(url))
        return EvictionRefused{url, {Kind::directory}};
    const fs::path item = url.lexically_normal();
    if (SyncedRoots::root(item.native(), roots) == nullptr)
        return EvictionRefused{url, {Kind::outsideSyncedRoot}};
    try {
        const CloudItemStatus status = service.probe(item);
        if (auto reason = refusal(status))
            return EvictionRefused{url, *std::move(reason)};
        if (status.isUbiquitous)
            service.evictUbiquitousItem(item);
        else
            service.evictFileProviderItem(item);
        return EvictionEvicted{url, std::max<std::int64_t>(status.allocatedSize, 0)};
    } catch (const CloudEvictionError& error) {
        if (error.kind() == CloudEvictionError::Kind::notManagedByFileProvider)
            return EvictionRefused{url, {Kind::notCloudManaged, error.message()}};
        return EvictionFailed{url, error.what()};
    } catch (const std::exception& error) {
        return EvictionFailed{url, error.what()};
    } catch (...) {
        return EvictionFailed{url, "The download could not be removed."};
    }
}

void throwUnlessEvicted(const CloudEvictionReply& reply) {
    switch (reply.kind) {
    case CloudEvictionReply::Kind::evicted:
        return;
    case CloudEvictionReply::Kind::notManaged:
        throw CloudEvictionError::notManagedByFileProvider();
    case CloudEvictionReply::Kind::unavailable:
        throw CloudEvictionError::fileProviderUnavailable();
    case CloudEvictionReply::Kind::failed:
        throw std::runtime_error(reply.message);
    }
}

/// In a path with a NUL the platform would see another, shorter one.
void refuseNUL(const fs::path& item) {
    if (item.native().find('\0') != std::string::npos)
        throw std::runtime_error(std::generic_category().message(EINVAL));
}

CloudItemStatus liveProbe(const fs::path& item) {
    refuseNUL(item);
    const auto status = readCloudItemStatus(item);
    if (!status)
        throw std::runtime_error(status.error());
    return *status;
}

void liveEvictUbiquitous(const fs::path& item) {
    refuseNUL(item);
    throwUnlessEvicted(evictFromUbiquitousStorage(item));
}

void liveEvictFileProvider(const fs::path& item) {
    refuseNUL(item);
    struct Waiter {
        ResumeOnce once;
        std::promise<CloudEvictionReply> reply;
    };
    // Only the call-back owns the waiter: when the platform drops it uncalled, the promise breaks and the
    // wait ends.
    auto waiter = std::make_shared<Waiter>();
    std::future<CloudEvictionReply> reply = waiter->reply.get_future();
    evictFromFileProvider(item, [waiter = std::move(waiter)](const CloudEvictionReply& answer) {
        waiter->once([&] { waiter->reply.set_value(answer); });
    });
    try {
        throwUnlessEvicted(reply.get());
    } catch (const std::future_error&) {
        throw CloudEvictionError::fileProviderUnavailable();
    }
}

} // namespace

EvictionService EvictionService::live() {
    return {liveProbe, liveEvictUbiquitous, liveEvictFileProvider};
}

std::future<std::vector<EvictionOutcome>> EvictionService::evict(std::vector<fs::path> urls,
                                                                 std::vector<SyncedRoot> roots) const {
    return runInBackground([service = *this, urls = std::move(urls), roots = std::move(roots)] {
        const auto prepared = SyncedRoots::prepare(roots);
        std::vector<EvictionOutcome> outcomes;
        outcomes.reserve(urls.size());
        for (const fs::path& url : urls)
            outcomes.push_back(evictOne(service, url, prepared));
        return outcomes;
    });
}

} // namespace tarnwell
