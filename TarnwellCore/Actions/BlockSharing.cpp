#include "TarnwellCore/Actions/BlockSharing.hpp"

#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/NoFetching.hpp"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tarnwell {

namespace {

/// A file of a request, open, with the folder that it is in.
class OpenItem {
public:
    explicit OpenItem(const SharingRequest::Item& item) : version_(item.version) {
        // Of a path with one "/" only, that would be the parent's end and its beginning.
        const bool isAtTop = item.path.rfind('/') == 0;
        folder_ = openParentOfLongPath(isAtTop ? "/" + item.path : item.path, name_);
        if (folder_ < 0)
            fault_ = FileFault::of(errno);
        else if (const auto file = openMeasuredFile(folder_, name_.c_str(), version_))
            file_ = *file;
        else
            fault_ = file.error();
    }
    ~OpenItem() {
        if (file_ >= 0)
            ::close(file_);
        if (folder_ >= 0)
            ::close(folder_);
    }
    OpenItem(const OpenItem&) = delete;
    OpenItem& operator=(const OpenItem&) = delete;

    bool isOpen() const { return file_ >= 0; }
    /// When it is not open.
    FileFault fault() const { return fault_; }
    SharingFile file() const { return {file_, folder_, name_.c_str(), version_}; }

private:
    const FileVersion version_;
    int folder_ = -1;
    int file_ = -1;
    std::string name_;
    FileFault fault_{FileFault::Kind::failed};
};

SharingOutcome outcomeOf(const std::filesystem::path& url, FileFault fault) {
    if (fault.kind == FileFault::Kind::failed)
        return SharingFailed{url, fault.description()};
    return SharingRefused{url, {SharingRefusal::Kind::notTheSame}};
}

SharingOutcome outcomeOf(const std::filesystem::path& url, const SharingFault& fault) {
    const auto refused = [&](SharingRefusal::Kind kind) {
        return SharingRefused{url, {kind}, fault.bytesFreed};
    };
    switch (fault.kind) {
    case SharingFault::Kind::unsupported:
        return refused(SharingRefusal::Kind::unsupported);
    case SharingFault::Kind::otherFileSystem:
        return refused(SharingRefusal::Kind::otherFileSystem);
    case SharingFault::Kind::different:
        return refused(SharingRefusal::Kind::notTheSame);
    case SharingFault::Kind::immutable:
        return refused(SharingRefusal::Kind::immutable);
    case SharingFault::Kind::openForWriting:
        return refused(SharingRefusal::Kind::openForWriting);
    case SharingFault::Kind::hasOtherLinks:
        return refused(SharingRefusal::Kind::hasOtherLinks);
    case SharingFault::Kind::cancelled:
        return refused(SharingRefusal::Kind::cancelled);
    case SharingFault::Kind::failed:
        break;
    }
    return SharingFailed{url, std::generic_category().message(fault.error), fault.bytesFreed};
}

} // namespace

SharingRequest SharingRequest::of(const DuplicateGroup& group) {
    PathBudget budget;
    return of(group, budget);
}

SharingRequest SharingRequest::of(const DuplicateGroup& group, PathBudget& budget) {
    SharingRequest request;
    // Whoever shows a file names the first of the group with it, so that counts each time.
    const FileNode& first = *group.members.front().node;
    for (const DuplicateMember& member : group.members)
        if (member.file == request.items.size()) { // files have the order of their first members
            if (!budget.take(*member.node) || !budget.take(first))
                break;
            request.items.push_back({member.node->path(), group.files[member.file].version});
        }
    return request;
}

BlockSharing::BlockSharing() : shareExtents(tarnwell::shareExtents) {}

std::future<std::vector<SharingOutcome>> BlockSharing::share(SharingRequest request, Reporter report,
                                                             CancellationToken token) const {
    return runInBackground(
        [service = *this, request = std::move(request), report = std::move(report), token] {
            std::vector<SharingOutcome> outcomes;
            if (request.items.size() < 2)
                return outcomes;
            const NoFetching noFetching;
            const auto isCancelled = [&] { return token.isCancelled(); };
            const OpenItem first(request.items.front());
            const auto share = [&](const SharingRequest::Item& item) -> SharingOutcome {
                if (isCancelled())
                    return SharingRefused{item.path, {SharingRefusal::Kind::cancelled}};
                if (!first.isOpen())
                    return outcomeOf(item.path, first.fault());
                const OpenItem further(item);
                if (!further.isOpen())
                    return outcomeOf(item.path, further.fault());
                const auto shared = service.shareExtents(first.file(), further.file(), isCancelled);
                return shared ? SharingOutcome(SharingDone{item.path, *shared})
                              : outcomeOf(item.path, shared.error());
            };
            for (std::size_t index = 1; index < request.items.size(); ++index) {
                outcomes.push_back(share(request.items[index]));
                if (report)
                    report(outcomes.back());
            }
            return outcomes;
        });
}

} // namespace tarnwell
