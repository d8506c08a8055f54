#include "Tests/Support/SampleSnapshots.hpp"

#include <string>

namespace tarnwell::test {

ScanSnapshot::Entry makeEntry(std::string_view path, std::int64_t size, std::int64_t fileCount,
                              bool isDirectory) {
    return {.path = std::string(path),
            .size = size,
            .allocatedSize = size,
            .reclaimableSize = size,
            .fileCount = fileCount,
            .isDirectory = isDirectory};
}

ScanSnapshot makeSnapshot(double createdAt, std::int64_t size) {
    ScanSnapshot snapshot;
    snapshot.id = UUID::random();
    snapshot.createdAt = dateAt(createdAt);
    snapshot.rootPath = "/home/alice";
    snapshot.totalSize = snapshot.totalAllocatedSize = snapshot.totalReclaimableSize = size;
    snapshot.totalFiles = 10;
    snapshot.entries.push_back(makeEntry("", size, 10, true));
    snapshot.minimumSize = 1'000'000;
    return snapshot;
}

ScanSnapshot makeCheckableSnapshot(const UUID& id, std::size_t entryCount) {
    ScanSnapshot snapshot = makeSnapshot(1'700'000'000 + id.bytes[0], id.bytes[1]);
    snapshot.id = id;
    for (std::size_t index = 1; index < entryCount; ++index)
        snapshot.entries.push_back(
            makeEntry("Library/" + id.text() + "/item " + std::to_string(index),
                      std::int64_t{id.bytes[2]} << 40 | static_cast<std::int64_t>(index)));
    return snapshot;
}

} // namespace tarnwell::test
