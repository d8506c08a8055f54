#include "TarnwellCore/Platform/LinkResolution.hpp"

#include "TarnwellCore/Platform/FileCalls.hpp"
#include "TarnwellCore/Platform/FolderOpening.hpp"
#include "TarnwellCore/Platform/OpenDescriptor.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace tarnwell {

namespace {

std::optional<std::string> currentFolder() {
    // The length is not limited by PATH_MAX when the library allocates, as POSIX leaves it free to do.
    // NOLINTNEXTLINE(clang-analyzer-unix.StdCLibraryFunctions)
    const std::unique_ptr<char, decltype(&std::free)> path(::getcwd(nullptr, 0), &std::free);
    // The kernel's "(unreachable)/..." stands for a folder outside of this process's root.
    if (!path || *path != '/')
        return std::nullopt;
    return std::string(path.get());
}

/// Resolves a path one component at a time, as realpath does, but of any length: the kernel is asked
/// relative to a folder along the way (the anchor), so that no text it sees comes near PATH_MAX.
class LinkResolver {
public:
    std::string resolve(std::string_view path) {
        if (!path.starts_with('/')) {
            std::optional<std::string> current = currentFolder();
            if (!current)
                return std::string(path);
            if (*current != "/")
                resolved_ = std::move(*current);
            anchorNumber_ = AT_FDCWD;
            anchorLength_ = resolved_.size();
        }
        pending_.emplace_back(path);
        while (!pending_.empty()) {
            Text& text = pending_.back();
            if (text.isRead()) {
                pending_.pop_back();
                continue;
            }
            const std::string_view component = text.nextComponent();
            if (component == "..")
                removeLastComponent();
            else if (!component.empty() && component != ".")
                append(component);
        }
        return resolved_.empty() ? "/" : resolved_;
    }

private:
    /// A path or a link's target that is being read from the front.
    struct Text {
        std::string text;
        std::size_t position = 0;

        explicit Text(std::string_view whole) : text(whole) {}
        bool isRead() const { return position >= text.size(); }
        std::string_view nextComponent() {
            const std::size_t end = std::min(text.find('/', position), text.size());
            const std::string_view component(text.data() + position, end - position);
            position = end + 1;
            return component;
        }
    };

    /// As many links in a path as the most patient of the systems follows itself.
    static constexpr int maximumLinks = 40;
    /// The kernel gets at most this, one component and a "/".
    static constexpr std::size_t anchorDistance = PATH_MAX / 4;

    void append(std::string_view component) {
        const std::size_t parentLength = resolved_.size();
        resolved_ += '/';
        resolved_ += component;
        char target[PATH_MAX];
        const ssize_t length = linksFollowed_ < maximumLinks ? readLink(target, sizeof target) : -1;
        if (length <= 0) // not a link, or nothing that can be resolved: kept as text
            return;
        ++linksFollowed_;
        const std::string_view targetText(target, static_cast<std::size_t>(length));
        resolved_.resize(targetText.starts_with('/') ? 0 : parentLength);
        forgetAnchorBelow(resolved_.size());
        pending_.emplace_back(targetText);
    }

    void removeLastComponent() {
        const std::size_t slash = resolved_.rfind('/');
        resolved_.resize(slash == std::string::npos ? 0 : slash);
        forgetAnchorBelow(resolved_.size());
    }

    void forgetAnchorBelow(std::size_t length) {
        if (anchorLength_ <= length)
            return;
        anchor_ = OpenDescriptor();
        anchorNumber_ = -1;
        anchorLength_ = 0;
    }

    ssize_t readLink(char* target, std::size_t size) {
        while (resolved_.size() - anchorLength_ > anchorDistance + NAME_MAX && moveAnchor()) {
        }
        return withoutInterruption([&] { return ::readlinkat(anchorNumber_, fromAnchor(), target, size); });
    }

    /// The text after the anchor; absolute when the anchor is the root.
    const char* fromAnchor() const {
        return resolved_.c_str() + anchorLength_ + (anchorNumber_ != -1 ? 1 : 0);
    }

    /// Makes a folder farther down the new anchor.
    bool moveAnchor() {
        const std::size_t end = resolved_.rfind('/', anchorLength_ + anchorDistance);
        if (end == std::string::npos || end <= anchorLength_)
            return false;
        const std::string step(fromAnchor(), resolved_.c_str() + end);
        OpenDescriptor next(withoutInterruption(
            [&] { return FolderOpeningDetail::openForTraversal(anchorNumber_, step.c_str()); }));
        if (!next.isOpen())
            return false;
        anchor_ = std::move(next);
        anchorNumber_ = anchor_.number();
        anchorLength_ = end;
        return true;
    }

    /// Absolute, without links, without a trailing "/": the root is empty.
    std::string resolved_;
    /// What is still to be read, the innermost link last.
    std::vector<Text> pending_;
    int linksFollowed_ = 0;
    /// The folder at the first `anchorLength_` bytes of `resolved_`; -1 with length 0 is the root.
    OpenDescriptor anchor_;
    int anchorNumber_ = -1;
    std::size_t anchorLength_ = 0;
};

} // namespace

std::string resolveEveryLink(std::string_view path) {
    return LinkResolver().resolve(path);
}

} // namespace tarnwell
