#include "TarnwellTidyKit/Commands/RulesCommand.hpp"

#include "TarnwellCore/Analysis/RuleEvaluator.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/SettingsCommand.hpp"
#include "TarnwellTidyKit/Commands/TidyCategories.hpp"
#include "TarnwellTidyKit/Commands/TidyOutcomes.hpp"
#include "TarnwellTidyKit/Commands/TidyQuantities.hpp"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

using Verb = RulesRequest::Verb;

constexpr TidyOptionSpec options[] = {
    {.name = "--location",
     .value = "FOLDER",
     .help = "Only in this folder; ~/Downloads is in every home",
     .completes = TidyCompletes::folders},
    {.name = "--category", .value = "NAME", .help = "Only of this category; may be repeated"},
    {.name = "--extension", .value = "EXT", .help = "Only with this extension; may be repeated"},
    {.name = "--larger", .value = "SIZE", .help = "Only from this size on"},
    {.name = "--older", .value = "AGE", .help = "Only what was not modified for so long: 30d, 6w, 1y"},
    {.name = "--unopened", .value = "AGE", .help = "Only what was not opened for so long"},
};

std::vector<CleanupRule> storedRules(TidyContext& context) {
    return context.settings().cleanupRules().value_or(CleanupRule::presets());
}

std::optional<std::int64_t> days(const TidyArguments& arguments, std::string_view option) {
    const auto text = arguments.value(option);
    if (!text)
        return std::nullopt;
    const auto count = daysFromText(*text);
    if (!count)
        throw TidyUsageError(std::string(option) + " takes whole days such as 30d, 6w or 1y, not '" +
                             harmless(*text) + "'.");
    return count;
}

CleanupRule ruleOf(const TidyArguments& arguments, const std::string& name) {
    CleanupRule rule{.name = name};
    rule.locationPrefix = arguments.value("--location");
    if (rule.locationPrefix && !rule.locationPrefix->starts_with("~/"))
        rule.locationPrefix = DiskScanner::normalize(typedPath(*rule.locationPrefix));
    rule.categories = categoriesFrom(arguments, "--category");
    rule.extensions = arguments.values("--extension");
    rule.minimumSize = arguments.size("--larger");
    rule.olderThanDays = days(arguments, "--older");
    rule.lastOpenedBeforeDays = days(arguments, "--unopened");
    rule = rule.normalized();
    if (rule == CleanupRule{.name = name})
        throw TidyUsageError("A rule without conditions would match everything. Give it some: rules --help.");
    return rule;
}

/// The place of the rule with this ID, or the only one of this name.
std::size_t indexOf(const std::vector<CleanupRule>& rules, const std::string& word) {
    const auto byID = std::ranges::find(rules, word, &CleanupRule::id);
    const auto found = byID != rules.end() ? byID : std::ranges::find(rules, word, &CleanupRule::name);
    if (found == rules.end())
        throw std::runtime_error("There is no rule '" + word + "'. See: tarnwell-tidy rules list");
    if (byID == rules.end() && std::ranges::count(rules, word, &CleanupRule::name) > 1)
        throw std::runtime_error("Several rules are called '" + word + "': name one by its ID.");
    return static_cast<std::size_t>(found - rules.begin());
}

void writeRule(JSONWriter& json, const CleanupRule& rule) {
    const auto list = [&](std::string_view key, const auto& values, auto text) {
        json.key(key);
        json.beginArray();
        for (const auto& value : values)
            json.string(text(value));
        json.endArray();
    };
    const auto number = [&](std::string_view key, const std::optional<std::int64_t>& value) {
        json.key(key);
        if (value)
            json.integer(*value);
        else
            json.null();
    };
    json.beginObject();
    list("categories", rule.categories, [](FileCategory category) { return displayName(category); });
    list("extensions", rule.extensions, [](const std::string& extension) { return extension; });
    json.key("id");
    json.string(rule.id);
    json.key("isEnabled");
    json.boolean(rule.isEnabled);
    number("lastOpenedBeforeDays", rule.lastOpenedBeforeDays);
    json.key("locationPrefix");
    if (rule.locationPrefix)
        json.string(*rule.locationPrefix);
    else
        json.null();
    number("minimumSize", rule.minimumSize);
    json.key("name");
    json.string(rule.name);
    number("olderThanDays", rule.olderThanDays);
    json.endObject();
}

