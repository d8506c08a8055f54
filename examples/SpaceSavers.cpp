// Lists where space piles up in a home folder: what clearing each place would free, how much care that asks
// for, and how it is done. Changes nothing.

#include "TarnwellCore/Analysis/SpaceSaverProbe.hpp"
#include "TarnwellCore/Platform/UserPaths.hpp"
#include "TarnwellCore/Scanning/ByteFormatter.hpp"
#include "TarnwellCore/Text/DisplayWidth.hpp"
#include "TarnwellCore/Text/HarmlessText.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using namespace tarnwell;

namespace {

constexpr std::string_view usage = "usage: space-savers [HOME-FOLDER]\n";

struct ActionText {
    std::string operator()(const SpaceSaverActions::RunCommand& command) const { return command.commandLine; }
    std::string operator()(const SpaceSaverActions::Trash&) const { return "move to the Trash"; }
    std::string operator()(const SpaceSaverActions::OpenLocation&) const { return "look through it"; }
    std::string operator()(const SpaceSaverActions::EmptyTrash&) const { return "empty the Trash"; }
    std::string operator()(const SpaceSaverActions::Evict&) const { return "remove the local copies"; }
};

std::string_view heading(SpaceSaverGroup group) {
    constexpr std::array<std::string_view, 4> headings{"Developer", "System", "Backups", "Files"};
    return headings.at(static_cast<std::size_t>(group));
}

void printTable(const std::vector<SpaceSaverFinding>& findings, NameStyle style) {
    std::size_t titleWidth = 4;
    for (const SpaceSaverFinding& finding : findings)
        titleWidth = std::max(titleWidth, displayWidth(finding.title));
    const auto printRow = [&](std::string_view size, std::string_view items, std::string_view care,
                              std::string_view what, std::string_view how) {
        std::cout << std::right << std::setw(9) << size << std::setw(9) << items << "  " << std::left
                  << std::setw(16) << care << styled(what, style)
                  << std::string(titleWidth + 2 - displayWidth(what), ' ') << styled(how, style) << '\n';
    };
    printRow("FREES", "ITEMS", "CARE", "WHAT", "HOW");
    for (const auto listed : {SpaceSaverGroup::developer, SpaceSaverGroup::system, SpaceSaverGroup::backups,
                              SpaceSaverGroup::files}) {
        if (std::ranges::any_of(findings, [&](const auto& finding) { return group(finding.kind) == listed; }))
            std::cout << heading(listed) << '\n';
        for (const SpaceSaverFinding& finding : findings) {
            if (group(finding.kind) != listed)
                continue;
            const std::string size = ByteFormatter::string(finding.reclaimableSize, "0 bytes");
            printRow(finding.sizeIsKnown ? size : "unknown", std::to_string(finding.itemCount),
                     displayName(finding.safety), finding.title, std::visit(ActionText{}, finding.action));
        }
    }
}

} // namespace

int main(int count, char** arguments) {
    const std::string_view argument = count == 2 ? arguments[1] : "";
    if (argument == "--help") {
        std::cout << usage;
        return 0;
    }
    if (count > 2 || argument.starts_with('-')) {
        std::cerr << usage;
        return 2;
    }
    const std::filesystem::path home = argument.empty() ? homeDirectory() : std::filesystem::path(argument);
    try {
        // What a scan has measured is not measured again; without one, some steps have nothing to look at.
        const ScanResult scan = DiskScanner().scan(home).get();
        const SpaceSaverProbe probe(scan.root->url());
        const auto findings = probe.run({.scanResult = scan, .rules = CleanupRule::presets()}).get();
        if (findings.empty())
            std::cout << "Nothing to clear.\n";
        else
            printTable(findings, nameStyle(::isatty(STDOUT_FILENO) == 1));
        return 0;
    } catch (const ScanError& error) {
        std::cerr << styled(error.what(), nameStyle(::isatty(STDERR_FILENO) == 1)) << '\n';
        return 1;
    }
}
