#pragma once

// Files and folders whose contents are with a service elsewhere, and are fetched as soon as somebody looks.

namespace tarnwell {

/// While one lives, nothing that its thread opens or reads is fetched: what would have to be fails. For
/// threads that look at whatever lies on a disk. May be nested; is made and ends on the same thread. Does
/// nothing on Linux, where the kernel knows of no such files.
class NoFetching {
public:
    NoFetching();
    ~NoFetching();
    NoFetching(const NoFetching&) = delete;
    NoFetching& operator=(const NoFetching&) = delete;

private:
    [[maybe_unused]] int before_ = -1; // what the thread was set to; of no use on Linux
};

} // namespace tarnwell
