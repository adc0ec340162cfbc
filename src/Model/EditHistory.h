#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <utility>

namespace halvane {

// One undo step: the whole value before and after it.
template <class V>
struct EditHistoryEntry {
    std::string name;  // localized undo title
    V before;
    V after;
    double recordedAt = 0;  // host-clock seconds of the last merge into this entry

    friend bool operator==(const EditHistoryEntry&, const EditHistoryEntry&) = default;
};

// Undo and redo of whole-value snapshots. It needs only equality on V; applying a snapshot is
// the owner's work. V is expected to share its bulky parts between copies, so an entry is cheap.
template <class V>
class EditHistory {
public:
    using Entry = EditHistoryEntry<V>;

    explicit EditHistory(std::size_t limit = 200, double coalescingWindow = 1.0)
        : limit_(limit), coalescingWindow_(coalescingWindow) {}

    // Records one step at host time `at`. With `coalescing`, a step of the same name within the
    // window of the previous one merges into it; a run that returns to where it began vanishes.
    void record(std::string name, V before, V after, bool coalescing, double at) {
        if (before == after) return;
        redoStack_.clear();
        if (coalescing && mergeIntoLast(name, after, at)) return;
        undoStack_.push_back(Entry{std::move(name), std::move(before), std::move(after), at});
        while (undoStack_.size() > limit_) undoStack_.pop_front();
    }

    // The step to take back (the caller applies its `before`), or nothing.
    std::optional<Entry> undo() { return moveLast(undoStack_, redoStack_); }
    // The step to take again (the caller applies its `after`), or nothing.
    std::optional<Entry> redo() { return moveLast(redoStack_, undoStack_); }

    std::optional<std::string> undoName() const { return lastName(undoStack_); }
    std::optional<std::string> redoName() const { return lastName(redoStack_); }

    const std::deque<Entry>& undoStack() const { return undoStack_; }  // newest last
    const std::deque<Entry>& redoStack() const { return redoStack_; }  // next to redo last
    std::size_t limit() const { return limit_; }
    double coalescingWindow() const { return coalescingWindow_; }

private:
    bool mergeIntoLast(const std::string& name, V& after, double at) {
        if (undoStack_.empty()) return false;
        Entry& last = undoStack_.back();
        if (last.name != name || !(at - last.recordedAt < coalescingWindow_)) return false;
        last.after = std::move(after);
        last.recordedAt = at;
        if (last.before == last.after) undoStack_.pop_back();
        return true;
    }

    static std::optional<Entry> moveLast(std::deque<Entry>& from, std::deque<Entry>& to) {
        if (from.empty()) return std::nullopt;
        to.push_back(std::move(from.back()));
        from.pop_back();
        return to.back();
    }

    static std::optional<std::string> lastName(const std::deque<Entry>& stack) {
        if (stack.empty()) return std::nullopt;
        return stack.back().name;
    }

    std::deque<Entry> undoStack_;
    std::deque<Entry> redoStack_;
    std::size_t limit_;
    double coalescingWindow_;
};

}  // namespace halvane
