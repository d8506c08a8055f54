#include "TarnwellCore/Platform/SystemIndex.hpp"

namespace tarnwell {

std::string systemIndexExpression(std::string_view words) {
    std::string text;
    for (const char letter : words) {
        if (letter == '"' || letter == '\\' || letter == '*')
            text += '\\';
        text += letter;
    }
    return "(kMDItemTextContent == \"*" + text + "*\"cd) || (kMDItemFSName == \"*" + text + "*\"cd)";
}

} // namespace tarnwell
