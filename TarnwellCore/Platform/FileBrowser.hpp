#pragma once

// Showing an item where the user browses files and opens documents.

#include <filesystem>

namespace tarnwell {

/// Shows an existing file or folder in the system's file browser, selected in its folder where the system can
/// do that; whether that was started. False where there is no desktop, as in a session over ssh. To be called
/// from the main thread.
bool revealItem(const std::filesystem::path& item);

/// Opens a file with the program that the user has chosen for its kind; whether that was started.
bool openItem(const std::filesystem::path& item);

} // namespace tarnwell
