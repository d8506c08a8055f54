#include "TarnwellCore/Platform/NameForms.hpp"

namespace tarnwell {

bool mayHaveOtherForms(std::string_view) noexcept {
    return false;
}

std::string commonForm(std::string_view text) {
    return std::string(text);
}

} // namespace tarnwell
