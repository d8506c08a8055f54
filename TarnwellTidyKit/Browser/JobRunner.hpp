#pragma once

// Does the browser's jobs by the services that commands use, with their words.

#include "TarnwellTidyKit/Browser/Browser.hpp"
#include "TarnwellTidyKit/Browser/WorkQueue.hpp"
#include "TarnwellTidyKit/Commands/TidyChoices.hpp"
#include "TarnwellTidyKit/Commands/TidyServices.hpp"
#include "TarnwellTidyKit/Commands/TidySurroundings.hpp"

#include <filesystem>
#include <string>
#include <unordered_map>
#include <utility>

namespace tarnwell {

/// Safe from any thread. `services` and `surroundings` outlive it.
class JobRunner {
public:
    JobRunner(const TidyServices& services, const TidySurroundings& surroundings, bool isReadOnly,
              BrowserScan scan = {}, TidyScanChoices choices = {})
        : services_(services),
          surroundings_(surroundings),
          isReadOnly_(isReadOnly),
          scan_(std::move(scan)),
          choices_(std::move(choices)) {}

    /// For `WorkQueue::Work`.
    void operator()(const BrowserRequest& request, const CancellationToken& token,
                    const WorkQueue::Post& post) const;

private:
    const TidyServices& services_;
    const TidySurroundings& surroundings_;
    bool isReadOnly_;
    BrowserScan scan_;
    TidyScanChoices choices_;
};

/// What a job has at hand.
struct JobContext {
    const TidyServices& services;
    const TidySurroundings& surroundings;
    bool isReadOnly;
    const BrowserScan& scan;
    const TidyScanChoices& choices;
    std::uint64_t id;
    const CancellationToken& token;
    const WorkQueue::Post& post;
};

/// How items can go away. What is known of one item of a folder holds for the others: asking takes its time.
class WaysOut {
public:
    explicit WaysOut(const TidyServices& services) : services_(services) {}
    WayOut of(const std::filesystem::path& item);

private:
    const TidyServices& services_;
    std::unordered_map<std::string, WayOut> known_; // by the folder
};

/// The scan of a tree without what has gone since: the nearest folder that held all of it is read again.
ScanResult scanNow(const BrowserTree& tree, const Removals& removals, const CancellationToken& token);

/// The parts: those that look, and those that change something.
struct LookingJobs {
    const JobContext& context;

    void operator()(const BrowserJobs::Scan& job) const;
    void operator()(const BrowserJobs::Rescan& job) const;
    void operator()(const BrowserJobs::Look& job) const;
    void operator()(const BrowserJobs::Ledger& job) const;
    void operator()(const BrowserJobs::Discard& job) const;
    void operator()(const BrowserJobs::Order& job) const;
    void operator()(const BrowserJobs::Map& job) const;
    void operator()(const BrowserJobs::Freed& job) const;
    void operator()(const BrowserJobs::Figures& job) const;
    void operator()(const BrowserJobs::Find& job) const;
    void operator()(const BrowserJobs::Findings& job) const;
    void operator()(const BrowserJobs::Rules& job) const;
    void operator()(const BrowserJobs::Duplicates& job) const;
    void operator()(const BrowserJobs::Changes& job) const;
    void operator()(const BrowserJobs::FindWaysOut& job) const;
    void operator()(const BrowserJobs::Follow& job) const;
    void operator()(const BrowserJobs::Carry& job) const;
    void operator()(const BrowserJobs::Volumes& job) const;
    void operator()(const BrowserJobs::History& job) const;
    void operator()(const BrowserJobs::TrashList& job) const;
};

struct ActingJobs {
    const JobContext& context;

    void operator()(const BrowserJobs::Trash& job) const;
    void operator()(const BrowserJobs::Undo& job) const;
    void operator()(const BrowserJobs::Restore& job) const;
    void operator()(const BrowserJobs::Remove& job) const;
    void operator()(const BrowserJobs::Evict& job) const;
    void operator()(const BrowserJobs::Share& job) const;
    void operator()(const BrowserJobs::Clear& job) const;
    void operator()(const BrowserJobs::EmptyTrash& job) const;
    void operator()(const BrowserJobs::TakeSnapshot& job) const;
    void operator()(const BrowserJobs::ChangeRules& job) const;
    void operator()(const BrowserJobs::Open& job) const;
    void operator()(const BrowserJobs::Reveal& job) const;
    void operator()(const BrowserJobs::Remember& job) const;
};

} // namespace tarnwell
