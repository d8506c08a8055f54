#pragma once

// Keeps a name for what the desktop application adds to the actions here.

/// revealInFinder / open / quickLook are implemented in the app target.
namespace tarnwell::FinderIntegration {}
