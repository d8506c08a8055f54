#pragma once

// What uninstalling an application would take away, before anything is touched.

#include "TarnwellCore/Actions/InstalledApplication.hpp"
#include "TarnwellCore/Analysis/CleanupSafety.hpp"
#include "TarnwellCore/Platform/ItemMoving.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Why an item belongs to the application.
enum class LeftoverReason : std::uint8_t {
    application,      ///< it is the application
    identifier,       ///< its name is the application's identifier
    belowIdentifier,  ///< its name is an identifier below that
    groupContainer,   ///< a container that applications of one maker share, named by the identifier
    makersGroup,      ///< such a container that is named by the maker alone
    bundleIdentifier, ///< a bundle that says of itself that its identifier is the application's or below
    startsProgram,    ///< it starts a program of the application
    leadsThere,       ///< a link that leads into the application
    makersFolder,     ///< it has the application's name and lies in a folder with the maker's
    name,             ///< it has the application's name, which is more than one word
};

/// "identifier", "belowIdentifier" and so on.
std::string_view rawValue(LeftoverReason reason);

/// What makes an item one for `CleanupSafety::caution`, beside its reason.
enum class LeftoverDoubt : std::uint8_t {
    none,
    otherCopy,        ///< the application is installed a second time
    otherApplication, ///< an installed application of the same maker may use it
    otherUser,        ///< it belongs to another user
    shortIdentifier,  ///< the identifier has two components only, and may be a maker's
};

struct UninstallItem {
    std::filesystem::path path;
    LeftoverReason reason = LeftoverReason::application;
    LeftoverDoubt doubt = LeftoverDoubt::none;
    /// The application that the doubt is about.
    std::string otherName = {};
    CleanupSafety safety = CleanupSafety::safe;
    /// In bytes; all 0 where it could not be measured.
    std::int64_t size = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t reclaimableSize = 0;
    bool isMeasured = false;
    /// What lay there when it was looked at: nothing else is moved.
    ItemIdentity identity;

    /// Why it was matched, and what makes it doubtful, for the user.
    std::string explanation() const;

    bool operator==(const UninstallItem&) const = default;
};

/// Why an application is left alone.
struct UninstallRefusal {
    enum class Kind : std::uint8_t {
        notThere,        ///< nothing is there
        notApplication,  ///< something else is
        link,            ///< a link to somewhere else
        notOfUser,       ///< the system or its packages have installed it
        securityProduct, ///< it has to be removed by its own uninstaller; `detail` is its maker
        running,         ///< `detail` says which program
        holdsHome,       ///< the home folder lies in it
    };
    Kind kind;
    std::string detail = {};

    /// For the user.
    std::string explanation() const;

    bool operator==(const UninstallRefusal&) const = default;
};

struct UninstallPlan {
    /// Absent where there is none.
    std::optional<InstalledApplication> application = {};
    /// Then nothing can be carried out; the items of a running application or of a security product are
    /// listed all the same.
    std::optional<UninstallRefusal> refusal = {};
    /// The application first, then the rest by path. None lies in another.
    std::vector<UninstallItem> items = {};
    /// Folders that could not be looked through.
    std::vector<std::filesystem::path> unreadable = {};
};

} // namespace tarnwell
