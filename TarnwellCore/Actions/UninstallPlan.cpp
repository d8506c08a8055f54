#include "TarnwellCore/Actions/UninstallPlan.hpp"

namespace tarnwell {

namespace {

std::string_view textOf(LeftoverReason reason) {
    switch (reason) {
    case LeftoverReason::application:
        return "The application.";
    case LeftoverReason::identifier:
        return "It has the application's identifier.";
    case LeftoverReason::belowIdentifier:
        return "It has the identifier of a part of the application.";
    case LeftoverReason::groupContainer:
        return "What the application shares with others of its maker.";
    case LeftoverReason::makersGroup:
        return "What applications of this maker share.";
    case LeftoverReason::bundleIdentifier:
        return "A plug-in that has the application's identifier.";
    case LeftoverReason::startsProgram:
        return "It starts the application.";
    case LeftoverReason::leadsThere:
        return "A link into the application.";
    case LeftoverReason::makersFolder:
        return "It has the application's name, in its maker's folder.";
    case LeftoverReason::name:
        return "It has the application's name.";
    }
    return "";
}

std::string textOf(LeftoverDoubt doubt, const std::string& otherName) {
    switch (doubt) {
    case LeftoverDoubt::none:
        return {};
    case LeftoverDoubt::otherCopy:
        return " The application is installed a second time.";
    case LeftoverDoubt::otherApplication:
        return " " + otherName + " may use it, too.";
    case LeftoverDoubt::otherUser:
        return " It belongs to another user.";
    case LeftoverDoubt::shortIdentifier:
        return " That identifier may be the maker's.";
    }
    return {};
}

} // namespace

std::string_view rawValue(LeftoverReason reason) {
    switch (reason) {
    case LeftoverReason::application:
        return "application";
    case LeftoverReason::identifier:
        return "identifier";
    case LeftoverReason::belowIdentifier:
        return "belowIdentifier";
    case LeftoverReason::groupContainer:
        return "groupContainer";
    case LeftoverReason::makersGroup:
        return "makersGroup";
    case LeftoverReason::bundleIdentifier:
        return "bundleIdentifier";
    case LeftoverReason::startsProgram:
        return "startsProgram";
    case LeftoverReason::leadsThere:
        return "leadsThere";
    case LeftoverReason::makersFolder:
        return "makersFolder";
    case LeftoverReason::name:
        return "name";
    }
    return "name";
}

std::string UninstallItem::explanation() const {
    return std::string(textOf(reason)) + textOf(doubt, otherName);
}

std::string UninstallRefusal::explanation() const {
    switch (kind) {
    case Kind::notThere:
        return "There is no such application.";
    case Kind::notApplication:
        return "It is no application that can be uninstalled from here.";
    case Kind::link:
        return "It is a link to " + detail + ". Name the application itself.";
    case Kind::notOfUser:
        return "It came with the system or with one of its packages. Remove it with what installed it.";
    case Kind::securityProduct:
        return "It is a security product by " + detail + ": only its own uninstaller removes all of it.";
    case Kind::running:
        return "It is running (" + detail + "). Quit it first.";
    case Kind::holdsHome:
        return "The home folder lies in it.";
    }
    return "";
}

} // namespace tarnwell
