#include "TarnwellCore/Scanning/LiveTree.hpp"

#include "TarnwellCore/Platform/UnfairLock.hpp"
#include "TarnwellCore/Scanning/CheckedArithmetic.hpp"
#include "TarnwellCore/Scanning/LiveBatch.hpp"
#include "TarnwellCore/Scanning/NodeArena.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

// How workers and viewers share the tree without either waiting for the other.
//
// Workers only append to the inbox. A viewer takes what is there and adds it up in a mirror of the folders,
// which only viewers touch. Of the nodes it reads what their worker wrote before it handed the record in, and
// what nobody writes again before the end: names, parents, the array of children and the own sums of a folder
// that is `settled`, sizes of files. The inbox's lock orders the two. What others may write later (sums,
// counts and bit-fields of folders that are still to be read, and all flags) is never read before the end.
//
// At the end sums, marks and arrays are rewritten. From `beginSettling` on the nodes belong to the scan:
// viewers get what they have in the mirror, or wait. After `finish` everything is read from the nodes.

namespace tarnwell {

namespace {

using Files = std::vector<LiveFile>;

void add(LiveBytes& sum, const LiveBytes& bytes) {
    addChecked(sum.size, bytes.size);
    addChecked(sum.allocatedSize, bytes.allocatedSize);
    addChecked(sum.reclaimableSize, bytes.reclaimableSize);
}

LiveBytes negated(const LiveBytes& bytes) {
    return {-bytes.size, -bytes.allocatedSize, -bytes.reclaimableSize};
}

LiveBytes bytesOf(const FileNode& node) {
    return {node.size, node.allocatedSize, node.reclaimableSize};
}

/// What is added to a folder and to all above it.
struct Delta {
    LiveBytes bytes = {};
    LiveBytes linked = {};
    std::int64_t files = 0;
    std::int64_t directories = 0;
    std::int64_t open = 0;

    void operator+=(const Delta& other) {
        add(bytes, other.bytes);
        add(linked, other.linked);
        files += other.files;
        directories += other.directories;
        open += other.open;
    }
};

constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

/// A folder that was listed. One that it lists stands behind it.
struct MirroredFolder {
    FileNode* node;
    std::uint32_t parent;
    std::uint32_t firstBelow = 0;
    std::uint32_t countBelow = 0;
    std::uint32_t pendingDelta = none;
    Delta sums = {.open = 1}; // `open`: folders that are still to be read, itself and below
    FileNodeFlags flags = {};
    bool isRead = false;
    bool isSettled = false;
    bool hasFiles = false;
};

class Mirror {
public:
    void begin(FileNode& root) {
        folders_.push_back({.node = &root, .parent = none});
        places_.emplace(&root, 0);
        if (root.flags.contains(FileNodeFlags::dataless))
            close({.node = &root, .flags = root.flags});
    }

    void absorb(const LiveBatch& batch) {
        for (const LiveRecord& record : batch.records) {
            if (record.kind == LiveRecord::Kind::closed)
                close(record);
            else
                read(record);
        }
        for (const LiveLink& link : batch.links)
            noteDelta(places_.at(link.folder), {.bytes = negated(link.bytes), .linked = link.bytes});
        for (const CollapseDelta& delta : batch.collapsed)
            noteDelta(places_.at(delta.node), {.bytes = {delta.size, delta.allocated, delta.reclaimable},
                                               .files = delta.files,
                                               .directories = delta.directories});
    }

    /// Carries what was absorbed up to the root: each folder once, however many of those below it changed,
    /// because the deepest of a chain stands behind all others.
    void carryUp() {
        while (!changed_.empty()) {
            std::ranges::pop_heap(changed_);
            MirroredFolder& folder = folders_[changed_.back()];
            changed_.pop_back();
            const Delta delta = deltas_[std::exchange(folder.pendingDelta, none)];
            folder.sums += delta;
            if (folder.parent != none)
                noteDelta(folder.parent, delta);
        }
        deltas_.clear();
    }

    std::optional<std::uint32_t> find(const FileNode& node) const {
        const auto position = places_.find(&node);
        return position == places_.end() ? std::nullopt : std::optional(position->second);
    }
    const MirroredFolder& operator[](std::uint32_t place) const { return folders_[place]; }
    std::int64_t unreadableCount() const { return unreadableCount_; }

