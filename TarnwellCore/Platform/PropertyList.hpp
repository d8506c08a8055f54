#pragma once

// Property lists, XML and binary, such as an application's Info.plist: what their top level says in words.
// Read by NSPropertyListSerialization on macOS and libplist on Linux.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwell {

/// By key, a text or the texts of an array of texts. Other values are left out.
using PropertyListTexts = std::map<std::string, std::vector<std::string>, std::less<>>;

/// The texts at the top of a property list, in UTF-8. Nothing for bytes that are none, or that would take a
/// reader much more room than they have themselves: deeply nested or many times repeated values. Safe from
/// any thread.
std::optional<PropertyListTexts> readPropertyList(std::string_view bytes);

namespace PropertyListDetail {

/// The system's reader. Nothing for bytes that it does not understand.
std::optional<PropertyListTexts> parse(std::string_view bytes);

/// Whether a reader that calls itself for each level, and makes a value anew wherever it stands, comes to an
/// end with these bytes, soon and on any stack.
bool isBounded(std::string_view bytes);

} // namespace PropertyListDetail
} // namespace tarnwell
