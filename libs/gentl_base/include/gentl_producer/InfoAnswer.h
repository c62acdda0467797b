// The one calling pattern of all info functions: out-type, buffer and in-out size.
//
// A null buffer asks for the size only. What was written to the type and the size before a failure stays, so that a
// caller learns the required size from a too small answer. Reentrant; caller's memory may be unaligned.
#pragma once

#include <gentl_producer/Error.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace GenTL::Producer {

// A string with its terminating NUL; bytes of the caller's buffer behind it are cleared on purpose.
Error answer_string(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, std::string_view value);
// The same for functions that have no type: ids, URLs, the last error.
Error answer_raw_string(void* pBuffer, size_t* piSize, std::string_view value);

Error answer_int32(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, int32_t value);
Error answer_uint32(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, uint32_t value);
Error answer_uint64(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, uint64_t value);
Error answer_ptr(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, const void* value);
Error answer_sizet(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, size_t value);

// Intended difference from the others: a size of 0 writes nothing and succeeds, because long-standing consumers pass
// an uninitialised size for flags.
Error answer_bool8(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, bool value);

// Bytes without a terminator; the rest of the caller's buffer is left alone.
Error answer_buffer(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, std::span<const std::byte> value);

} // namespace GenTL::Producer
