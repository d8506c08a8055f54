#pragma once

// Excluded paths, and those of mount points, arranged so that a scan never builds a path to look one up: a
// tree of the components below the scan's root, which the walk descends alongside the folders. Outside of it
// a folder costs one null check.

#include "TarnwellCore/Platform/NameForms.hpp"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace tarnwell {

/// Immutable after construction; read by every worker.
class ExclusionIndex {
public:
    /// What the exclusions say about the entries of one folder.
    struct Level {
        bool isExcluded = false;
        bool isMountPoint = false;
        /// By name, in its common form.
        std::map<std::string, std::unique_ptr<Level>, std::less<>> below;
        /// Whether any of them may be met in another form.
        bool hasOtherForms = false;

        /// What they say about an entry of this folder and what is below it; null for nothing.
        const Level* find(std::string_view name) const {
            auto match = below.find(name);
            if (match == below.end() && hasOtherForms && mayHaveOtherForms(name))
                match = below.find(commonForm(name));
            return match == below.end() ? nullptr : match->second.get();
        }
    };

    /// Keeps of the paths those that lie below the root. Doubled and trailing "/" in a path do not matter.
    ExclusionIndex(std::string_view rootPath, const std::set<std::string, std::less<>>& paths);
    ~ExclusionIndex();

    /// Adds more paths before the scan starts.
    void add(const std::set<std::string, std::less<>>& paths) { mark(paths, &Level::isExcluded); }
    void addMountPoints(const std::set<std::string, std::less<>>& paths) {
        mark(paths, &Level::isMountPoint);
    }

    /// For the entries of the root; null when nothing below the root is excluded.
    const Level* rootLevel() const { return root_.below.empty() ? nullptr : &root_; }

private:
    void mark(const std::set<std::string, std::less<>>& paths, bool Level::* mark);

    std::string rootPath_;
    Level root_;
};

} // namespace tarnwell