    LiveFolder folder(std::uint32_t place) const {
        const MirroredFolder& folder = folders_[place];
        return {.node = folder.node,
                .bytes = folder.sums.bytes,
                .linked = folder.sums.linked,
                .fileCount = static_cast<std::int32_t>(folder.sums.files),
                .directoryCount = static_cast<std::int32_t>(folder.sums.directories),
                .flags = folder.flags,
                .isRead = folder.isRead,
                .isComplete = folder.sums.open == 0};
    }

private:
    void read(const LiveRecord& record) {
        const std::uint32_t place = places_.at(record.node);
        Delta delta{.open = std::int64_t{record.opened} - 1};
        if (!folders_[place].isRead) {
            folders_[place].isRead = true;
            folders_[place].flags = record.flags;
            unreadableCount_ += record.flags.contains(FileNodeFlags::inaccessible) ? 1 : 0;
        }
        if (record.kind == LiveRecord::Kind::settled) {
            const FileNode& node = *record.node;
            const auto below = node.children().last(static_cast<std::size_t>(node.directoryCount()));
            if (folders_.size() + below.size() >= none)
                throw std::bad_alloc();
            folders_[place].isSettled = true;
            folders_[place].hasFiles = node.children().size() > below.size();
            folders_[place].firstBelow = static_cast<std::uint32_t>(folders_.size());
            folders_[place].countBelow = static_cast<std::uint32_t>(below.size());
            for (FileNode* child : below) {
                places_.emplace(child, static_cast<std::uint32_t>(folders_.size()));
                folders_.push_back({.node = child, .parent = place});
            }
            delta.bytes = bytesOf(node);
            delta.files = node.fileCount();
            delta.directories = std::ssize(below);
        }
        noteDelta(place, delta);
    }

    /// Its parent did not count it among those that are going to be read.
    void close(const LiveRecord& record) {
        const std::uint32_t place = places_.at(record.node);
        MirroredFolder& folder = folders_[place];
        folder.isRead = true;
        folder.flags = record.flags;
        unreadableCount_ += record.flags.contains(FileNodeFlags::inaccessible) ? 1 : 0;
        folder.sums.open = 0;
        noteDelta(place, {.bytes = bytesOf(*record.node)});
    }

    void noteDelta(std::uint32_t place, const Delta& delta) {
        std::uint32_t& pending = folders_[place].pendingDelta;
        if (pending == none) {
            changed_.push_back(place);
            std::ranges::push_heap(changed_);
            deltas_.emplace_back();
            pending = static_cast<std::uint32_t>(deltas_.size() - 1);
        }
        deltas_[pending] += delta;
    }

    std::vector<MirroredFolder> folders_; // a folder before those below it
    std::unordered_map<const FileNode*, std::uint32_t> places_;
    std::vector<std::uint32_t> changed_; // a heap, the last folder first
    std::vector<Delta> deltas_;          // of those, by their `pendingDelta`
    std::int64_t unreadableCount_ = 0;
};

const std::shared_ptr<const Files>& noFiles() {
    static const auto files = std::make_shared<const Files>();
    return files;
}

LiveFolder finalFolder(const FileNode& node) {
    return {.node = &node,
            .bytes = bytesOf(node),
            .fileCount = node.fileCount(),
            .directoryCount = node.directoryCount(),
            .flags = node.flags,
            .isRead = true,
            .isComplete = true};
}

void sortSoFar(std::vector<LiveFolder>& folders) {
    std::ranges::sort(folders, [](const LiveFolder& a, const LiveFolder& b) {
        const std::int64_t sizeOfA = a.sizeFor(SizeMode::apparent);
        const std::int64_t sizeOfB = b.sizeFor(SizeMode::apparent);
        return sizeOfA != sizeOfB ? sizeOfA > sizeOfB : a.node->name() < b.node->name();
    });
}

} // namespace

struct LiveTree::State {
    UnfairLock inboxLock;
    std::vector<LiveBatch> inbox; // guarded by inboxLock

    std::atomic<bool> isSettlingDue = false;
    mutable std::mutex mutex;
    std::condition_variable phaseChanged;
    LiveState phase = LiveState::waiting; // guarded by mutex, as is all below
    std::shared_ptr<TreeArena> arena;
    FileNode* root = nullptr;
    bool isTorn = false;   // ended while its nodes were being rewritten
    bool isBroken = false; // the mirror lacks what there was no memory for
    std::vector<LiveBatch> taken;
    std::size_t absorbed = 0; // of those
    Mirror mirror;
    std::unordered_map<std::uint32_t, std::shared_ptr<const Files>> fileLists; // by place in the mirror

