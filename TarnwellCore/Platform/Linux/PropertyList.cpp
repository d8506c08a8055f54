#include "TarnwellCore/Platform/PropertyList.hpp"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

namespace tarnwell {

namespace {

struct FreeNode {
    void operator()(void* node) const { ::plist_free(node); }
};
struct FreeText {
    void operator()(void* text) const { ::free(text); }
};
using Node = std::unique_ptr<void, FreeNode>;
using Text = std::unique_ptr<char, FreeText>;

std::optional<std::string> textOf(plist_t node) {
    if (node == nullptr || ::plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* value = nullptr;
    ::plist_get_string_val(node, &value);
    const Text text(value);
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

std::vector<std::string> textsOf(plist_t node) {
    std::vector<std::string> texts;
    if (auto text = textOf(node)) {
        texts.push_back(*std::move(text));
    } else if (::plist_get_node_type(node) == PLIST_ARRAY) {
        for (std::uint32_t index = 0; index < ::plist_array_get_size(node); ++index)
            if (auto element = textOf(::plist_array_get_item(node, index)))
                texts.push_back(*std::move(element));
    }
    return texts;
}

} // namespace

std::optional<PropertyListTexts> PropertyListDetail::parse(std::string_view bytes) {
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    plist_t parsed = nullptr;
    ::plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
    const Node list(parsed);
    if (!list || ::plist_get_node_type(list.get()) != PLIST_DICT)
        return std::nullopt;
    PropertyListTexts texts;
    plist_dict_iter started = nullptr;
    ::plist_dict_new_iter(list.get(), &started);
    const std::unique_ptr<void, FreeText> iterator(started);
    for (;;) {
        char* name = nullptr;
        plist_t value = nullptr;
        ::plist_dict_next_item(list.get(), iterator.get(), &name, &value);
        const Text key(name);
        if (!key || value == nullptr)
            return texts;
        if (auto found = textsOf(value); !found.empty())
            texts.insert_or_assign(key.get(), std::move(found));
    }
}

} // namespace tarnwell
