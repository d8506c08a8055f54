#include "TarnwellCore/Actions/Uninstaller.hpp"

#include "TarnwellCore/Actions/ApplicationIdentifier.hpp"
#include "TarnwellCore/Actions/LeftoverSearch.hpp"
#include "TarnwellCore/Analysis/HomeFolder.hpp"
#include "TarnwellCore/Classification/PathUtil.hpp"
#include "TarnwellCore/Platform/BackgroundTask.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/DiskScanner.hpp"
#include "TarnwellCore/Scanning/ScanError.hpp"

#include <fcntl.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace tarnwell {

namespace {

using Kind = UninstallRefusal::Kind;

/// What came with a system lies here, below its root.
constexpr const char* systemsOwn = "System";

/// What is installed for one user by hand, from the program that an entry starts.
class UserApplications {
public:
    explicit UserApplications(const fs::path& home, const BaseFolders& folders)
        : home_(resolveLinks(home)),
          optional_(resolveLinks(home_ / ".local/opt")),
          entries_(menuEntriesIn(folders.data / "applications")) {}

    /// Nothing for a program that something else has installed. It may be started through a link.
    std::optional<InstalledApplication> of(const fs::path& program) const {
        std::optional<InstalledApplication> application = directlyOf(program);
        if (!application)
            application = directlyOf(resolveLinks(program));
        if (application)
            describe(*application);
        return application;
    }

    std::vector<InstalledApplication> all() const {
        std::vector<InstalledApplication> applications;
        for (const MenuEntry& entry : entries_)
            if (auto application = of(entry.program);
                application && std::ranges::find(applications, application->location,
                                                 &InstalledApplication::location) == applications.end())
                applications.push_back(*std::move(application));
        return applications;
    }

private:
    std::optional<InstalledApplication> directlyOf(const fs::path& program) const {
        std::error_code error;
        if (isWithin(program, optional_) && program != optional_ && !isWithin(home_, optional_)) {
            const fs::path folder = optional_ / *program.lexically_relative(optional_).begin();
            if (fs::is_directory(fs::symlink_status(folder, error)))
                return InstalledApplication{.kind = InstalledApplication::Kind::folder, .location = folder};
        } else if (isWithin(program, home_) &&
                   equalsIgnoringCase(program.extension().native(), ".AppImage") &&
                   fs::is_regular_file(fs::symlink_status(program, error))) {
            return InstalledApplication{.kind = InstalledApplication::Kind::appImage, .location = program};
        }
        return std::nullopt;
    }

    /// By the entries that start something of it; of several identifiers, the first usable one.
    void describe(InstalledApplication& application) const {
        for (const MenuEntry& entry : entries_)
            if (isWithin(entry.program, application.location) ||
                isWithin(resolveLinks(entry.program), application.location)) {
                if (!isUsableIdentifier(application.identifier))
                    application.identifier = entry.identifier();
                if (!entry.name.empty())
                    application.names.push_back(entry.name);
            }
        application.names.push_back(application.kind == InstalledApplication::Kind::folder
                                        ? application.location.filename().native()
                                        : application.location.stem().native());
    }

    fs::path home_;
    fs::path optional_;
    std::vector<MenuEntry> entries_;
};

std::vector<InstalledApplication> installedApplications(const Uninstaller& uninstaller) {
    std::vector<InstalledApplication> applications;
    const auto take = [&](std::vector<InstalledApplication> found) {
        std::ranges::move(found, std::back_inserter(applications));
    };
    for (const fs::path& folder :
         {uninstaller.home() / "Applications", uninstaller.machineRoot / "Applications",
          uninstaller.machineRoot / systemsOwn / "Applications"})
        take(applicationBundlesIn(folder));
    take(UserApplications(uninstaller.home(), uninstaller.baseFolders).all());
    return applications;
}

std::string programText(const RunningProgram& program) {
    return program.file.filename().native() + ", process " + std::to_string(program.process);
}

/// Making a plan.
class Planning {
public:
    Planning(const Uninstaller& uninstaller, const CancellationToken& token)
        : uninstaller_(uninstaller), token_(token) {}

    UninstallPlan run(const fs::path& given) {
        const fs::path path(PathUtil::withoutTrailingSlashes(given.native()));
        plan_.refusal = recognise(path);
        if (!plan_.application || plan_.refusal)
            return std::move(plan_);
        plan_.refusal = refusalOf(*plan_.application);
        collect(*plan_.application);
        for (UninstallItem& item : plan_.items)
            measure(item);
        return std::move(plan_);
    }

private:
    std::optional<UninstallRefusal> recognise(const fs::path& path) {
        std::error_code error;
        if (!path.is_absolute() || path.native().find('\0') != std::string::npos)
            return UninstallRefusal{Kind::notApplication};
        const fs::file_status status = fs::symlink_status(path, error);
        if (status.type() == fs::file_type::not_found)
            return UninstallRefusal{Kind::notThere};
        if (fs::is_symlink(status))
            return UninstallRefusal{Kind::link, fs::path(resolveLinks(path)).native()};
        plan_.application = applicationBundle(path);
        if (plan_.application)
            return std::nullopt;
        const UserApplications users(uninstaller_.home(), uninstaller_.baseFolders);
        const auto entry = menuEntry(path);
        const fs::path item = fs::path(resolveLinks(path.parent_path())) / path.filename();
        plan_.application = users.of(entry ? entry->program : item);
        // A file somewhere in an application does not stand for all of it.
        if (plan_.application && !entry && plan_.application->location != item)
            plan_.application.reset();
        if (plan_.application)
            return std::nullopt;
        return UninstallRefusal{entry ? Kind::notOfUser : Kind::notApplication};
    }

