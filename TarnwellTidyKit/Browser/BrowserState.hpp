#pragma once

// Everything that the browser shows, as one value. Views look at it, events change it (BrowserUpdate.hpp);
// nothing here knows of cells, and nothing waits.

#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Layout/TreemapItem.hpp"
#include "TarnwellTidyKit/Browser/BrowserEvent.hpp"
#include "TarnwellTidyKit/Browser/BrowserJob.hpp"
#include "TarnwellTidyKit/Browser/BrowserView.hpp"
#include "TarnwellTidyKit/Browser/Marks.hpp"
#include "TarnwellTidyKit/Screen/Event.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnwell {

/// Where one stands in a list.
struct BrowserCursor {
    std::size_t row = 0;
    /// The first row that is seen.
    std::size_t top = 0;
    /// Whether somebody has moved it: then it stays on its item.
    bool isMoved = false;
};

/// What a job is to bring.
template <class Value>
struct Loaded {
    /// The request that is waited for; 0 for none.
    std::uint64_t awaited = 0;
    std::optional<Value> value = {};
    /// Why there is none.
    std::string failure = {};
    /// What it was asked about.
    const void* subject = nullptr;

    bool isLoading() const { return awaited != 0; }
    void forget() { *this = {}; }
};

/// A line that is typed into.
struct BrowserPrompt {
    enum class Kind : std::uint8_t { filter, find, goTo, rule, word };
    Kind kind = Kind::filter;
    std::string title = {};
    std::string text = {};
    /// Before which byte of the text the next character goes.
    std::size_t place = 0;
    /// What is wrong with the text, or what it comes to.
    std::string note = {};
    bool noteIsError = false;
    /// The word that must be typed before this is done.
    std::string word = {};
    std::optional<BrowserJob> job = {};
    /// What is acted on, for people.
    std::vector<std::string> lines = {};
    /// The rule that is edited, as it was; none for a new one.
    std::optional<CleanupRule> rule = {};
};

/// Something that is answered with yes or no.
struct BrowserQuestion {
    std::string title = {};
    std::vector<std::string> lines = {};
    BrowserJob job = {};
    /// With yes the program ends.
    bool leaves = false;
};

struct BrowserOutcome {
    std::string text;
    /// Why nothing happened.
    bool isFailure = false;
};

struct RunningJob {
    std::uint64_t id = 0;
    std::string title;
    std::string text;
    BrowserLane lane = BrowserLane::look;
};

/// What only a screen can do.
struct ScreenWish {
    enum class Kind : std::uint8_t { copy, shell };
    Kind kind;
    /// The text, or the folder.
    std::string text;
};

/// One row of the duplicates: a group, or one of its members.
struct DuplicateRow {
    static constexpr std::uint32_t none = UINT32_MAX;
    std::uint32_t group = 0;
    std::uint32_t member = none;
};

/// What an act is about.
struct BrowserTarget {
    /// Full.
    std::string path;
    /// Null for what lies outside of the tree.
    const FileNode* node = nullptr;
    bool isDirectory = false;
};

struct BrowserState {
    // --- What is looked at ----------------------------------------------------------------------------

    /// A full path; empty before a folder was chosen.
    std::string rootPath;
    /// The root of a scan of which nothing is known yet, while another tree is shown.
    std::string wantedRoot;
    std::shared_ptr<const BrowserTree> tree;
    std::shared_ptr<const LiveSource> live;
    std::shared_ptr<const Removals> removals = std::make_shared<Removals>();
    /// Where one stands; null before anything is known. A node of the tree, finished or not.
    const FileNode* folder = nullptr;
    /// An entry to be selected as soon as its folder is shown.
    const FileNode* wantedEntry = nullptr;
    /// The entry of the list's row where one stands.
    const FileNode* selectedNode = nullptr;

    std::uint64_t scanAwaited = 0;
    ScanProgress progress;
    /// A look at the scan under way, and how many seconds into the scan the next one may be taken.
    std::uint64_t lookAwaited = 0;
    double nextLook = 0;
    /// What went and came while a scan reads, which may have been at those places before.
    ReadingChanges meanwhile;
    /// The folder of the tree where something came back that is not in it.
    const FileNode* unread = nullptr;
    /// Acts that are not in the books yet, and the job that does that.
    ChangeList unfollowed;
    std::uint64_t followAwaited = 0;
    TreeNotes notes() const { return {removals, marks}; }
    bool isScanning() const { return scanAwaited != 0; }

    // --- How it is shown ------------------------------------------------------------------------------

    BrowserView view = BrowserView::list;
    std::array<BrowserCursor, browserViewCount> cursors;
    BrowserCursor& cursor() { return cursors[static_cast<std::size_t>(view)]; }
    const BrowserCursor& cursor() const { return cursors[static_cast<std::size_t>(view)]; }
    OrderingChoice choice;
    unsigned columns = 0;
    bool has(BrowserColumn column) const { return (columns & static_cast<unsigned>(column)) != 0; }
    /// Whether details are shown where they are not by themselves, or the other way round.
    bool togglesDetails = false;
    /// How many rows a list shows, and how large a map is, in its own points.
    std::size_t rowsSeen = 20;
    double mapWidth = 80;
    double mapHeight = 40;

