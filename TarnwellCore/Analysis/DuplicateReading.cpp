// What a search for duplicates does with single files and small sets of them.

#include "TarnwellCore/Analysis/DuplicateWorker.hpp"
#include "TarnwellCore/Analysis/StepComparison.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

/// What is read of each file in a step: a few of them fit into a processor's own cache.
constexpr std::size_t stepLength = std::size_t{1} << 16;

/// More would cost a disk that turns as much time between the files as comparing them saves.
constexpr std::size_t mostInStep = 16;
/// What the buffers of all files of a set may take.
constexpr std::size_t setMemory = std::size_t{1} << 24;

/// Takes the bytes of a page, which come at once.
SHA256Digest pageHash(std::span<const std::byte> page) {
    const std::size_t hash = std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(page.data()), page.size()));
    SHA256Digest digest{};
    std::memcpy(digest.data(), &hash, sizeof hash);
    return digest;
}

} // namespace

std::size_t DuplicateSearch::readSome(Worker& worker, std::span<const std::size_t> files, std::int64_t most) {
    std::size_t count = 0;
    {
        const std::shared_lock guard(steps_);
        std::vector<std::pair<std::size_t, OpenFile>> begun;
        for (; count < files.size() && !areStepsOver_.isSet(); ++count) {
            File& file = files_[files[count]];
            const std::int64_t length = lengthToRead(sizeOf(file), most);
            auto opened = openFile(worker, file, true);
            if (opened) {
                worker.reader(begun.size()).begin(opened->descriptor(), length, stepLength, stepLength);
                begun.emplace_back(files[count], std::move(*opened));
            } else if (opened.error() == NotOpened::noDescriptor) {
                break;
            } else {
                bytesToRead_.fetch_sub(length, std::memory_order_relaxed);
            }
        }
        for (std::size_t index = 0; index < begun.size(); ++index) {
            const auto& [number, opened] = begun[index];
            ContentReader& reader = worker.reader(index);
            const int file = opened.descriptor();
            digest(worker, opened, number, most, [&](const ContentReader::Taker& take) {
                for (;;) {
                    const auto bytes = finder_.readOn(reader, file);
                    if (!bytes || bytes->empty())
                        return bytes ? 0 : bytes.error();
                    if (!take(*bytes))
                        return ECANCELED;
                }
            });
            reader.end();
        }
    }
    if (count == 0) {
        readFile(worker, files.front(), most);
        count = 1;
    }
    return count;
}

void DuplicateSearch::readFile(Worker& worker, std::size_t number, std::int64_t most) {
    const std::int64_t length = lengthToRead(sizeOf(files_[number]), most);
    if (const auto opened = openFile(worker, files_[number], false))
        digest(worker, *opened, number, most, [&](const ContentReader::Taker& take) {
            return finder_.read(worker.reader(0), opened->descriptor(), length, take);
        });
    else
        bytesToRead_.fetch_sub(length, std::memory_order_relaxed);
}

void DuplicateSearch::digest(Worker& worker, const OpenFile& opened, std::size_t number, std::int64_t most,
                             const std::function<int(const ContentReader::Taker&)>& read) {
    File& file = files_[number];
    const std::int64_t size = sizeOf(file);
    const std::int64_t length = lengthToRead(size, most);
    const bool isOnlyPage = most == pageLength && length < size;
    SHA256& hash = worker.hash();
    std::int64_t unread = length;
    const int error = read([&](std::span<const std::byte> bytes) {
        if (isOnlyPage)
            file.digest = pageHash(bytes);
        else
            hash.update(bytes);
        unread -= static_cast<std::int64_t>(bytes.size());
        bytesRead_.fetch_add(static_cast<std::int64_t>(bytes.size()), std::memory_order_relaxed);
        return !isStopped_.isSet();
    });
    if (!isOnlyPage)
        file.digest = hash.finish();
    if (isSound(opened, number, error) && length == size)
        noteLayout(opened, number);
    bytesToRead_.fetch_sub(unread, std::memory_order_relaxed);
}

void DuplicateSearch::compare(Worker& worker, const Files& files) {
    if (compareInStep(worker, files))
        return;
    for (const std::size_t file : files)
        readFile(worker, file, wholeLength);
    addEqual(files);
}

