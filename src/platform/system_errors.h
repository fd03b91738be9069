#pragma once
// System error codes that several seams answer with, numbered as Windows numbers them.

#include <cstdint>

namespace zaltor::platform {

inline constexpr uint32_t kErrorAccessDenied = 5;
inline constexpr uint32_t kErrorInvalidHandle = 6;  // also a context handle of another client
inline constexpr uint32_t kErrorNotEnoughMemory = 8;
inline constexpr uint32_t kErrorInvalidParameter = 87;

}  // namespace zaltor::platform
