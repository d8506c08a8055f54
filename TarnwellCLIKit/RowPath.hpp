#pragma once

// The paths of a listing's rows, built on the way: from one row to the next only what differs is removed and
// added, in one buffer, already in the form in which the document writes it. A listing of a 10,000 folders
// deep chain would spend its time in building paths otherwise.

#include "TarnwellCLIKit/CLIListing.hpp"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

namespace RowPathParts {

/// A folder of which children may follow.
struct Level {
    const FileNode* folder;
    /// Bytes of its path in the document's form.
    std::size_t length;
    /// Whether its path holds something that the form calls remarkable.
    bool isRemarkable;
};

/// Leaves levels until the last one is the parent of `node`; false when none is.
inline bool returnToParent(std::vector<Level>& levels, const FileNode& node) {
    while (!levels.empty() && levels.back().folder != node.parent())
        levels.pop_back();
    return !levels.empty();
}

/// What stands before the "/" and the name in the path of `node`. The path of "/" ends with its "/".
inline std::string pathBeforeName(const FileNode& node) {
    std::string path = node.parent() == nullptr ? std::string() : node.parent()->path();
    if (path.ends_with('/'))
        path.pop_back();
    return path;
}

} // namespace RowPathParts

/// `Form` says how the document writes a component: `static bool append(std::string&, std::string_view)`
/// returns whether the component is remarkable, `static std::size_t length(std::string_view)` is the number
/// of bytes it appends. Rows are nodes with a parent.
template <class Form>
class RowPath {
public:
    /// Makes this the path of another row. Fastest from a row to its child or to its next sibling.
    void moveTo(const FileNode& node) {
        if (!RowPathParts::returnToParent(levels_, node))
            enterFolders(node);
        text_.resize(levels_.back().length);
        text_ += '/';
        nameStart_ = text_.size();
        nameIsRemarkable_ = Form::append(text_, node.name());
        pathIsRemarkable_ = nameIsRemarkable_ || levels_.back().isRemarkable;
        if (!node.children().empty())
            levels_.push_back({&node, text_.size(), pathIsRemarkable_});
    }

    std::string_view path() const { return text_; }
    std::string_view name() const { return path().substr(nameStart_); }
    bool pathIsRemarkable() const { return pathIsRemarkable_; }
    bool nameIsRemarkable() const { return nameIsRemarkable_; }

private:
    /// Enters all folders above a node at once: in a deep chain rows may follow that lie in any of them.
    void enterFolders(const FileNode& node) {
        std::vector<const FileNode*> folders;
        for (const FileNode* above = node.parent(); above != nullptr; above = above->parent())
            folders.push_back(above);
        text_.clear();
        if (folders.empty()) {
            levels_.push_back({nullptr, 0, false});
            return;
        }
        std::string root = folders.back()->path();
        if (root.ends_with('/'))
            root.pop_back();
        bool isRemarkable = Form::append(text_, root);
        levels_.push_back({folders.back(), text_.size(), isRemarkable});
        for (auto folder = folders.rbegin() + 1; folder != folders.rend(); ++folder) {
            text_ += '/';
            isRemarkable = Form::append(text_, (*folder)->name()) || isRemarkable;
            levels_.push_back({*folder, text_.size(), isRemarkable});
        }
    }

    std::string text_;
    std::size_t nameStart_ = 0;
    bool nameIsRemarkable_ = false;
    bool pathIsRemarkable_ = false;
    std::vector<RowPathParts::Level> levels_;
};

/// Adds up how long the rows' own content will be, so that a document is written without growing.
template <class Form>
class RowContentLength {
public:
    /// Bytes of the row's name, path and three sizes; for each size at most one too many.
    std::size_t of(const CLIListedNode& row) {
        const FileNode& node = *row.node;
        if (!RowPathParts::returnToParent(levels_, node))
            levels_.push_back({node.parent(), Form::length(RowPathParts::pathBeforeName(node)), false});
        const std::size_t nameLength = Form::length(node.name());
        const std::size_t pathLength = levels_.back().length + 1 + nameLength;
        if (!node.children().empty())
            levels_.push_back({&node, pathLength, false});
        return nameLength + pathLength + digits(row.size()) + digits(row.allocatedSize()) +
               digits(row.reclaimableSize());
    }

private:
    /// Decimal digits and a sign: exact or one too many.
    static std::size_t digits(std::int64_t number) {
        const auto bits = static_cast<std::size_t>(std::bit_width(static_cast<std::uint64_t>(number)));
        return number < 0 ? 20 : bits * 1233 / 4096 + 1; // 1233 / 4096 is just above log10(2)
    }

    std::vector<RowPathParts::Level> levels_;
};

} // namespace tarnwell