bool DuplicateSearch::compareInStep(Worker& worker, const Files& files) {
    const std::shared_lock guard(steps_);
    if (areStepsOver_.isSet())
        return false;
    struct Member {
        std::size_t number;
        std::optional<OpenFile> opened;
        std::int64_t unread;
    };
    const std::int64_t size = sizeOf(files_[files.front()]);
    std::vector<Member> members;
    for (const std::size_t number : files) {
        auto opened = openFile(worker, files_[number], true);
        if (opened)
            members.push_back({number, std::move(*opened), size});
        else if (opened.error() == NotOpened::noDescriptor)
            return false;
    }
    for (std::size_t index = members.size(); index < files.size(); ++index)
        bytesToRead_.fetch_sub(size, std::memory_order_relaxed);
    const std::size_t window =
        std::min(ContentReader::pieceLength, std::bit_floor(setMemory / 2 / files.size()));
    for (std::size_t index = 0; index < members.size(); ++index)
        worker.reader(index).begin(members[index].opened->descriptor(), size, stepLength, window);

    const auto readOn = [&](std::size_t index) -> std::expected<std::span<const std::byte>, int> {
        if (isStopped_.isSet())
            return std::unexpected(ECANCELED);
        Member& member = members[index];
        auto bytes = finder_.readOn(worker.reader(index), member.opened->descriptor());
        if (bytes) {
            const auto count = static_cast<std::int64_t>(bytes->size());
            member.unread -= count;
            bytesRead_.fetch_add(count, std::memory_order_relaxed);
        }
        return bytes;
    };
    /// Whether it is the same still.
    const auto leave = [&](std::size_t index, int error, bool isEqual) {
        Member& member = members[index];
        worker.reader(index).end();
        bytesToRead_.fetch_sub(member.unread, std::memory_order_relaxed);
        const bool isLeft = isSound(*member.opened, member.number, error);
        if (isLeft && isEqual)
            noteLayout(*member.opened, member.number);
        member.opened.reset();
        return isLeft;
    };
    StepComparison comparison(members.size(), readOn,
                              [&](std::size_t index, int error) { leave(index, error, false); });
    for (const auto& equal : comparison.run(size)) {
        Files group;
        for (const std::size_t index : equal)
            if (leave(index, 0, true))
                group.push_back(members[index].number);
        if (group.size() > 1)
            addGroup(group);
    }
    return true;
}

/// After this, other workers keep no more than one file open.
void DuplicateSearch::endSteps() {
    areStepsOver_.set();
    const std::scoped_lock guard(steps_);
}

std::size_t DuplicateSearch::mostFilesInStep() const {
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    const rlim_t share = limit.rlim_cur / 4 / static_cast<rlim_t>(workerCount());
    return static_cast<std::size_t>(std::clamp<rlim_t>(share, 2, mostInStep));
}

/// By the first of its links that still leads to it; those that do not are dropped by themselves.
std::expected<DuplicateSearch::OpenFile, DuplicateSearch::NotOpened>
DuplicateSearch::openFile(Worker& worker, File& file, bool isInStep) {
    while (file.candidateCount > 0) {
        const Candidate& link = candidates_[file.firstCandidate];
        auto opened = openLink(worker, link);
        if (!opened && Worker::isForWantOfDescriptors(opened.error())) {
            if (isInStep)
                return std::unexpected(NotOpened::noDescriptor);
            endSteps();
            opened = openLink(worker, link);
        }
        if (opened)
            return OpenFile(*opened, link.version);
        drop(*link.node, opened.error());
        if (--file.candidateCount > 0)
            ++file.firstCandidate;
    }
    return std::unexpected(NotOpened::dropped);
}

std::expected<int, FileFault> DuplicateSearch::openLink(Worker& worker, const Candidate& link) {
    const auto folder = worker.folderOf(*link.node);
    if (!folder)
        return folder;
    return finder_.open(*folder, std::string(link.node->name()).c_str(), link.version);
}

bool DuplicateSearch::isSound(const OpenFile& opened, std::size_t file, int error) {
    const auto isSame = opened.requireVersion();
    if (!isSame)
        drop(files_[file], isSame.error());
    else if (error != 0)
        drop(files_[file], FileFault::of(error));
    return isSame && error == 0;
}

void DuplicateSearch::noteLayout(const OpenFile& opened, std::size_t file) {
    if (const auto layout = finder_.layoutOfSharedBlocks(opened.descriptor())) {
        const std::lock_guard guard(mutex_);
        layouts_.emplace(file, *layout);
    }
}

void DuplicateSearch::drop(const FileNode& node, FileFault fault) {
    droppedCount_.fetch_add(1, std::memory_order_relaxed);
    const std::lock_guard guard(mutex_);
    dropped_.push_back({&node, fault});
}

void DuplicateSearch::drop(File& file, FileFault fault) {
    for (const Candidate& link : std::span(candidates_).subspan(file.firstCandidate, file.candidateCount))
        drop(*link.node, fault);
    file.candidateCount = 0;
}

} // namespace tarnwell
