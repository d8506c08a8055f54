#pragma once

// uninstall APPLICATION: an application and what it has left, to the Trash.

#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct UninstallRequest {
    /// A path, an identifier or a name, as typed.
    std::string application;
    /// As typed; absent for the user's own.
    std::optional<std::string> home = {};
    /// Also what asks for caution.
    bool everything = false;
    /// The application alone.
    bool keepsLeftovers = false;
    TidyActChoices act;
    TidyOutputChoices output;

    bool operator==(const UninstallRequest&) const = default;

    static const TidyCommandSpec spec;
    static UninstallRequest read(const TidyArguments& arguments);
};

TidyResult run(const UninstallRequest& request, TidyContext& context);

} // namespace tarnwell
