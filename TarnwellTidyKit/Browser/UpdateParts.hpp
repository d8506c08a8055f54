#pragma once

// The parts of BrowserUpdate.hpp, for each other.

#include "TarnwellTidyKit/Browser/BrowserKeys.hpp"
#include "TarnwellTidyKit/Browser/BrowserState.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tarnwell::BrowserParts {

// --- UpdatePlace.cpp: folders, orders, views ------------------------------------------------------------

/// Requests a job; its identifier.
std::uint64_t ask(BrowserState& state, BrowserJob job);
/// Calls a request off that is not needed any more.
void callOff(BrowserState& state, std::uint64_t& awaited);
void say(BrowserState& state, std::string text, bool isFailure = false);
void scan(BrowserState& state, const std::string& folder);
/// Leaves what was shown when the scan of another folder has something to tell.
void scanHasBegun(BrowserState& state);
/// Reads a folder of the tree again; what is shown stays until that is done.
void scanAgain(BrowserState& state, const FileNode& folder);
/// Shows a folder of the tree, with one of its entries selected.
void visit(BrowserState& state, const FileNode* folder, const FileNode* entry);
/// Looks at the folder again, and puts its rows in order.
void relist(BrowserState& state);
/// Looks at the scan under way, unless that was done a moment ago.
void scanProgressed(BrowserState& state);
void takeLook(BrowserState& state, BrowserEvents::Looked& event);
/// What takes time to let go of is let go of elsewhere.
void discard(BrowserState& state, std::vector<std::shared_ptr<const void>> things);
void discard(BrowserState& state, const ChangeList& changes);
void takeOrder(BrowserState& state, std::shared_ptr<const Ordering> order);
/// Takes the keys that have waited for an order, if none is awaited any more.
void takeHeldKeys(BrowserState& state);
void showView(BrowserState& state, BrowserView view);
/// Asks for what the view needs and has not got.
void refreshView(BrowserState& state);
/// Forgets what was found out about the tree as it was.
void forgetFindings(BrowserState& state);
/// Keeps the cursor on a row, and the row in sight.
void settle(BrowserState& state);

// --- UpdateCommands.cpp -----------------------------------------------------------------------------------

void run(BrowserState& state, BrowserCommand command);
void moveTo(BrowserState& state, std::size_t row);
/// Searches the folder, and shows what is found under a name for people.
void findBy(BrowserState& state, SearchConditions conditions, std::string text);
/// Searches for the same in what there is now; what was found is shown until that is done.
void findAgain(BrowserState& state);

// --- UpdateActs.cpp: marks and acts -----------------------------------------------------------------------

/// Whether the command was one of these.
bool runAct(BrowserState& state, BrowserCommand command);
void markToggled(BrowserState& state);
void marksChanged(BrowserState& state);
/// Asks for the word before items without a Trash are deleted; says why where there are none.
void askForWord(BrowserState& state, BrowserJobs::TreeItems items, std::size_t forTrash, std::size_t stuck);
/// Changes the rules that are shown and those that are stored, and looks what they match.
void changeRules(BrowserState& state, BrowserJobs::ChangeRules change);
/// Shows these rules, and looks what they match.
void showRules(BrowserState& state, std::vector<CleanupRule> rules);

// --- UpdatePrompts.cpp ------------------------------------------------------------------------------------

void openPrompt(BrowserState& state, BrowserPrompt prompt);
void typeInto(BrowserState& state, const KeyPress& press);
void typeText(BrowserState& state, std::string_view text);
void answer(BrowserState& state, const KeyPress& press);
void openRule(BrowserState& state, std::optional<std::size_t> rule);

// --- UpdateMap.cpp ----------------------------------------------------------------------------------------

void moveInMap(BrowserState& state, BrowserCommand command);

} // namespace tarnwell::BrowserParts
