#pragma once

// Settings in a JSON file, for systems without a store of their own.
//
// A change is made under a lock file ("<file>.lock"): read the file as it is now, put the changes into it,
// replace it durably (DurableFile.hpp). So
//   - other programs and a crash at any moment see the old file or the new one, whole;
//   - changes of two programs never undo one another, nor are members lost that this program does not know;
//   - a file that is no JSON object, or that cannot be read, counts as empty. The first change keeps it as
//     "<file>.damaged" ("<file>.damaged-2" ...) before it puts a new file in its place;
//   - whatever fails, the file stays as it was and the changes stay in memory, for the next attempt.
// Where the file is a symbolic link, all this happens to the file behind it.

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace tarnwell {

class JSONFileDefaults final : public UserDefaults {
public:
    /// The file need not exist, nor its folder.
    explicit JSONFileDefaults(std::filesystem::path file, FileCalls calls = FileCalls::live());
    /// Tries once more to store what could not be stored.
    ~JSONFileDefaults() override;

    const std::filesystem::path& file() const { return file_; }

    bool synchronize() override;

protected:
    std::optional<UserDefaultsValue> storedValue(std::string_view key) const override;
    void store(Changes changes) override;

private:
    struct PendingChange {
        std::optional<UserDefaultsValue> value;
        /// Grows with every change: tells whether a value was set again while it was being written.
        std::uint64_t serial;
    };
    struct CachedFile;

    void refresh() const;
    bool write(const Changes& changes) const;

    const std::filesystem::path file_;
    const FileCalls calls_;
    /// Held while the file is being changed; taken before `mutex_`, so that reads need not wait for a disk.
    std::mutex writing_;
    mutable std::mutex mutex_;
    std::map<std::string, PendingChange, std::less<>> pending_; // guarded by mutex_
    std::uint64_t lastSerial_ = 0;                              // guarded by mutex_
    mutable std::unique_ptr<CachedFile> cached_;                // guarded by mutex_
};

} // namespace tarnwell
