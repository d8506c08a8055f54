#pragma once

// What the benchmark programs share: options of the form "--name NUMBER" around one path.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iostream>
#include <string>
#include <string_view>

namespace tarnwell::benchmarks {

struct NumberOption {
    std::string_view name;
    std::uint64_t* value;
};

[[noreturn]] inline void failUsage(std::string_view usage) {
    std::cerr << usage;
    std::exit(2);
}

/// Fills the options' values and gives the one other argument; ends the program with `usage` otherwise.
inline std::string parseArguments(int count, char** values, std::initializer_list<NumberOption> options,
                                  std::string_view usage) {
    std::string path;
    for (int index = 1; index < count; ++index) {
        const std::string_view word = values[index];
        const NumberOption* match = nullptr;
        for (const NumberOption& option : options) {
            if (option.name == word)
                match = &option;
        }
        if (match) {
            char* end = nullptr;
            const char* text = ++index < count ? values[index] : "";
            *match->value = std::strtoull(text, &end, 10);
            if (*text < '0' || *text > '9' || *end != '\0')
                failUsage(usage);
        } else if (path.empty() && !word.empty() && word[0] != '-') {
            path = word;
        } else {
            failUsage(usage);
        }
    }
    if (path.empty())
        failUsage(usage);
    return path;
}

/// Ends the program with the text of the current errno.
[[noreturn]] inline void failCall(std::string_view what) {
    const int error = errno;
    std::cerr << what << ": " << std::strerror(error) << '\n';
    std::exit(1);
}

} // namespace tarnwell::benchmarks
