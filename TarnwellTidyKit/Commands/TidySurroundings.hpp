#pragma once

// What a command sees of the place it was typed in. The entry point fills it; a test says what it likes.

#include "TarnwellCore/Scanning/ScanResult.hpp"
#include "TarnwellCore/Text/TextOutput.hpp"
#include "TarnwellTidyKit/Commands/TidyInterruption.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

struct TidySurroundings {
    /// Whether standard output is a terminal.
    bool isTerminal = false;
    /// Whether colours are welcome there: the terminal has some and NO_COLOR is not set.
    bool hasColors = false;
    /// Columns of that terminal; 0 when texts may be as wide as they like.
    std::size_t columns = 0;
    /// Columns of the terminal behind standard error.
    std::size_t errorColumns = 80;

    /// Takes long outputs piece by piece, instead of the result. Throws when they cannot be written.
    TextSink output = {};
    /// Shows a line on standard error in place of the one before it; an empty one removes it. Empty where
    /// standard error is no terminal. Called from any thread.
    std::function<void(std::string_view)> status = {};
    /// Asks a question that is answered with yes or no. Empty where there is nobody to ask.
    std::function<bool(const std::string& question)> ask = {};

    std::shared_ptr<TidyInterruption> interruption = std::make_shared<TidyInterruption>();
    /// Scanned trees that a command is done with. To take a large one apart costs time, which a program that
    /// ends anyway need not spend.
    std::shared_ptr<std::vector<ScanResult>> finished = std::make_shared<std::vector<ScanResult>>();
};

} // namespace tarnwell
