#pragma once

// Where a long text goes: kept whole, or handed on in pieces while it is made. A listing of a whole disk is
// far longer than the tree that it is made of.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tarnwell {

/// Takes a text piece by piece, in order. A piece lasts as long as the call.
using TextSink = std::function<void(std::string_view)>;

/// Confined to one thread, but for what its sink does.
class TextOutput {
public:
    /// Keeps the whole text.
    TextOutput() = default;
    /// Hands the text to `sink`, which must outlive this, in pieces of about a mebibyte.
    explicit TextOutput(const TextSink& sink) : sink_(&sink) {}

    /// Makes room for the whole text where it is kept. `longest` gives its length in bytes.
    template <class Longest>
    void reserve(Longest longest) {
        text_.reserve(sink_ == nullptr ? longest() : pieceLength + pieceLength / 4);
    }

    /// What to append to.
    std::string& text() { return text_; }

    /// To be called now and then: what was appended is complete so far.
    void endPart() {
        if (sink_ != nullptr && text_.size() >= pieceLength)
            handOn();
    }

    /// Hands on what is left; the whole text where it was kept.
    std::string finish() {
        handOn();
        return std::exchange(text_, {});
    }

    /// Hands on what there is; nothing where the text is kept.
    void handOn() {
        if (sink_ == nullptr || text_.empty())
            return;
        (*sink_)(text_);
        text_.clear();
    }

private:
    static constexpr std::size_t pieceLength = std::size_t{1} << 20;

    const TextSink* sink_ = nullptr;
    std::string text_;
};

} // namespace tarnwell
