#include "TarnwellTidyKit/Browser/BrowserMemory.hpp"

#include <algorithm>
#include <optional>

namespace tarnwell {

namespace {

// Beside the settings that all programs share; nobody else reads these.
constexpr std::string_view folderKey = "com.tarnwell.browserFolder";
constexpr std::string_view viewKey = "com.tarnwell.browserView";
constexpr std::string_view sortKeyKey = "com.tarnwell.browserSort";
constexpr std::string_view reversedKey = "com.tarnwell.browserSortReversed";
constexpr std::string_view foldersFirstKey = "com.tarnwell.browserFoldersFirst";
constexpr std::string_view columnsKey = "com.tarnwell.browserColumns";

} // namespace

BrowserMemory BrowserMemory::load(const AppSettings& settings) {
    const UserDefaults& store = settings.defaults();
    BrowserMemory memory;
    memory.folder = store.string(folderKey).value_or("");
    const auto view = std::ranges::find(browserViewNames, store.string(viewKey).value_or("list"),
                                        [](const BrowserViewName& name) { return name.rawValue; });
    if (view != browserViewNames.end())
        memory.view = static_cast<BrowserView>(view - browserViewNames.begin());
    memory.sort.key = sortKeyFromRawValue(store.string(sortKeyKey).value_or("")).value_or(SortKey::size);
    memory.sort.isReversed = store.boolean(reversedKey).value_or(false);
    memory.sort.foldersFirst = store.boolean(foldersFirstKey).value_or(false);
    memory.mode = settings.sizeMode();
    memory.showsHidden = settings.showHiddenFiles();
    memory.columns = static_cast<unsigned>(store.integer(columnsKey).value_or(0)) & 15U;
    memory.asksBeforeTrash = settings.confirmBeforeTrash();
    return memory;
}

void BrowserMemory::store(AppSettings& settings) const {
    if (mode != settings.sizeMode())
        settings.setSizeMode(mode);
    if (showsHidden != settings.showHiddenFiles())
        settings.setShowHiddenFiles(showsHidden);
    UserDefaults::Changes changes;
    changes.emplace(folderKey, folder);
    changes.emplace(viewKey, std::string(browserViewNames[static_cast<std::size_t>(view)].rawValue));
    changes.emplace(sortKeyKey, std::string(rawValue(sort.key)));
    changes.emplace(reversedKey, sort.isReversed);
    changes.emplace(foldersFirstKey, sort.foldersFirst);
    changes.emplace(columnsKey, static_cast<std::int64_t>(columns));
    settings.defaults().apply(std::move(changes));
}

} // namespace tarnwell
