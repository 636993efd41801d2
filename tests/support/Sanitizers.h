#pragma once

#include <chrono>

namespace vrqtest {

// AddressSanitizer keeps freed memory in quarantine, resident, by design:
// there, resident memory says nothing of what the kit holds.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kResidentMemoryIsMeaningful = false;
#else
inline constexpr bool kResidentMemoryIsMeaningful = true;
#endif

// The environment for a child process that draws with the GL driver. Under
// AddressSanitizer with the slow unwinder on every allocation (which leak
// suppressions need), the driver's threads, loading and unwinding at once,
// deadlock on libgcc's unwinder lock: such a child uses the fast unwinder,
// and so goes without leak checks, which the in-process tests keep.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr const char* kDrawingChildSanitizerOptions = "ASAN_OPTIONS=abort_on_error=1 fast_unwind_on_malloc=1 detect_leaks=0";
#else
inline constexpr const char* kDrawingChildSanitizerOptions = nullptr;
#endif

// Sanitizers slow every instruction: what must finish within a time gets this many times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int kSlowdown = 3;
#else
inline constexpr int kSlowdown = 1;
#endif

inline constexpr std::chrono::milliseconds slowed(std::chrono::milliseconds bound)
{
    return bound * kSlowdown;
}

} // namespace vrqtest
