// The decoders of stored cleanup rules. Input: a JSON document, a list of rules or one rule.
// Exercises: TarnwellCore/Analysis/CleanupRuleCoding.cpp

#include "TarnwellCore/Analysis/CleanupRuleCoding.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Require.hpp"

namespace tarnwell::fuzz {

namespace {

void requireGoodRule(const CleanupRule& rule) {
    require(!rule.id.empty() && !rule.name.empty(), "a rule has an id and a name");
    require(!rule.conditionSummary().empty(), "a rule has a summary");
    const CleanupRule normal = rule.normalized();
    const std::string location = normal.locationPrefix.value_or("/");
    require(location == "/" || (!location.empty() && !location.ends_with('/')),
            "a location is in normal form");
    std::set<std::string> distinct;
    for (const std::string& extension : normal.extensions)
        require(!extension.empty() && !extension.starts_with('.') && distinct.insert(extension).second,
                "extensions are in normal form");
}

std::optional<CleanupRule> singleRule(std::string_view document) {
    try {
        return decodeCleanupRule(document);
    } catch (const DataCorruptionError& error) {
        require(!std::string_view(error.what()).empty(), "an error says what is wrong");
        return std::nullopt;
    }
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    const std::string_view document(reinterpret_cast<const char*>(data), size);
    const std::vector<CleanupRule> rules = CleanupRule::rules(document);
    for (const CleanupRule& rule : rules)
        fuzz::requireGoodRule(rule);
    fuzz::require(CleanupRule::rules(CleanupRule::encodeStored(rules)) == rules, "a list is read back");

    if (const auto rule = fuzz::singleRule(document)) {
        fuzz::requireGoodRule(*rule);
        fuzz::require(fuzz::singleRule(document) == rule, "a rule is read the same each time");
        if (!document.starts_with("\xEF\xBB\xBF")) // a mark that may only stand in front
            fuzz::require(CleanupRule::rules("[" + std::string(document) + "]") == std::vector{*rule},
                          "a rule is the same rule in a list");
    }
    return 0;
}
