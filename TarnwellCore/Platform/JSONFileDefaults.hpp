#pragma once

// Settings in a JSON file, for systems without a store of their own.
//
// A change is made under a lock that only this user can take (FileLock.hpp): read the file as it is now, put
// the changes into it, replace it durably (DurableFile.hpp). So
//   - other programs and a crash at any moment see the old file or the new one, whole;
//   - changes of two programs never undo one another, nor are members lost that this program does not know;
//   - a file that is no JSON object, or that this user may not read, counts as empty. The first change keeps
//     it as "<file>.damaged" ("<file>.damaged-2" ...) before it puts a new file in its place; where it cannot
//     be kept, nothing is stored;
//   - a file that cannot be read now (an I/O error, no memory, no descriptor) is not touched;
//   - whatever fails, the file stays as it was and the changes stay in memory, for the next attempt.
// Only the user may read what is written here: mode 0600, also of a file that others could read before.
// Where the file is a symbolic link, all this happens to the file behind it; only root follows no other
// user's.

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FileLock.hpp"
#include "TarnwellCore/Platform/UserDefaults.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace tarnwell {

class DefaultsDocument;

class JSONFileDefaults final : public UserDefaults {
public:
    /// The file need not exist, nor its folder.
    /// Storing waits for other writers for so long at most; once that was too short, changes wait no more,
    /// and `synchronize` does, until one succeeds.
    explicit JSONFileDefaults(std::filesystem::path file, FileCalls calls = FileCalls::live(),
                              std::chrono::milliseconds patience = FileLock::patience);
    /// Tries once more to store what could not be stored.
    ~JSONFileDefaults() override;

    const std::filesystem::path& file() const { return file_; }

    void change(std::string_view key, const Change& change) override;
    bool synchronize() override;
    std::optional<std::string> storingFailure() const override;

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
    Changes pendingChanges() const;
    bool storePending(std::chrono::milliseconds patience);
    using Making = std::function<Changes(const DefaultsDocument&)>;
    void write(const Making& changes, std::chrono::milliseconds patience) const;

    const std::filesystem::path file_;
    const FileCalls calls_;
    const std::chrono::milliseconds patience_;
    /// Held while the file is being changed; taken before `mutex_`, so that reads need not wait for a disk.
    std::mutex writing_;
    bool isHeldUp_ = false; // whether the last attempt waited in vain; guarded by writing_
    mutable std::mutex mutex_;
    std::map<std::string, PendingChange, std::less<>> pending_; // guarded by mutex_
    std::uint64_t lastSerial_ = 0;                              // guarded by mutex_
    std::optional<std::string> failure_;                        // guarded by mutex_
    mutable std::unique_ptr<CachedFile> cached_;                // guarded by mutex_
};

} // namespace tarnwell
