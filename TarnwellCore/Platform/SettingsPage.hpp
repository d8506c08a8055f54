#pragma once

// Showing the user a page of the system's settings.

#include <string>

namespace tarnwell {

/// Opens the page that the URL names; whether that was started. False where the system has no such pages.
/// To be called from the main thread.
bool openSettingsPage(const std::string& url);

} // namespace tarnwell
