// The levels that this processor and the system have, as bits.
#include <img_pipe/filter_table.h>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace img_pipe {

namespace {

std::uint32_t detect() {
    std::uint32_t mask = cpu::c;
#if defined(__x86_64__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0) return mask;
    if ((c & bit_SSSE3) != 0) mask |= cpu::ssse3;
    if ((c & bit_SSE4_1) != 0) mask |= cpu::sse41;
    if ((c & bit_SSE4_2) != 0) mask |= cpu::sse42;
    if ((c & bit_OSXSAVE) == 0 || (c & bit_AVX) == 0) return mask;
    unsigned low = 0, high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    if ((low & 6) != 6) return mask; // the system keeps XMM and YMM registers
    mask |= cpu::avx;
    if ((c & bit_FMA) != 0) mask |= cpu::fma;
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return mask;
    if ((b & bit_AVX2) != 0) mask |= cpu::avx2;
    if ((low & 0xE0) != 0xE0) return mask; // and the mask and ZMM registers
    if ((b & bit_AVX512F) != 0) mask |= cpu::avx512f;
    if ((b & bit_AVX512CD) != 0) mask |= cpu::avx512cd;
    if ((b & bit_AVX512BW) != 0) mask |= cpu::avx512bw;
    if ((b & bit_AVX512DQ) != 0) mask |= cpu::avx512dq;
    if ((b & bit_AVX512VL) != 0) mask |= cpu::avx512vl;
#elif defined(__aarch64__)
    mask |= cpu::neon;
#endif
    return mask;
}

} // namespace

std::uint32_t cpu_mask() {
    static const std::uint32_t mask = detect();
    return mask;
}

std::string_view cpu_level_name(std::uint32_t mask) {
    if ((mask & cpu::avx512f) != 0) return "avx512f";
    if ((mask & cpu::avx2) != 0) return "AVX2";
    if ((mask & cpu::avx) != 0) return "AVX";
    if ((mask & cpu::sse41) != 0) return "SSE4.1";
    if ((mask & cpu::ssse3) != 0) return "SSSE3";
    if ((mask & cpu::neon) != 0) return "NEON";
    return (mask & cpu::c) != 0 ? "plain" : "Unspecified";
}

} // namespace img_pipe
