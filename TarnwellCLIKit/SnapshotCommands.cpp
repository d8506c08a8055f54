#include "TarnwellCLIKit/SnapshotCommands.hpp"

#include "TarnwellCLIKit/SnapshotReference.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Snapshots/SnapshotStore.hpp"
#include "TarnwellCore/Text/ISO8601.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include <utility>
#include <vector>

namespace tarnwell::CLIRunner {

namespace {

constexpr std::int64_t reportedChange = 10'000'000;
constexpr SizeMode comparedSize = SizeMode::allocated;

std::string sizeText(std::int64_t bytes) {
    return ByteFormatter::string(bytes, "0 bytes");
}

/// With a plus sign for growth; the formatter writes the minus sign.
std::string changeText(std::int64_t bytes) {
    return (bytes >= 1 ? "+" : "") + sizeText(bytes);
}

/// Every stored date has a text.
std::string dateText(Date date) {
    return iso8601Text(date).value_or("");
}

/// A document of one object, whose members `write` writes.
template <class Write>
std::string document(NameStyle style, Write write) {
    std::string text;
    JSONWriter writer(text);
    writer.beginObject();
    write(writer);
    writer.endObject();
    text += '\n';
    return style == NameStyle::harmless ? harmlessJSON(text) : text;
}

void writeVersion(JSONWriter& writer) {
    writer.key("version");
    writer.integer(1);
}

void writeChange(JSONWriter& writer, const SnapshotDelta::Change& change) {
    writer.beginObject();
    writer.key("after");
    writer.integer(change.after);
    writer.key("before");
    writer.integer(change.before);
    writer.key("delta");
    writer.integer(change.delta);
    writer.key("isNested");
    writer.boolean(change.isNested);
    writer.key("kind");
    writer.string(rawValue(change.kind));
    writer.key("path");
    writer.string(change.path);
    writer.endObject();
}

CLIResult succeeded(std::string text) {
    return {.exitCode = 0, .standardOutput = std::move(text), .standardError = {}};
}

CLIResult failure(const SnapshotReferenceError& error, NameStyle style) {
    return {.exitCode = 1, .standardOutput = {}, .standardError = styled(error.message(), style) + "\n"};
}

} // namespace

CLIResult saveSnapshot(const std::string& path, bool json, const CLIServices& services, CLIStyles styles) {
    const ScanSnapshot snapshot = ScanSnapshot::capture(
        services.scan(expandTilde(path)).get(), ScanSnapshot::storedDepth, ScanSnapshot::storedMinimumSize);
    services.snapshotStore()->save(snapshot);
    if (json)
        return succeeded(document(styles.output, [&](JSONWriter& writer) {
            snapshotObject(writer, snapshot);
            writeVersion(writer);
        }));
    return succeeded("Saved snapshot " + snapshot.id.text() + "\n" +
                     styled(snapshot.rootPath, styles.output) + "\n" + sizeText(snapshot.totalAllocatedSize) +
                     " on disk\n");
}

CLIResult listSnapshots(bool json, const CLIServices& services, CLIStyles styles) {
    const std::vector<ScanSnapshot> snapshots = services.snapshotStore()->list();
    if (json)
        return succeeded(document(styles.output, [&](JSONWriter& writer) {
            writer.key("entries");
            writer.beginArray();
            for (const ScanSnapshot& snapshot : snapshots) {
                writer.beginObject();
                snapshotObject(writer, snapshot);
                writer.endObject();
            }
            writer.endArray();
            writeVersion(writer);
        }));
    if (snapshots.empty())
        return succeeded("No snapshots.\n");
    std::string text;
    for (const ScanSnapshot& snapshot : snapshots)
        text += snapshot.id.text() + "  " + dateText(snapshot.createdAt) + "  " +
                sizeText(snapshot.totalAllocatedSize) + "  " + styled(snapshot.rootPath, styles.output) +
                "\n";
    return succeeded(std::move(text));
}

CLIResult diffSnapshots(std::string_view before, std::string_view after, bool json,
                        const CLIServices& services, CLIStyles styles) {
    const std::vector<ScanSnapshot> snapshots = services.snapshotStore()->list();
    const auto older = SnapshotReference::resolve(before, snapshots);
    if (!older)
        return failure(older.error(), styles.error);
    const auto newer = SnapshotReference::resolve(after, snapshots);
    if (!newer)
        return failure(newer.error(), styles.error);
    const SnapshotDelta delta = SnapshotDelta::compare(**older, **newer, reportedChange, comparedSize);
    if (json)
        return succeeded(document(styles.output, [&](JSONWriter& writer) { diffObject(writer, delta); }));
    return succeeded(diffText(delta, styles.output));
}

void snapshotObject(JSONWriter& writer, const ScanSnapshot& snapshot) {
    writer.key("createdAt");
    writer.string(dateText(snapshot.createdAt));
    writer.key("entryCount");
    writer.integer(static_cast<std::int64_t>(snapshot.entries.size()));
    writer.key("id");
    writer.string(snapshot.id.text());
    writer.key("rootPath");
    writer.string(snapshot.rootPath);
    writer.key("totalAllocatedSize");
    writer.integer(snapshot.totalAllocatedSize);
    writer.key("totalFiles");
    writer.integer(snapshot.totalFiles);
    writer.key("totalReclaimableSize");
    writer.integer(snapshot.totalReclaimableSize);
    writer.key("totalSize");
    writer.integer(snapshot.totalSize);
}

void diffObject(JSONWriter& writer, const SnapshotDelta& delta) {
    writer.key("after");
    writer.beginObject();
    snapshotObject(writer, delta.after);
    writer.endObject();
    writer.key("before");
    writer.beginObject();
    snapshotObject(writer, delta.before);
    writer.endObject();
    writer.key("changes");
    writer.beginArray();
    for (const SnapshotDelta::Change& change : delta.changes)
        writeChange(writer, change);
    writer.endArray();
    writer.key("rootsMatch");
    writer.boolean(delta.rootsMatch);
    writer.key("sizeMode");
    writer.string(rawValue(comparedSize));
    writer.key("totalChange");
    writer.integer(delta.totalChange);
    writeVersion(writer);
}

std::string diffText(const SnapshotDelta& delta, NameStyle style) {
    std::string text = "Before " + delta.before.id.text() + "  " + styled(delta.before.rootPath, style) +
                       "\n" + //
                       "After " + delta.after.id.text() + "  " + styled(delta.after.rootPath, style) + "\n";
    if (!delta.rootsMatch)
        text += "These snapshots were captured from different roots.\n";
    const std::string threshold = sizeText(reportedChange);
    if (delta.changes.empty())
        text += "No changes of at least " + threshold + ".\n";
    else
        text += "Changes of at least " + threshold + " (allocated size):\n";
    for (const SnapshotDelta::Change& change : delta.changes) {
        text.append(changeText(change.delta)).append("  ").append(rawValue(change.kind)).append("  ");
        text.append(change.path.empty() ? "(root)" : styled(change.path, style)).append("\n");
    }
    return text + "Total change: " + changeText(delta.totalChange) + "\n";
}

} // namespace tarnwell::CLIRunner
