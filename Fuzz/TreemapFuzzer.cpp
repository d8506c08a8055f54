// The treemap. Input: a line with the area "<x> <y> <width> <height>", a line with the configuration's fields
// in their order (mode and aggregation as numbers), then the tree (TreeText.hpp).
// Exercises: TarnwellCore/Layout/TreemapLayout.cpp
// Exercises: TarnwellCore/Layout/Squarify.cpp
// Exercises: TarnwellCore/Layout/SizeOrder.cpp

#include "TarnwellCore/Layout/TreemapLayout.hpp"

#include "Tests/Support/PlainTreemap.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "Fuzz/Require.hpp"
#include "Fuzz/TreeText.hpp"

namespace tarnwell::fuzz {

namespace {

Rect readArea(TextInput line) {
    Rect area;
    for (double* number : {&area.origin.x, &area.origin.y, &area.size.width, &area.size.height})
        *number = line.takeNumber();
    return area;
}

TreemapConfiguration readConfiguration(TextInput line) {
    TreemapConfiguration configuration;
    for (double* number : {&configuration.padding, &configuration.headerHeight, &configuration.inset,
                           &configuration.minimumArea, &configuration.minimumSideForRecursion})
        *number = line.takeNumber();
    configuration.maximumDepth = line.takeInteger();
    configuration.sizeMode = static_cast<SizeMode>(static_cast<std::uint64_t>(line.takeInteger()) % 3);
    configuration.aggregateRemainder = line.takeInteger() != 0;
    return configuration;
}

/// Sums beyond 64 bits end the program, as they should.
void limitSizes(FileNode& root) {
    static constexpr std::int64_t largest = std::int64_t{1} << 50;
    root.forEachDescendant([](FileNode& node) {
        for (std::int64_t* size : {&node.size, &node.allocatedSize, &node.reclaimableSize})
            *size = std::min(*size, largest);
        return true;
    });
}

/// Whether tiles have to be where they belong: what a viewer asks for, rather than anything a double can be.
/// Near the smallest doubles a product is off by as much as it is large.
bool isOrdinary(const Rect& area, const TreemapConfiguration& configuration) {
    constexpr double small = 1e-3;
    constexpr double large = 1e6;
    const auto isWithin = [](double number, double least, double most) {
        return number >= least && number <= most;
    };
    return isWithin(area.origin.x, -large, large) && isWithin(area.origin.y, -large, large) &&
           isWithin(area.width(), small, large) && isWithin(area.height(), small, large) &&
           isWithin(configuration.minimumSideForRecursion, small, large) &&
           isWithin(configuration.inset, 0, large) && isWithin(configuration.headerHeight, 0, large);
}

/// Two layouts to the bit, where what is not a number equals itself.
bool isSame(const std::vector<TreemapItem>& a, const std::vector<TreemapItem>& b) {
    const auto isSameNumber = [](double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); };
    return std::ranges::equal(a, b, [&](TreemapItem x, TreemapItem y) {
        const bool isSamePlace = isSameNumber(x.rect.origin.x, y.rect.origin.x) &&
                                 isSameNumber(x.rect.origin.y, y.rect.origin.y) &&
                                 isSameNumber(x.rect.size.width, y.rect.size.width) &&
                                 isSameNumber(x.rect.size.height, y.rect.size.height);
        x.rect = y.rect = {};
        return isSamePlace && x == y;
    });
}

void requireGoodHits(const std::vector<TreemapItem>& items) {
    for (const TreemapItem& item : items) {
        const Point middle{item.rect.minX() + item.rect.width() / 2,
                           item.rect.minY() + item.rect.height() / 2};
        const auto hit = TreemapLayout::hitTest(items, middle);
        require(!hit || hit->rect.contains(middle), "what is hit is there");
        require(hit || !item.rect.contains(middle), "what is there is hit");
        require(!hit || hit->id >= item.id || !item.rect.contains(middle), "the tile on top is hit");
    }
}

} // namespace

} // namespace tarnwell::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tarnwell;
    fuzz::TextInput input(data, size);
    const Rect area = fuzz::readArea(fuzz::TextInput(input.take('\n')));
    const TreemapConfiguration configuration = fuzz::readConfiguration(fuzz::TextInput(input.take('\n')));
    const fuzz::TreeFromText tree = fuzz::readTree(input, "/");
    fuzz::limitSizes(*tree.root);

    const auto items = TreemapLayout::layout(*tree.root, area, configuration, tree.removed);
    fuzz::require(fuzz::isSame(items, test::plainLayout(*tree.root, area, configuration, tree.removed)),
                  "a layout follows the plain rules");
    if (fuzz::isOrdinary(area, configuration)) {
        const std::string fault = test::layoutFault(items, *tree.root, area, 1e-6);
        fuzz::require(fault.empty(), fault);
    }
    fuzz::requireGoodHits(items);
    return 0;
}
