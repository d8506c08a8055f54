#include "TarnwellTidyKit/Commands/SettingsCommand.hpp"

#include "TarnwellCore/Text/HarmlessText.hpp"
#include "TarnwellCore/Text/JSONWriter.hpp"
#include "TarnwellTidyKit/Commands/SettingsTable.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace tarnwell {

namespace {

using Verb = SettingsRequest::Verb;

/// A store that nobody else sees.
class ScratchDefaults final : public UserDefaults {
public:
    bool synchronize() override { return true; }

protected:
    std::optional<UserDefaultsValue> storedValue(std::string_view key) const override {
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }
    void store(Changes changes) override {
        for (auto& [key, value] : changes) {
            if (value)
                values_.insert_or_assign(key, *std::move(value));
            else
                values_.erase(key);
        }
    }

private:
    Values values_; // of one thread
};

const SettingRow& rowNamed(const std::string& name) {
    if (const SettingRow* row = settingRow(name))
        return *row;
    std::vector<std::string_view> names;
    for (const SettingRow& row : settingRows())
        names.push_back(row.name());
    const std::string_view nearest = nearestWord(name, names);
    throw TidyUsageError("There is no setting '" + harmless(name) + "'." +
                         (nearest.empty() ? std::string() : " Did you mean " + std::string(nearest) + "?"));
}

/// What the program keeps for itself is its own to change; the rules can only be brought back.
void expectSettable(const SettingRow& row, Verb verb) {
    const bool isReset = verb == Verb::reset && row.key == AppSettings::Key::cleanupRules;
    if (row.set == nullptr && !isReset)
        throw TidyUsageError(std::string(row.name()) + " is kept by the program itself and cannot be " +
                             (verb == Verb::set ? "set." : "reset."));
}

std::string listText(const AppSettings& settings, const TidyStyle& style) {
    using enum TidyColumn;
    TidyTable table({left, path, sentence, sentence});
    for (const SettingRow& row : settingRows())
        table.row({{std::string(row.name()), TidyRole::strong},
                   {row.text(settings)},
                   {std::string(row.meaning)},
                   {std::string(row.range), TidyRole::quiet}});
    std::string text;
    table.write(text, style);
    return text;
}

std::string document(const AppSettings& settings, const std::vector<const SettingRow*>& rows) {
    return tidyDocument([&](JSONWriter& json) {
        json.key("settings");
        json.beginObject();
        for (const SettingRow* row : rows) {
            json.key(row->name());
            row->writeValue(json, settings);
        }
        json.endObject();
    });
}

TidyResult list(const SettingsRequest& request, TidyContext& context) {
    if (!request.output.json)
        return {.standardOutput = listText(context.settings(), context.style(request.output))};
    std::vector<const SettingRow*> rows;
    for (const SettingRow& row : settingRows())
        rows.push_back(&row);
    std::ranges::sort(rows, {}, [](const SettingRow* row) { return row->name(); });
    return {.standardOutput = document(context.settings(), rows)};
}

TidyResult show(const SettingRow& row, const SettingsRequest& request, TidyContext& context) {
    if (request.output.json)
        return {.standardOutput = document(context.settings(), {&row})};
    return {.standardOutput = harmless(row.text(context.settings())) + "\n"};
}

TidyResult set(const SettingsRequest& request, TidyContext& context) {
    const SettingRow& row = rowNamed(request.key);
    // Tried on a store of its own first, so that nothing is half set and a dry run tells the truth.
    const auto scratch = std::make_shared<ScratchDefaults>();
    AppSettings trial(scratch);
    if (!row.set(trial, request.values))
        throw TidyUsageError(std::string(row.name()) + " takes " + std::string(row.range) + ".");
    if (request.act.dryRun)
        return {.standardOutput = std::string(row.name()) + " would be " + harmless(row.text(trial)) + ".\n"};
    const std::string name(row.name());
    const auto consent =
        context.consent(request.act, "Set " + name + " to " + harmless(row.text(trial)) + ", from " +
                                         harmless(row.text(context.settings())) + "?");
    if (consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    context.act([&] {
        row.set(context.settings(), request.values);
        storeSettings(context.settings());
    });
    return show(row, request, context);
}

TidyResult reset(const SettingsRequest& request, TidyContext& context) {
    const SettingRow* row = request.key.empty() ? nullptr : &rowNamed(request.key);
    if (request.act.dryRun)
        return {.standardOutput = row != nullptr ? std::string(row->name()) + " would be as it comes.\n"
                                                 : "All preferences would be as they come.\n"};
    std::string question = "Reset all preferences?";
    if (row != nullptr && row->key == AppSettings::Key::cleanupRules)
        question = "Remove all rules of your own, and bring back those that it comes with?";
    else if (row != nullptr)
        question = "Reset " + std::string(row->name()) + ", which is " +
                   harmless(row->text(context.settings())) + "?";
    if (const auto consent = context.consent(request.act, question); consent != TidyContext::Consent::given)
        return TidyContext::withoutConsent(consent);
    context.act([&] {
        if (row != nullptr)
            context.settings().defaults().remove(AppSettings::rawValue(row->key));
        else
            context.settings().reset();
        storeSettings(context.settings());
    });
    return row != nullptr ? show(*row, request, context) : list(request, context);
}

} // namespace

void storeSettings(AppSettings& settings) {
    if (!settings.defaults().synchronize())
        throw std::runtime_error("The settings could not be stored.");
}

const TidyCommandSpec SettingsRequest::spec = {
    .name = "settings",
    .group = "Arrange",
    .operands = "list | get KEY | set KEY VALUE... | reset [KEY]",
    .summary = "What all commands go by unless an option says otherwise",
    .details =
        "Lists the settings with what may be set, prints one, sets one, or brings back what it comes with. "
        "reset without a key brings back all preferences; the cleanup rules, the schedule's folder and what "
        "the program remembers stay. Sizes are written 500MB or 1.5GiB, truths yes or no, a list of paths as "
        "words of their own, none for an empty one.",
    .words = "list|get|set|reset",
    .shared = static_cast<unsigned>(TidyShared::act),
};

SettingsRequest SettingsRequest::read(const TidyArguments& arguments) {
    SettingsRequest request{.key = {}, .values = {}, .act = arguments.act(), .output = arguments.output()};
    std::vector<std::string> words = arguments.operands();
    const std::string verb = words.empty() ? "list" : words.front();
    if (!words.empty())
        words.erase(words.begin());
    const auto expect = [&](std::size_t least, std::size_t most) {
        if (words.size() < least || words.size() > most)
            throw TidyUsageError("settings takes " + std::string(spec.operands) + ".");
    };
    if (verb == "list") {
        expect(0, 0);
    } else if (verb == "get") {
        request.verb = Verb::get;
        expect(1, 1);
    } else if (verb == "set") {
        request.verb = Verb::set;
        expect(1, SIZE_MAX);
    } else if (verb == "reset") {
        request.verb = Verb::reset;
        expect(0, 1);
    } else {
        failUnknownVerb(spec, verb);
    }
    if (!words.empty()) {
        request.key = rowNamed(words.front()).name();
        if (request.verb != Verb::get)
            expectSettable(rowNamed(request.key), request.verb);
        request.values.assign(words.begin() + 1, words.end());
    }
    return request;
}

TidyResult run(const SettingsRequest& request, TidyContext& context) {
    switch (request.verb) {
    case Verb::list:
        return list(request, context);
    case Verb::get:
        return show(rowNamed(request.key), request, context);
    case Verb::set:
        return set(request, context);
    case Verb::reset:
        return reset(request, context);
    }
    return {};
}

} // namespace tarnwell
