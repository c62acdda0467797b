// The one translation unit that holds asio's compiled parts.
#include <asio/impl/src.hpp>
