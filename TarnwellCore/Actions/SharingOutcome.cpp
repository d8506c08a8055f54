#include "TarnwellCore/Actions/SharingOutcome.hpp"

namespace tarnwell {

std::string SharingRefusal::explanation() const {
    switch (kind) {
    case Kind::unsupported:
        return "The file system cannot share the blocks of this file.";
    case Kind::otherFileSystem:
        return "It lies on another file system than the file it would share with.";
    case Kind::notTheSame:
        return "The files have changed since they were found to be equal.";
    case Kind::immutable:
        return "The file is locked against changes.";
    case Kind::openForWriting:
        return "A program has the file open for writing.";
    case Kind::hasOtherLinks:
        return "The file has other hard links, which would keep its blocks.";
    case Kind::cancelled:
        return "It was cancelled.";
    }
    return {};
}

const std::filesystem::path& urlOf(const SharingOutcome& outcome) {
    return std::visit([](const auto& any) -> const std::filesystem::path& { return any.url; }, outcome);
}

std::int64_t bytesFreedBy(const SharingOutcome& outcome) {
    return std::visit([](const auto& any) { return any.bytesFreed; }, outcome);
}

} // namespace tarnwell
