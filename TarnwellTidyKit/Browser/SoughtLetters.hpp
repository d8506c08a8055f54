#pragma once

// The letters of names that a filter or a search has found, where they are drawn.

#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Text/CaseFolder.hpp"
#include "TarnwellTidyKit/Screen/Grid.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Not for two threads at a time.
class SoughtLetters {
public:
    SoughtLetters() = default;
    /// Of a filter: in any letter case.
    explicit SoughtLetters(std::string_view filter);
    /// Those of the conditions that ask for a text in the name; patterns have no letters of their own.
    explicit SoughtLetters(const std::vector<TextCondition>& names);

    /// Gives the cells of a line that show such letters the role `match`: where a name is cut, or shown with
    /// other characters than it has, what can be seen decides.
    void show(Grid& grid, GridArea line);
    /// As `show`, in the last component of a path.
    void showInPath(Grid& grid, GridArea line);

private:
    struct Text {
        std::string letters;
        bool regardsCase = false;
    };

    CaseFolder folder_;
    std::vector<Text> texts_;
};

} // namespace tarnwell
