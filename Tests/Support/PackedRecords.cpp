#include "Tests/Support/PackedRecords.hpp"

#include "TarnwellCore/Platform/PackedAttributeRecords.hpp"

namespace tarnwell::test {

using namespace PackedAttributes;

RecordPacker& RecordPacker::add(const PackedRecord& record) {
    const std::size_t start = bytes.size();
    put(std::uint32_t{0});
    std::uint32_t common = commonReturnedAttributes;
    std::uint32_t directory = 0;
    std::uint32_t file = 0;
    std::uint32_t extended = 0;
    const std::size_t masks = bytes.size();
    bytes.resize(bytes.size() + 20);
    std::size_t reference = 0;
    const auto field = [&](const auto& value, std::uint32_t& mask, std::uint32_t bit) {
        if (!value)
            return;
        mask |= bit;
        put(*value);
    };
    const auto time = [&](const std::optional<std::int64_t>& seconds, std::uint32_t bit) {
        if (!seconds)
            return;
        common |= bit;
        put(*seconds);
        put(std::int64_t{999'999'999});
    };
    field(record.error, common, commonError);
    if (record.name) {
        common |= commonName;
        reference = bytes.size();
        put(std::int32_t{0});
        put(static_cast<std::uint32_t>(record.name->size() + 1));
    }
    field(record.device, common, commonDevice);
    field(record.type, common, commonObjectType);
    time(record.modified, commonModificationTime);
    time(record.accessed, commonAccessTime);
    field(record.flags, common, commonFlags);
    field(record.fileID, common, commonFileID);
    field(record.mountStatus, directory, directoryMountStatus);
    field(record.links, file, fileLinkCount);
    field(record.size, file, fileTotalSize);
    field(record.allocated, file, fileAllocatedSize);
    field(record.privateSize, extended, extendedPrivateSize);
    field(record.extended, extended, extendedFlags);
    if (record.name) {
        overwrite(reference, static_cast<std::int32_t>(bytes.size() - reference));
        for (const char character : *record.name)
            bytes.push_back(static_cast<std::byte>(character));
        bytes.push_back(std::byte{0});
    }
    while (bytes.size() % 4 != 0)
        bytes.push_back(std::byte{0});
    overwrite(start, static_cast<std::uint32_t>(bytes.size() - start));
    overwrite(masks, common);
    overwrite(masks + 8, directory);
    overwrite(masks + 12, file);
    overwrite(masks + 16, extended);
    ++count;
    return *this;
}

void appendDirectoryEntry(std::vector<std::byte>& bytes, std::string_view name, std::uint8_t type) {
    constexpr std::size_t lengthPlace = 16; // behind inode and offset
    constexpr std::size_t typePlace = 18;
    constexpr std::size_t namePlace = 19;
    const std::size_t start = bytes.size();
    const auto length = static_cast<std::uint16_t>((namePlace + name.size() + 1 + 7) / 8 * 8);
    bytes.resize(start + length);
    std::memcpy(bytes.data() + start + lengthPlace, &length, sizeof length);
    bytes[start + typePlace] = static_cast<std::byte>(type);
    std::memcpy(bytes.data() + start + namePlace, name.data(), name.size());
}

} // namespace tarnwell::test
