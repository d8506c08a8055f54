#include "TarnwellCore/Platform/KeptAside.hpp"

#include "TarnwellCore/Platform/PrivateFile.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace tarnwell {

KeptAside::KeptAside(const fs::path& file, const FileCalls& calls) : file_(file), calls_(calls) {
    std::error_code error = std::make_error_code(std::errc::file_exists);
    for (int number = 1; number < 1000; ++number) {
        name_ = file.native() + (number == 1 ? ".damaged" : ".damaged-" + std::to_string(number));
        fs::create_hard_link(file, name_, error);
        isRenamed_ = false;
        if (error) {
            std::error_code unknown;
            if (fs::exists(fs::symlink_status(name_, unknown)))
                continue;
            // No hard links here, or none to this file.
            isRenamed_ = calls.rename(file.c_str(), name_.c_str()) == 0;
            if (!isRenamed_) {
                error = {errno, std::generic_category()};
                break;
            }
        }
        makePrivate(name_, S_IFREG, 2);
        return;
    }
    throw std::system_error(error, "Could not keep aside the damaged file " + file.string());
}

void KeptAside::undoUnlessReplaced() const {
    std::error_code error;
    if (!isRenamed_ && fs::equivalent(file_, name_, error))
        calls_.unlink(name_.c_str());
    else if (isRenamed_ && !fs::exists(fs::symlink_status(file_, error)))
        calls_.rename(name_.c_str(), file_.c_str());
}

} // namespace tarnwell