    std::optional<UninstallRefusal> refusalOf(const InstalledApplication& application) const {
        if (isWithin(application.location, resolveLinks(uninstaller_.machineRoot / systemsOwn)))
            return UninstallRefusal{Kind::notOfUser};
        if (HomeFolder(uninstaller_.home()).isWithin(application.location))
            return UninstallRefusal{Kind::holdsHome};
        if (const std::string_view maker = securityMaker(application.identifier); !maker.empty())
            return UninstallRefusal{Kind::securityProduct, std::string(maker)};
        return runningRefusal(uninstaller_, application);
    }

public:
    static std::optional<UninstallRefusal> runningRefusal(const Uninstaller& uninstaller,
                                                          const InstalledApplication& application) {
        const std::vector<RunningProgram> programs = uninstaller.programsRunningFrom(application.location);
        if (programs.empty())
            return std::nullopt;
        return UninstallRefusal{Kind::running, programText(programs.front())};
    }

private:
    void collect(const InstalledApplication& application) {
        if (const auto identity = itemIdentity(AT_FDCWD, application.location.c_str()))
            // Applications that are installed again from where they came are no loss; what a user has put
            // into a folder by hand may be the only copy.
            plan_.items.push_back(
                {.path = application.location, .safety = CleanupSafety::reviewNeeded, .identity = *identity});
        std::vector<InstalledApplication> others = installedApplications(uninstaller_);
        for (InstalledApplication& beside : applicationBundlesIn(application.location.parent_path()))
            others.push_back(std::move(beside));
        std::erase_if(others, [&](const InstalledApplication& other) {
            return isWithin(other.location, application.location);
        });
        Leftovers leftovers = findLeftovers(
            application, others,
            leftoverPlaces(uninstaller_.home(), uninstaller_.machineRoot, uninstaller_.baseFolders),
            uninstaller_.home(), token_);
        std::ranges::move(leftovers.items, std::back_inserter(plan_.items));
        plan_.unreadable = std::move(leftovers.unreadable);
    }

    void measure(UninstallItem& item) const {
        if (token_.isCancelled())
            return;
        try {
            const DirectoryMeasurement measured = uninstaller_.measure(item.path, token_);
            item.size = measured.logicalSize;
            item.allocatedSize = measured.allocatedSize;
            item.reclaimableSize = measured.reclaimableSize;
            item.isMeasured = !measured.isMissing;
        } catch (const ScanError&) {
            item.isMeasured = false;
        }
    }

    const Uninstaller& uninstaller_;
    const CancellationToken& token_;
    UninstallPlan plan_;
};

std::optional<std::string> reasonNotToMove(const UninstallItem& item) {
    const auto identity = itemIdentity(AT_FDCWD, item.path.c_str());
    if (!identity)
        return std::generic_category().message(identity.error());
    if (!identity->mayBe(item.identity))
        return "Something else lies there now.";
    return std::nullopt;
}

} // namespace

Uninstaller::Uninstaller(fs::path home)
    : baseFolders(BaseFolders::of(home)),
      programsRunningFrom(tarnwell::programsRunningFrom),
      measure([](const fs::path& item, const CancellationToken& token) {
          return DiskScanner().measure(item, {}, token).get();
      }),
      trash(home),
      home_(std::move(home)) {}

std::future<std::vector<InstalledApplication>> Uninstaller::installed() const {
    return runInBackground([uninstaller = *this] { return installedApplications(uninstaller); });
}

std::future<UninstallPlan> Uninstaller::plan(fs::path application, CancellationToken token) const {
    return runInBackground(
        [uninstaller = *this, application = std::move(application), token = std::move(token)] {
            return Planning(uninstaller, token).run(application);
        });
}

std::future<std::vector<TrashOutcome>> Uninstaller::carryOut(UninstallPlan plan,
                                                             CancellationToken token) const {
    return runInBackground([uninstaller = *this, plan = std::move(plan), token = std::move(token)] {
        std::vector<TrashOutcome> outcomes;
        std::vector<fs::path> paths;
        for (const UninstallItem& item : plan.items) {
            outcomes.push_back({item.path, std::nullopt, std::nullopt});
            paths.push_back(item.path);
        }
        std::optional<UninstallRefusal> refusal = plan.refusal;
        if (!refusal && plan.application)
            refusal = Planning::runningRefusal(uninstaller, *plan.application);
        std::optional<std::string> reason; // why the rest stays
        if (refusal)
            reason = refusal->explanation();
        std::optional<TrashMoves> moves;
        if (!reason && !paths.empty())
            moves = uninstaller.trash.planMoves(std::move(paths));
        for (std::size_t number = 0; number < outcomes.size(); ++number) {
            const UninstallItem& item = plan.items[number];
            if (!reason && token.isCancelled())
                reason = TrashOutcome::calledOff;
            outcomes[number].failure = reason ? reason : reasonNotToMove(item);
            if (!outcomes[number].failure)
                outcomes[number] = moves->move(number);
            if (!reason && item.reason == LeftoverReason::application && !outcomes[number].succeeded())
                reason = "It was left where it is, since the application stays.";
        }
        return outcomes;
    });
}

std::vector<InstalledApplication> applicationsCalled(std::string_view word,
                                                     const std::vector<InstalledApplication>& applications) {
    std::vector<InstalledApplication> called;
    std::ranges::copy_if(applications, std::back_inserter(called),
                         [&](const InstalledApplication& application) {
                             return equalsIgnoringCase(application.identifier, word) ||
                                    std::ranges::any_of(application.names, [&](const std::string& name) {
                                        return equalsIgnoringCase(name, word);
                                    });
                         });
    return called;
}

} // namespace tarnwell
