#pragma once

// Directory entries packed as kernels pack them, for those who decode them.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell::test {

/// What one record of packed attributes carries; a field without a value is left out of the record, as the
/// kernel does. Times in seconds since 1970.
struct PackedRecord {
    std::optional<std::uint32_t> error = {};
    std::optional<std::string> name = {};
    std::optional<std::int32_t> device = {};
    std::optional<std::uint32_t> type = {};
    std::optional<std::int64_t> modified = {};
    std::optional<std::int64_t> accessed = {};
    std::optional<std::uint32_t> flags = {};
    std::optional<std::uint64_t> fileID = {};
    std::optional<std::uint32_t> mountStatus = {};
    std::optional<std::uint32_t> links = {};
    std::optional<std::int64_t> size = {};
    std::optional<std::int64_t> allocated = {};
    std::optional<std::int64_t> privateSize = {};
    std::optional<std::uint64_t> extended = {};
};

/// Packs records by the kernel's rules: fixed parts in bit order, 4-byte alignment, names at the end,
/// referred to from the place of the reference.
class RecordPacker {
public:
    RecordPacker& add(const PackedRecord& record);

    template <class Value>
    void overwrite(std::size_t place, Value value) {
        std::memcpy(bytes.data() + place, &value, sizeof value);
    }

    std::vector<std::byte> bytes;
    std::size_t count = 0;

private:
    template <class Value>
    void put(Value value) {
        const std::size_t place = bytes.size();
        bytes.resize(place + sizeof value);
        overwrite(place, value);
    }
};

/// Appends an entry in the form of Linux's struct linux_dirent64. `type` is one of <dirent.h>.
void appendDirectoryEntry(std::vector<std::byte>& bytes, std::string_view name, std::uint8_t type);

} // namespace tarnwell::test
