// The CSV form of a listing. Input: a line "<size mode> <depth> <top> <root's path>" (the mode as a number, a
// negative top for none), then the tree (TreeText.hpp).
// Exercises: TarnwellCLIKit/CLIRenderCSV.cpp
// Exercises: TarnwellCLIKit/RowPath.hpp

#include "TarnwellCLIKit/CLIRender.hpp"

#include "Tests/Support/PlainCSV.hpp"

#include <bit>
#include <charconv>
#include <string>
#include <vector>

#include "Fuzz/Require.hpp"
#include "Fuzz/TreeText.hpp"

namespace tarnwell::fuzz {

namespace {

/// The share that a field stands for; the text must be all number.
double shareOf(const std::string& field) {
    double share = 0;
    const char* const end = field.data() + field.size();
    const auto [stop, error] = std::from_chars(field.data(), end, share);
    require(error == std::errc() && stop == end && !field.empty(), "a share is a number");
    return share;
}

void requireRow(const std::vector<std::string>& fields, const CLIListedNode& row) {
    require(fields.size() == 7, "a row has seven fields");
    const std::vector<std::string> expected = {std::string(row.name()),
                                               row.path(),
                                               row.isDirectory() ? "true" : "false",
                                               std::to_string(row.size()),
                                               std::to_string(row.allocatedSize()),
                                               std::to_string(row.reclaimableSize())};
    require(std::equal(expected.begin(), expected.end(), fields.begin()), "a row is read back");
    require(std::bit_cast<std::uint64_t>(shareOf(fields[6])) == std::bit_cast<std::uint64_t>(row.share),
            "a share is read back to the bit");
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    fuzz::TextInput input(data, size);
    fuzz::TextInput head(input.take('\n'));
    const auto mode = static_cast<SizeMode>(static_cast<std::uint64_t>(head.takeInteger()) % 3);
    const std::int64_t depth = head.takeInteger();
    const std::int64_t top = head.takeInteger();
    const fuzz::TreeFromText tree = fuzz::readTree(input, head.take('\n'));

    const CLIListedScan scan = CLIRender::listedScan(
        *tree.root, mode, depth, top < 0 ? std::nullopt : std::optional<std::int64_t>(top));
    const auto rows = test::readCSV(CLIRender::csv(scan));
    fuzz::require(rows.has_value(), "the document is well-formed");
    fuzz::require(rows->size() == scan.children.size() + 1, "every row has a line, below the header");
    fuzz::require(rows->front() == std::vector<std::string>{"name", "path", "isDirectory", "size",
                                                            "allocatedSize", "reclaimableSize", "share"},
                  "the header names the fields");
    for (std::size_t index = 0; index < scan.children.size(); ++index)
        fuzz::requireRow((*rows)[index + 1], scan.children[index]);
    return 0;
}