    void catchUp();
    const std::shared_ptr<const Files>* filesAt(std::uint32_t place);
    std::optional<LivePage> look(const FileNode* node);
    std::optional<LivePage> finalPage(const FileNode& node) const;
    void enter(LiveState next);
    void forget();
};

/// Stops in between when the scan wants its nodes back.
void LiveTree::State::catchUp() {
    if (isBroken)
        throw std::bad_alloc();
    try {
        if (absorbed == taken.size()) {
            taken.clear();
            absorbed = 0;
            inboxLock.withLock([&] { taken.swap(inbox); });
        }
        while (absorbed < taken.size() && !isSettlingDue.load(std::memory_order_relaxed))
            mirror.absorb(taken[absorbed++]);
        mirror.carryUp();
    } catch (...) {
        isBroken = true;
        throw;
    }
}

/// Null when they would have to be read from nodes that are being rewritten.
const std::shared_ptr<const Files>* LiveTree::State::filesAt(std::uint32_t place) {
    const auto known = fileLists.find(place);
    if (known != fileLists.end())
        return &known->second;
    const MirroredFolder& folder = mirror[place];
    if (!folder.isSettled)
        return &noFiles();
    std::shared_ptr<const Files> list = noFiles();
    if (folder.hasFiles) {
        if (phase == LiveState::settling || isTorn)
            return nullptr;
        const auto children = folder.node->children();
        auto files = std::make_shared<Files>();
        files->reserve(children.size() - folder.countBelow);
        for (const FileNode* child : children.first(children.size() - folder.countBelow))
            files->push_back({child, child->flags});
        list = std::move(files);
    }
    return &fileLists.emplace(place, std::move(list)).first->second;
}

/// Nothing is written any more.
std::optional<LivePage> LiveTree::State::finalPage(const FileNode& node) const {
    if (!node.isDirectory() || &node.root() != root)
        return std::nullopt;
    LivePage page{.state = LiveState::finished, .folder = finalFolder(node), .tree = arena};
    auto files = std::make_shared<Files>();
    for (const FileNode* child : node.children()) {
        if (child->isDirectory())
            page.folders.push_back(finalFolder(*child));
        else
            files->push_back({child, child->flags});
    }
    page.files = std::move(files);
    return page;
}

std::optional<LivePage> LiveTree::State::look(const FileNode* node) {
    std::unique_lock guard(mutex);
    phaseChanged.wait(guard, [&] { return phase != LiveState::reading || !isSettlingDue; });
    if (phase == LiveState::waiting || root == nullptr)
        return std::nullopt;
    if (phase == LiveState::reading || (phase == LiveState::abandoned && !isTorn))
        catchUp();
    const std::optional<std::uint32_t> place =
        phase == LiveState::finished ? std::nullopt : mirror.find(node == nullptr ? *root : *node);
    const std::shared_ptr<const Files>* files = nullptr;
    if (place && (files = filesAt(*place)) == nullptr)
        phaseChanged.wait(guard, [&] { return phase != LiveState::settling; });
    if (phase == LiveState::finished) {
        guard.unlock();
        return finalPage(node == nullptr ? *root : *node);
    }
    if (files == nullptr)
        return std::nullopt;
    LivePage page{.state = phase,
                  .folder = mirror.folder(*place),
                  .files = *files,
                  .unreadableCount = mirror.unreadableCount(),
                  .tree = arena};
    const MirroredFolder& folder = mirror[*place];
    page.folders.reserve(folder.countBelow);
    for (std::uint32_t below = 0; below < folder.countBelow; ++below)
        page.folders.push_back(mirror.folder(folder.firstBelow + below));
    guard.unlock();
    sortSoFar(page.folders);
    return page;
}

void LiveTree::State::enter(LiveState next) {
    {
        const std::lock_guard guard(mutex);
        isTorn = next == LiveState::abandoned && phase == LiveState::settling;
        phase = next;
        isSettlingDue = next == LiveState::settling;
    }
    phaseChanged.notify_all();
}

/// The result tells everything from now on.
void LiveTree::State::forget() {
    const std::lock_guard guard(mutex);
    mirror = {};
    // To assign an empty list would keep the memory.
    fileLists = decltype(fileLists)();
    taken = decltype(taken)();
    inboxLock.withLock([&] { inbox = decltype(inbox)(); });
}

LiveTree::LiveTree() : state_(std::make_unique<State>()) {}
LiveTree::~LiveTree() = default;

LiveState LiveTree::state() const {
    const std::lock_guard guard(state_->mutex);
    return state_->phase;
}

std::optional<LivePage> LiveTree::look() const {
    return state_->look(nullptr);
}

std::optional<LivePage> LiveTree::look(const FileNode& folder) const {
    return state_->look(&folder);
}

void LiveTree::begin(std::shared_ptr<TreeArena> arena, FileNode& root) {
    {
        const std::lock_guard guard(state_->mutex);
        state_->arena = std::move(arena);
        state_->mirror.begin(root);
        state_->root = &root;
    }
    state_->enter(LiveState::reading);
}

void LiveTree::handIn(LiveBatch& batch) {
    if (batch.isEmpty())
        return;
    state_->inboxLock.withLock([&] { state_->inbox.push_back(std::move(batch)); });
    batch = {};
}

void LiveTree::beginSettling() {
    state_->isSettlingDue = true; // before the lock: a viewer that holds it lets go
    state_->enter(LiveState::settling);
}

void LiveTree::finish() {
    state_->enter(LiveState::finished);
    state_->forget();
}

void LiveTree::abandon() noexcept {
    state_->enter(LiveState::abandoned);
}

std::int64_t LiveFolder::sizeFor(SizeMode mode) const {
    switch (mode) {
    case SizeMode::apparent:
        return bytes.size + linked.size;
    case SizeMode::allocated:
        return bytes.allocatedSize + linked.allocatedSize;
    case SizeMode::reclaimable:
        return bytes.reclaimableSize + linked.reclaimableSize;
    }
    return bytes.size + linked.size;
}

} // namespace tarnwell
