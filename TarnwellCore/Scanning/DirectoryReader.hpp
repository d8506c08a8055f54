#pragma once

// Reads the entries of folders: in bulk where the file system can, one by one where it cannot.

#include "TarnwellCore/Platform/BulkDirectoryReading.hpp"
#include "TarnwellCore/Platform/DirectoryCalls.hpp"
#include "TarnwellCore/Platform/EntryBatch.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_set>

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

    /// `calls` must outlive the reader. With `keepsHeldSpace`, entries say what of the disk they share.
    explicit DirectoryReader(const DirectoryCalls& calls = DirectoryCalls::live(),
                             bool keepsHeldSpace = false);

    /// Opens a folder for reading, not following a link at the path's end. Works for paths longer than
    /// PATH_MAX. Returns the descriptor, which is the caller's to close; throws ReadError.
    static int openDirectory(const std::string& path);

    /// Hands what the open folder holds, without "." and "..", to `consumer`, some entries at a time.
    /// `deviceID` is the folder's device. False when the folder could not be read, or not to its end, with
    /// the reason in errno. An entry that cannot be read is handed on with its error code. With `source`,
    /// records come from there where they are read in bulk, and others may take some of them.
    bool readEntries(int folder, std::int32_t deviceID, const EntryConsumer& consumer,
                     Descriptor state = Descriptor::used, const RecordSource* source = nullptr);

    /// Hands on those entries of a folder whose records `source` still gives. False as with `readEntries`.
    bool helpToRead(int folder, std::int32_t deviceID, const EntryConsumer& consumer,
                    const RecordSource& source);

    /// Whether the consumer has seen any entry of the last folder.
    bool hasHandedOn() const { return batch_.hasHandedOn(); }
    /// Whether the last folder's entries come, or came, without records.
    bool isOneByOne() const { return isOneByOne_; }

    /// Folders that were tried in bulk, and folders that were read one by one.
    std::size_t bulkAttemptCount() const { return bulkAttemptCount_; }
    std::size_t posixFallbackCount() const { return posixFallbackCount_; }

private:
    bool readOneByOne(int folder);

    const DirectoryCalls& calls_;
    std::unique_ptr<std::byte[]> buffer_;
    BulkDirectoryReading bulk_;
    EntryBatch batch_;
    bool isOneByOne_ = false;
    /// Devices that refused to be read in bulk; never tried again.
    std::unordered_set<std::int32_t> unsupportedDevices_;
    std::size_t bulkAttemptCount_ = 0;
    std::size_t posixFallbackCount_ = 0;
};

} // namespace tarnwell
