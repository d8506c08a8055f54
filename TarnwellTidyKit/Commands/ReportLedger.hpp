#pragma once

// Where the used bytes of a volume are, as part of a report.

#include "TarnwellCore/Analysis/VolumeLedger.hpp"
#include "TarnwellTidyKit/Commands/TidyText.hpp"

#include <string>

namespace tarnwell {

class JSONWriter;

/// Every line, with its figure or that it is not known.
std::string ledgerText(const VolumeLedger& ledger, const TidyStyle& style);

/// The object alone, without its key.
void writeLedger(JSONWriter& json, const VolumeLedger& ledger);

} // namespace tarnwell
