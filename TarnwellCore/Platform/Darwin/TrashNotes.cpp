#include "TarnwellCore/Platform/TrashNotes.hpp"

namespace tarnwell {

std::optional<NotedOrigin> notedOrigin(const std::filesystem::path& /*location*/) {
    return std::nullopt; // The Finder keeps what it knows to itself.
}

void removeNote(const std::filesystem::path& /*location*/) noexcept {}

} // namespace tarnwell
