#include "TarnwellCore/Scanning/DirectoryMeasurement.hpp"
#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"

#include <string_view>

namespace tarnwell {

namespace {

void writeInteger(JSONWriter& json, std::string_view key, std::int64_t value) {
    json.key(key);
    json.integer(value);
}

} // namespace

std::string jsonText(const ScanStats& stats) {
    std::string text;
    JSONWriter json(text);
    json.beginObject();
    writeInteger(json, "directoryCount", stats.directoryCount);
    writeInteger(json, "fileCount", stats.fileCount);
    writeInteger(json, "hardlinkDuplicateCount", stats.hardlinkDuplicateCount);
    writeInteger(json, "hardlinkSavedBytes", stats.hardlinkSavedBytes);
    writeInteger(json, "inaccessibleCount", stats.inaccessibleCount);
    writeInteger(json, "inaccessibleEntryCount", stats.inaccessibleEntryCount);
    writeInteger(json, "maximumDepth", stats.maximumDepth);
    writeInteger(json, "mountPointCount", stats.mountPointCount);
    writeInteger(json, "packageCount", stats.packageCount);
    writeInteger(json, "symlinkCount", stats.symlinkCount);
    writeInteger(json, "totalAllocatedSize", stats.totalAllocatedSize);
    writeInteger(json, "totalReclaimableSize", stats.totalReclaimableSize);
    writeInteger(json, "totalSize", stats.totalSize);
    json.endObject();
    return text;
}

std::string jsonText(const DirectoryMeasurement& measurement) {
    std::string text;
    JSONWriter json(text);
    json.beginObject();
    writeInteger(json, "allocatedSize", measurement.allocatedSize);
    writeInteger(json, "directoryCount", measurement.directoryCount);
    writeInteger(json, "fileCount", measurement.fileCount);
    json.key("isMissing");
    json.boolean(measurement.isMissing);
    writeInteger(json, "logicalSize", measurement.logicalSize);
    writeInteger(json, "reclaimableSize", measurement.reclaimableSize);
    json.endObject();
    return text;
}

} // namespace tarnwell
