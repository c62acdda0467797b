#include <gentl_producer/ClosingTurn.h>

#include <unistd.h>

namespace GenTL::Producer {

ClosingTurn::ClosingTurn() noexcept : owner(getpid()) {}

std::unique_lock<std::recursive_mutex> ClosingTurn::take() {
    return getpid() == owner ? std::unique_lock{mutex} : std::unique_lock{mutex, std::try_to_lock};
}

} // namespace GenTL::Producer
