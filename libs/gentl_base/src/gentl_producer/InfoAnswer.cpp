#include <gentl_producer/InfoAnswer.h>

#include <cstring>

namespace GenTL::Producer {

namespace {

Error type_missing() { return {GC_ERR_INVALID_PARAMETER, "piType == nullptr"}; }
Error size_missing() { return {GC_ERR_INVALID_PARAMETER, "piSize == nullptr"}; }

template <class T>
Error answer_value(INFO_DATATYPE type, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, T value) {
    if (piType == nullptr) return type_missing();
    *piType = type;
    if (piSize == nullptr) return size_missing();
    const size_t old_size = *piSize;
    *piSize = sizeof(T);
    if (pBuffer == nullptr) return success();
    if (old_size < sizeof(T)) return {GC_ERR_BUFFER_TOO_SMALL, "Buffer too small"};
    std::memcpy(pBuffer, &value, sizeof(T));
    return success();
}

} // namespace

Error answer_string(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, std::string_view value) {
    if (piType == nullptr) return type_missing();
    *piType = INFO_DATATYPE_STRING;
    return answer_raw_string(pBuffer, piSize, value);
}

Error answer_raw_string(void* pBuffer, size_t* piSize, std::string_view value) {
    if (piSize == nullptr) return size_missing();
    const size_t old_size = *piSize;
    *piSize = value.size() + 1;
    if (pBuffer == nullptr) return success();
    if (old_size < value.size() + 1) return Error{GC_ERR_BUFFER_TOO_SMALL};
    std::memset(pBuffer, 0, old_size);
    if (!value.empty()) std::memcpy(pBuffer, value.data(), value.size());
    return success();
}

Error answer_int32(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, int32_t value) {
    return answer_value(INFO_DATATYPE_INT32, piType, pBuffer, piSize, value);
}

Error answer_uint32(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, uint32_t value) {
    return answer_value(INFO_DATATYPE_UINT32, piType, pBuffer, piSize, value);
}

Error answer_uint64(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, uint64_t value) {
    return answer_value(INFO_DATATYPE_UINT64, piType, pBuffer, piSize, value);
}

Error answer_ptr(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, const void* value) {
    return answer_value(INFO_DATATYPE_PTR, piType, pBuffer, piSize, value);
}

Error answer_sizet(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, size_t value) {
    return answer_value(INFO_DATATYPE_SIZET, piType, pBuffer, piSize, value);
}

Error answer_bool8(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, bool value) {
    if (piType == nullptr) return type_missing();
    *piType = INFO_DATATYPE_BOOL8;
    if (piSize == nullptr) return success();
    if (pBuffer != nullptr && *piSize != 0) *static_cast<bool8_t*>(pBuffer) = value ? 1 : 0;
    *piSize = 1;
    return success();
}

Error answer_buffer(INFO_DATATYPE* piType, void* pBuffer, size_t* piSize, std::span<const std::byte> value) {
    if (piType == nullptr) return type_missing();
    if (piSize == nullptr) return size_missing();
    *piType = INFO_DATATYPE_BUFFER;
    const size_t old_size = *piSize;
    *piSize = value.size();
    if (pBuffer == nullptr) return success();
    if (old_size < value.size()) return {GC_ERR_BUFFER_TOO_SMALL, "Buffer too small"};
    if (!value.empty()) std::memcpy(pBuffer, value.data(), value.size());
    return success();
}

} // namespace GenTL::Producer
