#pragma once

// Reads the entries of folders: in bulk where the file system can, one by one where it cannot.

#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"
#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/NameStore.hpp"
#include "TarnwellCore/Platform/RawDirectoryEntry.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

namespace tarnwell {

/// Belongs to one thread, which uses it for all the folders that it reads.
class DirectoryReader {
public:
    /// Bytes of the buffer that the kernel fills.
    static constexpr std::size_t bufferSize = 262144;

    /// A folder that could not be opened.
    class ReadError : public std::runtime_error {
    public:
        explicit ReadError(int errorNumber);
        int errorNumber() const noexcept { return errorNumber_; }

    private:
        int errorNumber_;
    };

    /// Whether anything was read from a descriptor before.
    enum class Descriptor { fresh, used };

    /// `calls` must outlive the reader.
    explicit DirectoryReader(const DirectoryCalls& calls = DirectoryCalls::live());

    /// Opens a folder for reading, not following a link at the path's end. Works for paths longer than
    /// PATH_MAX. Returns the descriptor, which is the caller's to close; throws ReadError.
    static int openDirectory(const std::string& path);

    /// Replaces `entries` by what the open folder holds, without "." and ".."; its storage is kept. Their
    /// names last until the next call. `deviceID` is the folder's device. False when the folder could not
    /// be read, with the reason in errno. An entry that cannot be read is delivered with its error code.
    bool readEntries(int folder, std::int32_t deviceID, std::vector<RawDirectoryEntry>& entries,
                     Descriptor state = Descriptor::used);

    /// Folders that were tried in bulk, and folders that were read one by one.
    std::size_t bulkAttemptCount() const { return bulkAttemptCount_; }
    std::size_t posixFallbackCount() const { return posixFallbackCount_; }

private:
    bool readOneByOne(int folder, std::vector<RawDirectoryEntry>& entries);

    const DirectoryCalls& calls_;
    std::unique_ptr<std::byte[]> buffer_;
    BulkDirectoryReading bulk_;
    NameStore names_;
    /// Devices that refused to be read in bulk; never tried again.
    std::unordered_set<std::int32_t> unsupportedDevices_;
    std::size_t bulkAttemptCount_ = 0;
    std::size_t posixFallbackCount_ = 0;
};

} // namespace tarnwell
