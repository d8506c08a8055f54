// Writes the seeds that are bytes rather than text: `make-seeds Fuzz/Seeds`. They are committed; this is for
// whoever changes them.

#include "Tests/Support/PackedRecords.hpp"

#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

namespace tarnwell {

namespace {

using test::appendDirectoryEntry;
using test::PackedRecord;
using test::RecordPacker;

void write(const std::filesystem::path& file, std::initializer_list<std::uint8_t> head,
           const std::vector<std::byte>& bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    for (const std::uint8_t byte : head)
        stream.put(static_cast<char>(byte));
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

PackedRecord wholeRecord(const std::string& name) {
    return {.name = name,
            .device = 16'777'220,
            .type = 1,
            .modified = 1'714'555'800,
            .accessed = -5,
            .flags = 0x8000,
            .fileID = 0xFFFF'FFFF'0000'0001,
            .links = 3,
            .size = std::int64_t{1} << 40,
            .allocated = 4096,
            .privateSize = 0,
            .extended = 0x41};
}

void writeRecords(const std::filesystem::path& folder) {
    RecordPacker ordinary;
    ordinary.add(wholeRecord("a")).add({.name = "folder", .type = 2}).add(wholeRecord("b.txt"));
    write(folder / "ordinary", {3, 30}, ordinary.bytes);

    RecordPacker odd;
    for (const char* name : {".", "..", "", "..."})
        odd.add({.name = name, .type = 2});
    odd.add({.error = 13, .name = "locked"}).add({.error = 5});
    write(folder / "dots-and-errors", {6, 12}, odd.bytes);

    RecordPacker cut;
    cut.add(wholeRecord("cut"));
    cut.bytes.resize(60);
    write(folder / "cut", {1, 8}, cut.bytes);

    RecordPacker astray;
    astray.add(wholeRecord("name"));
    astray.overwrite(24, std::int32_t{-1000}); // where the name is
    write(folder / "name-astray", {1, 255}, astray.bytes);
}

void writeDirectoryEntries(const std::filesystem::path& folder) {
    std::vector<std::byte> ordinary;
    for (const char* name : {".", "..", "a", "b.txt", "a name of some length"})
        appendDirectoryEntry(ordinary, name, DT_REG);
    write(folder / "ordinary", {0}, ordinary);

    std::vector<std::byte> odd;
    appendDirectoryEntry(odd, "", DT_UNKNOWN);
    appendDirectoryEntry(odd, "locked!", DT_DIR);
    appendDirectoryEntry(odd, "\xFF\xFE", DT_LNK);
    write(folder / "odd", {1}, odd);
    appendDirectoryEntry(odd, "old kernel?", DT_REG);
    write(folder / "old-kernel", {0}, odd);

    std::vector<std::byte> cut = ordinary;
    cut.resize(cut.size() - 12);
    write(folder / "cut", {0}, cut);
    cut.resize(cut.size() - 20); // less than a record's fixed part is left
    write(folder / "stub", {0}, cut);

    std::vector<std::byte> endless;
    appendDirectoryEntry(endless, "1234", DT_REG); // five bytes with its NUL, which fill the record
    endless.back() = std::byte{'5'};
    write(folder / "no-end", {0}, endless);
}

} // namespace

} // namespace tarnwell

int main(int count, char** values) {
    if (count != 2)
        return EXIT_FAILURE;
    const std::filesystem::path folder = values[1];
    tarnwell::writeRecords(folder / "records");
    tarnwell::writeDirectoryEntries(folder / "getdents");
    return EXIT_SUCCESS;
}
