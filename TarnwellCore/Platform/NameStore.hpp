#pragma once

// Room for the names of one folder's entries, used again for the next folder.

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace tarnwell {

/// Copies of names, valid until `clear`. Confined to one thread.
class NameStore {
public:
    std::string_view add(std::string_view name) {
        if (name.empty())
            return {};
        if (name.size() > available_) [[unlikely]]
            nextBlock(name.size());
        char* place = next_;
        std::memcpy(place, name.data(), name.size());
        next_ += name.size();
        available_ -= name.size();
        return {place, name.size()};
    }

    /// Forgets every name. Memory is kept for the next folder, but not that of an unusually large one.
    void clear() {
        if (blocks_.size() > blocksKept)
            blocks_.resize(blocksKept);
        current_ = 0;
        next_ = blocks_.empty() ? nullptr : blocks_[0].memory.get();
        available_ = blocks_.empty() ? 0 : blocks_[0].length;
    }

private:
    static constexpr std::size_t blockLength = std::size_t{128} << 10;
    static constexpr std::size_t blocksKept = 4;

    struct Block {
        std::unique_ptr<char[]> memory;
        std::size_t length;
    };

    void nextBlock(std::size_t atLeast) {
        std::size_t index = blocks_.empty() ? 0 : current_ + 1;
        while (index < blocks_.size() && blocks_[index].length < atLeast)
            ++index;
        if (index >= blocks_.size()) {
            const std::size_t length = atLeast > blockLength ? atLeast : blockLength;
            blocks_.push_back({std::make_unique_for_overwrite<char[]>(length), length});
            index = blocks_.size() - 1;
        }
        current_ = index;
        next_ = blocks_[index].memory.get();
        available_ = blocks_[index].length;
    }

    std::vector<Block> blocks_;
    std::size_t current_ = 0;
    char* next_ = nullptr;
    std::size_t available_ = 0;
};

} // namespace tarnwell