TidyResult listed(const std::vector<CleanupRule>& rules, const RulesRequest& request,
                  const TidyContext& context) {
    if (request.output.json)
        return {.standardOutput = tidyDocument([&](JSONWriter& json) {
                    json.key("rules");
                    json.beginArray();
                    for (const CleanupRule& rule : rules)
                        writeRule(json, rule);
                    json.endArray();
                })};
    if (rules.empty())
        return {.standardOutput = "There are no rules.\n"};
    using enum TidyColumn;
    TidyTable table({left, sentence, sentence, left});
    for (const CleanupRule& rule : rules)
        table.row({{rule.isEnabled ? "on" : "off", rule.isEnabled ? TidyRole::good : TidyRole::quiet},
                   {rule.name, TidyRole::strong},
                   {rule.conditionSummary()},
                   {rule.id, TidyRole::quiet}});
    std::string text;
    table.write(text, context.style(request.output));
    return {.standardOutput = text};
}

/// Asks with the rules that a change is about, and makes it: in the rules as they are then.
TidyResult store(const std::function<void(std::vector<CleanupRule>&)>& change,
                 const std::vector<std::string>& about, std::string_view question,
                 const RulesRequest& request, TidyContext& context) {
    std::vector<CleanupRule> rules;
    if (!request.act.dryRun) {
        const auto consent = context.consent(request.act, questionText(question, about));
        if (consent != TidyContext::Consent::given)
            return TidyContext::withoutConsent(consent);
        context.act([&] {
            rules = context.settings().changeCleanupRules(change);
            storeSettings(context.settings());
        });
    } else {
        rules = storedRules(context);
        change(rules);
    }
    TidyResult result = listed(rules, request, context);
    if (request.act.dryRun && !request.output.json)
        result.standardOutput = "The rules would be:\n" + result.standardOutput;
    return result;
}

TidyResult add(const RulesRequest& request, TidyContext& context) {
    CleanupRule rule = *request.rule;
    rule.id = CleanupRule::makeDraft().id;
    const std::string about = rule.name + ": " + rule.conditionSummary();
    return store([&](std::vector<CleanupRule>& rules) { rules.push_back(rule); }, {about}, "Add this rule?",
                 request, context);
}

/// Does something to each of the rules that were named, in the list and at its place there.
template <class Step>
TidyResult changeNamed(const RulesRequest& request, TidyContext& context, std::string_view question,
                       Step step) {
    // By their IDs from now on: while somebody is asked, another may get the name.
    std::vector<CleanupRule> rules = storedRules(context);
    std::vector<std::string> ids;
    std::vector<std::string> names;
    for (const std::string& word : request.rules) {
        const std::size_t index = indexOf(rules, word);
        ids.push_back(rules[index].id);
        names.push_back(rules[index].name);
        step(rules, index);
    }
    return store(
        [&](std::vector<CleanupRule>& present) {
            for (const std::string& id : ids)
                step(present, indexOf(present, id));
        },
        names, question, request, context);
}

TidyResult remove(const RulesRequest& request, TidyContext& context) {
    return changeNamed(request, context, "Remove these rules?",
                       [](std::vector<CleanupRule>& rules, std::size_t index) {
                           rules.erase(rules.begin() + static_cast<std::ptrdiff_t>(index));
                       });
}

TidyResult switchRules(const RulesRequest& request, TidyContext& context, bool isEnabled) {
    return changeNamed(
        request, context, isEnabled ? "Switch these rules on?" : "Switch these rules off?",
        [=](std::vector<CleanupRule>& rules, std::size_t index) { rules[index].isEnabled = isEnabled; });
}

