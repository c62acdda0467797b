// Steps that are all tried, whatever of them fails: what is done at the end of a run.
#pragma once

#include <exception>
#include <utility>

namespace cli {

// Thread-bound.
class first_failure {
public:
    template <class Step>
    void attempt(Step&& step) {
        try {
            std::forward<Step>(step)();
        } catch (...) {
            if (!first) first = std::current_exception();
        }
    }
    void rethrow() const { // the first one, if any
        if (first) std::rethrow_exception(first);
    }

private:
    std::exception_ptr first;
};

} // namespace cli
