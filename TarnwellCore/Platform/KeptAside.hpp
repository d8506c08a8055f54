#pragma once

// A damaged file is somebody's data: it keeps another name when a good one takes its place.

#include "TarnwellCore/Platform/FileCalls.hpp"

#include <filesystem>

namespace tarnwell {

/// A second name for a damaged file, "<file>.damaged" ("<file>.damaged-2" ... up to 999), while another file
/// takes its place. Nobody but its owner may read it from then on.
class KeptAside {
public:
    /// Throws std::system_error when there is no such name to be had; then the file is as it was. Both must
    /// outlive this.
    KeptAside(const std::filesystem::path& file, const FileCalls& calls);

    /// Takes the second name away again where no other file took the first.
    void undoUnlessReplaced() const;

private:
    const std::filesystem::path& file_;
    const FileCalls& calls_;
    std::filesystem::path name_;
    bool isRenamed_ = false;
};

} // namespace tarnwell