TidyResult test(const RulesRequest& request, TidyContext& context) {
    std::vector<CleanupRule> rules = storedRules(context);
    if (!request.rules.empty()) {
        std::vector<CleanupRule> named;
        for (const std::string& word : request.rules) {
            named.push_back(rules[indexOf(rules, word)]);
            named.back().isEnabled = true; // somebody wants to know
        }
        rules = std::move(named);
    }
    ScanResult scan = context.scan(request.folder, request.scan);
    const std::vector<RuleMatch> matches = RuleEvaluator::evaluate(
        rules, *scan.root, context.services.now(), context.services.home().native(), context.token());
    TidyResult result;
    const TidyStyle style = context.style(request.output);
    TextOutput output = context.output();
    if (request.output.json) {
        result.standardOutput = tidyDocument(output, [&](JSONWriter& json) {
            writeUnreadable(json, scan.stats);
            json.key("matches");
            json.beginArray();
            for (const RuleMatch& match : matches) {
                json.beginObject();
                json.key("itemCount");
                json.integer(match.itemCount);
                json.key("paths");
                json.beginArray();
                for (const FileNode* node : match.nodes) {
                    json.string(node->path());
                    output.endPart();
                }
                json.endArray();
                json.key("reclaimable");
                json.integer(match.reclaimableSize);
                json.key("rule");
                writeRule(json, match.rule);
                json.key("size");
                json.integer(match.totalSize);
                json.endObject();
            }
            json.endArray();
        });
    } else {
        for (const RuleMatch& match : matches) {
            output.text() += style.painted(harmless(match.rule.name), TidyRole::heading) + ": " +
                             countedText(match.itemCount, "item", "items") + ", " +
                             sizeText(match.totalSize) + "\n";
            TidyTable table({TidyColumn::right, TidyColumn::path}, 2);
            for (const FileNode* node : match.nodes)
                table.row({{sizeText(node->size)}, {.text = {}, .node = node}});
            table.write(output, style);
        }
        if (matches.empty())
            output.text() += "No rule matches anything there.\n";
        result.standardOutput = output.finish();
        result.standardError = context.unreadableText(scan, style);
    }
    context.keep(std::move(scan));
    return result;
}

} // namespace

const TidyCommandSpec RulesRequest::spec = {
    .name = "rules",
    .group = "Arrange",
    .operands = "list | add NAME | remove RULE... | enable RULE... | disable RULE... | test FOLDER [RULE...]",
    .summary = "Your own rules for what could be cleared",
    .details =
        "A rule matches what meets all of its conditions, and is named by its ID or its name. test shows "
        "what the "
        "rules would match in a folder, those that are named also when they are off. Changes are kept in the "
        "settings; nothing is ever cleaned by a rule alone.",
    .words = "list|add|remove|enable|disable|test",
    .completes = TidyCompletes::folders,
    .completesBehind = "test",
    .shared = TidyShared::scan | TidyShared::act,
    .options = options,
};

RulesRequest RulesRequest::read(const TidyArguments& arguments) {
    RulesRequest request{.rules = {},
                         .folder = {},
                         .scan = arguments.scan(),
                         .act = arguments.act(),
                         .output = arguments.output()};
    std::vector<std::string> words = arguments.operands();
    const std::string verb = words.empty() ? "list" : words.front();
    if (!words.empty())
        words.erase(words.begin());
    const auto expect = [&](std::size_t least, std::size_t most, std::string_view what) {
        if (words.size() < least || words.size() > most ||
            std::ranges::any_of(words, [](const std::string& word) { return word.empty(); }))
            throw TidyUsageError("rules " + verb + " takes " + std::string(what) + ".");
    };
    if (verb != "add")
        for (const TidyOptionSpec& option : options)
            if (arguments.has(option.name))
                throw TidyUsageError(std::string(option.name) + " goes with rules add.");
    if (verb == "list") {
        expect(0, 0, "nothing more");
    } else if (verb == "add") {
        request.verb = Verb::add;
        expect(1, 1, "a name and conditions");
        request.rule = ruleOf(arguments, words.front());
        words.clear();
    } else if (verb == "test") {
        request.verb = Verb::test;
        expect(1, SIZE_MAX, "a folder and, if you like, rules");
        request.folder = words.front();
        words.erase(words.begin());
    } else if (verb == "remove" || verb == "enable" || verb == "disable") {
        request.verb = verb == "remove" ? Verb::remove : verb == "enable" ? Verb::enable : Verb::disable;
        expect(1, SIZE_MAX, "rules, by their IDs or names");
    } else {
        failUnknownVerb(spec, verb);
    }
    request.rules = std::move(words);
    return request;
}

TidyResult run(const RulesRequest& request, TidyContext& context) {
    switch (request.verb) {
    case Verb::list:
        return listed(storedRules(context), request, context);
    case Verb::add:
        return add(request, context);
    case Verb::remove:
        return remove(request, context);
    case Verb::enable:
        return switchRules(request, context, true);
    case Verb::disable:
        return switchRules(request, context, false);
    case Verb::test:
        return test(request, context);
    }
    return {};
}

} // namespace tarnwell
