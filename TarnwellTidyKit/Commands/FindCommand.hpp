#pragma once

// find FOLDER: what meets conditions in a folder.

#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellTidyKit/Commands/TidyArguments.hpp"
#include "TarnwellTidyKit/Commands/TidyContext.hpp"

namespace tarnwell {

struct FindRequest {
    enum class Order : std::uint8_t { walk, size, name, path, modified };

    /// Ages are counted back from now, which a command line does not know.
    struct Ages {
        std::optional<std::string> older = {};
        std::optional<std::string> newer = {};
        std::optional<std::string> unopened = {};

        bool operator==(const Ages&) const = default;
    };

    std::string folder;
    /// Without dates and size mode.
    SearchConditions conditions;
    Ages ages;
    Order order = Order::walk;
    std::optional<std::int64_t> top = {};
    /// Only paths, each ended by a NUL.
    bool print0 = false;
    TidyScanChoices scan;
    TidyOutputChoices output;

    bool operator==(const FindRequest&) const = default;

    static const TidyCommandSpec spec;
    static FindRequest read(const TidyArguments& arguments);
};

TidyResult run(const FindRequest& request, TidyContext& context);

/// All conditions of a request. Throws TidyUsageError for a text that is no age.
SearchConditions conditionsOf(const FindRequest& request, SizeMode mode, Date now);

} // namespace tarnwell
