#pragma once

// Lines that people type in the browser, as the words of the commands that they stand for.

#include "TarnwellCore/Analysis/CleanupRule.hpp"
#include "TarnwellCore/Analysis/SearchConditions.hpp"
#include "TarnwellCore/Platform/Date.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Splits at blanks, but not between quotes (" or ') or behind a backslash.
std::vector<std::string> typedWords(std::string_view text);

/// Conditions of a line such as "report *.pdf >10MB --older 1y": plain words are texts of names, words with *
/// or ? patterns, the rest is as for the command find. Throws TidyUsageError.
SearchConditions typedConditions(std::string_view text, SizeMode mode, Date now);

/// A rule of a line such as "Old disks --location ~/Downloads --larger 100MB", with what rules add takes; and
/// the line of a rule. Throws TidyUsageError.
CleanupRule typedRule(std::string_view text);
std::string ruleText(const CleanupRule& rule);

} // namespace tarnwell