    // --- The list of the folder -----------------------------------------------------------------------

    std::shared_ptr<const BrowserEntries> entries;
    std::shared_ptr<const Ordering> order;
    std::uint64_t orderAwaited = 0;

    // --- What is marked -------------------------------------------------------------------------------

    Marks marks;
    Loaded<FreedBytes> freed;
    /// Where a range of rows begins.
    std::optional<std::size_t> rangeStart;
    /// The item of that row; null where rows are none.
    const FileNode* rangeNode = nullptr;

    /// Whether what is to be deleted could go to a Trash; keys wait for that.
    std::uint64_t waysOutAwaited = 0;

    // --- The other views ------------------------------------------------------------------------------

    Loaded<std::vector<TreemapItem>> map;
    /// The tile where one stands: a place in the map.
    std::size_t tile = 0;
    Loaded<ReportFigures> figures;
    Loaded<FoundItems> found;
    std::string foundText;
    /// What was searched for below which folder; nothing for what a rule matches.
    std::optional<SearchConditions> foundBy;
    const FileNode* foundIn = nullptr;
    Loaded<std::vector<SpaceSaverFinding>> findings;
    Loaded<RulesFound> rules;
    /// The rules as they were seen or edited last; what was edited may still have to be stored.
    std::vector<CleanupRule> ruleList;
    bool areRulesEdited = false;
    /// The request of the last change.
    std::uint64_t rulesStoring = 0;
    /// What a rule that is being edited matches.
    Loaded<RulesFound> tried;
    Loaded<std::shared_ptr<const DuplicateResult>> duplicates;
    std::vector<DuplicateRow> duplicateRows;
    Loaded<std::shared_ptr<const ChangesFound>> changes;
    std::size_t snapshotNumber = 0;
    Loaded<std::vector<VolumeInfo>> volumes;
    Loaded<VolumeLedger> ledger;
    Loaded<HistoryFound> history;
    Loaded<TrashListing> trash;

    // --- Talking --------------------------------------------------------------------------------------

    std::optional<BrowserPrompt> prompt;
    std::optional<BrowserQuestion> question;
    bool showsHelp = false;
    std::size_t helpTop = 0;
    /// The last thing worth saying; gone with the next key.
    std::string message;
    bool messageIsFailure = false;
    std::vector<BrowserOutcome> outcomes;

    // --- What is to be done ---------------------------------------------------------------------------

    std::vector<RunningJob> running;
    std::uint64_t lastRequest = 0;
    /// For the queue; whoever runs the model takes them.
    std::vector<BrowserRequest> requests;
    std::vector<std::uint64_t> cancellations;
    std::vector<ScreenWish> wishes;
    bool isDone = false;
    /// Keys that wait for an answer, and those that were typed behind them.
    std::vector<KeyPress> held;

    // --- What does not change -------------------------------------------------------------------------

    std::string home;
    /// The same by all its names.
    std::shared_ptr<const HomeFolder> homeFolder;
    std::string lastFolder;
    /// The size mode of the settings, and one that was asked for at the start: that is not remembered.
    SizeMode rememberedMode = SizeMode::apparent;
    std::optional<SizeMode> chosenMode;
    bool isReadOnly = false;
    bool asksBeforeTrash = true;
    std::function<Date()> now;
};

// --- What views and updates ask of it
// -----------------------------------------------------------------------

/// How many rows the view has; of the map none.
std::size_t rowCount(const BrowserState& state);
/// What the row where one stands is about; nothing for rows that are no items.
std::optional<BrowserTarget> targetAt(const BrowserState& state, std::size_t row);
std::optional<BrowserTarget> target(const BrowserState& state);
/// The categories that have bytes below the folder, the largest first.
std::vector<FileCategory> categoryRows(const BrowserState& state);
/// The entry at a row of the list.
std::optional<BrowserEntry> entryAt(const BrowserState& state, std::size_t row);
/// The full path of the folder where one stands.
std::string folderPath(const BrowserState& state);
/// Relative to the root of the scan.
std::string placeOf(const BrowserState& state, const FileNode* node);
/// Why an item cannot be marked or moved away; empty when it can.
std::string_view reasonToStay(const BrowserState& state, const FileNode& node);
/// Whether items can be marked: those of a scan under way are those of its result.
bool mayMark(const BrowserState& state);
/// Whether acts have what they need: a finished scan, and leave to change things.
bool mayAct(const BrowserState& state);
/// Whether a list of this width shows every column by itself.
constexpr bool hasRoomForAll(double width) {
    return width >= 130;
}
/// The start of the rows of a path for people: with a tilde for the home.
std::string shortPath(const BrowserState& state, std::string_view path);

} // namespace tarnwell
