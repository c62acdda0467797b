// The bound on what one access may cause. Nodes refer to each other freely, so a faulty document can ask for an
// evaluation without end: a pValue that leads back to itself, a formula that reads itself, or a short list of nodes
// that each read the next twice. An access therefore counts its depth (which bounds the stack) and its steps (which
// bound the time). Per thread, not per document: a port serves several threads at once.
#pragma once

#include <GenICam/error.h>

#include <cstddef>
#include <utility>

namespace GenICam::impl {

struct eval_state {
    unsigned depth = 0;
    unsigned steps_left = 0;
    unsigned pass_steps_left = 0; // of all passes of one access together, see eval_pass_scope
};

inline constinit thread_local eval_state current_eval{};

class eval_scope {
public:
    static constexpr unsigned maximum_depth = 160;
    // A bound on time, for documents whose nodes lead to each other on ever more ways. A formula fetches each of its
    // variables once and sound documents stay far below, formulas' own steps included.
    static constexpr unsigned maximum_steps = 100'000;
    // Of passes, see eval_pass_scope. A sound document may well invalidate all its registers at once, and the addresses
    // of each take some steps.
    static constexpr unsigned maximum_pass_steps = 1'000'000;

    eval_scope() noexcept : state(current_eval) {
        if (state.depth++ == 0) begin(state);
        passed = state.depth <= maximum_depth && state.steps_left != 0;
        if (state.steps_left != 0) --state.steps_left;
    }
    ~eval_scope() { --state.depth; }
    eval_scope(const eval_scope&) = delete;
    eval_scope& operator=(const eval_scope&) = delete;

    [[nodiscard]] explicit operator bool() const noexcept { return passed; }
    [[nodiscard]] static std::unexpected<std::error_code> error() noexcept {
        return fail(genicam_errc::invalid_document);
    }

    // The steps of a computation within an access. False, and none is left, when it takes more than there are.
    [[nodiscard]] static bool take(std::size_t steps) noexcept {
        eval_state& state = current_eval;
        const bool enough = steps <= state.steps_left;
        state.steps_left = enough ? state.steps_left - static_cast<unsigned>(steps) : 0;
        return enough;
    }

    [[nodiscard]] static bool is_used_up() noexcept { return current_eval.steps_left == 0; }

    static void begin(eval_state& state) noexcept {
        state.steps_left = maximum_steps;
        state.pass_steps_left = maximum_pass_steps;
    }

private:
    eval_state& state;
    bool passed;
};

// A user's callback within an access has steps of its own.
class eval_callback_scope {
public:
    eval_callback_scope() noexcept : kept(current_eval) { eval_scope::begin(current_eval); }
    ~eval_callback_scope() { current_eval = kept; }
    eval_callback_scope(const eval_callback_scope&) = delete;
    eval_callback_scope& operator=(const eval_callback_scope&) = delete;

private:
    eval_state kept;
};

// A pass over a list of nodes, whose addresses are told to invalidate them. That must not use up the steps of the write
// that causes it, so passes have steps of their own: so many for all passes of one access (an event, a binding, a value
// with many copies) together.
class eval_pass_scope {
public:
    eval_pass_scope() noexcept { std::swap(current_eval.steps_left, current_eval.pass_steps_left); }
    ~eval_pass_scope() { std::swap(current_eval.steps_left, current_eval.pass_steps_left); }
    eval_pass_scope(const eval_pass_scope&) = delete;
    eval_pass_scope& operator=(const eval_pass_scope&) = delete;

private:
    eval_scope access; // the pass may be the outermost access itself
};

} // namespace GenICam::impl
