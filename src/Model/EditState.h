#pragma once

#include "Model/EditHistory.h"
#include "Model/EditSettings.h"

#include <array>
#include <bitset>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvane {

// The live edit of one take: the only writer of its settings during editing. It records undo
// steps, turns continuous gestures into single steps and tells observers what changed.
class EditState {
public:
    // What a change touched, in the order observers hear about it.
    enum class Change { appearance, cursor, zooms, focus, speeds, annotations, cuts, clips, masks, crop, captions, keystrokes, trim, audio };
    static constexpr std::size_t changeCount = 14;

    class ChangeSet {
    public:
        static ChangeSet all() { return ChangeSet(std::bitset<changeCount>().set()); }
        void insert(Change c) { bits_.set(static_cast<std::size_t>(c)); }
        bool contains(Change c) const { return bits_.test(static_cast<std::size_t>(c)); }
        bool empty() const { return bits_.none(); }
        std::size_t size() const { return bits_.count(); }
        friend bool operator==(const ChangeSet&, const ChangeSet&) = default;

    private:
        explicit ChangeSet(std::bitset<changeCount> bits = {}) : bits_(bits) {}
        friend class EditState;
        std::bitset<changeCount> bits_;
    };

    struct Gesture {
        std::string name;
        EditSettings before;
    };

    using Mutation = std::function<void(EditSettings&)>;
    using Observer = std::function<void(Change)>;
    using Clock = std::function<double()>;

    // `clock` gives the host-clock seconds that history entries are stamped with.
    explicit EditState(EditSettings settings, Clock clock = {});

    const EditSettings& settings() const { return settings_; }
    const EditHistory<EditSettings>& history() const { return history_; }
    const std::optional<Gesture>& activeGesture() const { return activeGesture_; }

    // Observers, called in the order they were added, synchronously inside every update.
    std::vector<Observer> onChange;

    // One undo step. Observers hear `change` once, even if `mutate` changed nothing.
    void edit(std::string name, Change change, const Mutation& mutate, bool coalescing = false);
    // One tick of a continuous gesture: observers hear every tick, the history one step at the end.
    void editGesture(std::string_view name, Change change, const Mutation& mutate);
    // Closes the open gesture as one step; safe at any time.
    void commitGesture();

    // Replaces the settings with a snapshot and tells observers every case that differs.
    void apply(EditSettings newValue);
    // The editor's undo and redo: each closes an open gesture first. False when there was nothing.
    bool undo();
    bool redo();

    static ChangeSet changes(const EditSettings& from, const EditSettings& to);

private:
    void notify(Change change);
    double now() const;

    EditSettings settings_;
    EditHistory<EditSettings> history_{200, 1.0};
    std::optional<Gesture> activeGesture_;
    Clock clock_;
};

constexpr auto enumNames(EditState::Change) {
    return std::array<std::string_view, EditState::changeCount>{"appearance", "cursor", "zooms",   "focus",    "speeds",
                                                                 "annotations", "cuts", "clips",   "masks",    "crop",
                                                                 "captions", "keystrokes", "trim", "audio"};
}

}  // namespace halvane
