#include <octree/potree/PointCodes.h>

#include <bit>
#include <cstring>

#if defined(__x86_64__) || defined(_M_X64)
#define LUMARO_X64 1
#include <immintrin.h>
#if defined(_MSC_VER)
#include <intrin.h>
#define LUMARO_TARGET_BMI2
#else
#include <cpuid.h>
#define LUMARO_TARGET_BMI2 __attribute__((target("bmi2")))
#endif
#endif

namespace PoTree {

namespace {

static_assert(std::endian::native == std::endian::little, "Codes are read in place");

std::uint64_t wordAt(const std::byte* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

std::int32_t joined(std::uint64_t upper, std::uint64_t lower) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(upper << 16 | lower));
}

// Every third of the low 48 bits, beginning with the lowest, moved together.
std::uint64_t everyThirdBit(std::uint64_t v) {
    v &= 0x249249249249u;
    v = (v | v >> 2) & 0x0C30C30C30C3u;
    v = (v | v >> 4) & 0x00F00F00F00Fu;
    v = (v | v >> 8) & 0x0000FF0000FFu;
    v = (v | v >> 16) & 0x00000000FFFFu;
    return v;
}

void portablePositions(const std::byte* codes, std::size_t count, std::int32_t* x, std::int32_t* y,
                       std::int32_t* z) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t upper = wordAt(codes + 16 * i);
        const std::uint64_t lower = wordAt(codes + 16 * i + 8);
        x[i] = joined(everyThirdBit(upper), everyThirdBit(lower));
        y[i] = joined(everyThirdBit(upper >> 1), everyThirdBit(lower >> 1));
        z[i] = joined(everyThirdBit(upper >> 2), everyThirdBit(lower >> 2));
    }
}

void portableColors(const std::byte* codes, std::size_t count, ColorDepth depth, Math::Color* colors) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t code = wordAt(codes + 8 * i);
        colors[i] = Math::Color(narrowedChannel(everyThirdBit(code), depth),
                                narrowedChannel(everyThirdBit(code >> 1), depth),
                                narrowedChannel(everyThirdBit(code >> 2), depth));
    }
}

#if defined(LUMARO_X64)

constexpr std::uint64_t X_BITS = 0x249249249249u;
constexpr std::uint64_t Y_BITS = X_BITS << 1;
constexpr std::uint64_t Z_BITS = X_BITS << 2;

LUMARO_TARGET_BMI2 void bmi2Positions(const std::byte* codes, std::size_t count, std::int32_t* x,
                                      std::int32_t* y, std::int32_t* z) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t upper = wordAt(codes + 16 * i);
        const std::uint64_t lower = wordAt(codes + 16 * i + 8);
        x[i] = joined(_pext_u64(upper, X_BITS), _pext_u64(lower, X_BITS));
        y[i] = joined(_pext_u64(upper, Y_BITS), _pext_u64(lower, Y_BITS));
        z[i] = joined(_pext_u64(upper, Z_BITS), _pext_u64(lower, Z_BITS));
    }
}

LUMARO_TARGET_BMI2 void bmi2Colors(const std::byte* codes, std::size_t count, ColorDepth depth,
                                   Math::Color* colors) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t code = wordAt(codes + 8 * i);
        colors[i] = Math::Color(narrowedChannel(_pext_u64(code, X_BITS), depth),
                                narrowedChannel(_pext_u64(code, Y_BITS), depth),
                                narrowedChannel(_pext_u64(code, Z_BITS), depth));
    }
}

struct CpuId {
    explicit CpuId(unsigned leaf) {
#if defined(_MSC_VER)
        int registers[4] = {};
        __cpuidex(registers, static_cast<int>(leaf), 0);
        eax = static_cast<unsigned>(registers[0]);
        ebx = static_cast<unsigned>(registers[1]);
#else
        unsigned ecx = 0;
        unsigned edx = 0;
        __get_cpuid_count(leaf, 0, &eax, &ebx, &ecx, &edx);
#endif
    }
    unsigned eax = 0, ebx = 0;
};

bool hasFastBmi2() {
    constexpr unsigned AUTHENTIC_AMD = 0x68747541;  // the first four letters, in ebx of leaf 0
    constexpr unsigned FIRST_FAST_AMD_FAMILY = 0x19;
    const CpuId vendor(0);
    if (vendor.eax < 7 || (CpuId(7).ebx >> 8 & 1) == 0) {
        return false;
    }
    const unsigned signature = CpuId(1).eax;
    const unsigned family = (signature >> 8 & 15) + (signature >> 20 & 255);
    return vendor.ebx != AUTHENTIC_AMD || family >= FIRST_FAST_AMD_FAMILY;
}

#endif

}  // namespace

const PointCodeKernel& portablePointCodeKernel() {
    static const PointCodeKernel kernel{portablePositions, portableColors};
    return kernel;
}

const PointCodeKernel* bmi2PointCodeKernel() {
#if defined(LUMARO_X64)
    static const PointCodeKernel kernel{bmi2Positions, bmi2Colors};
    static const bool available = hasFastBmi2();
    return available ? &kernel : nullptr;
#else
    return nullptr;
#endif
}

const PointCodeKernel& pointCodeKernel() {
    const PointCodeKernel* bmi2 = bmi2PointCodeKernel();
    return bmi2 != nullptr ? *bmi2 : portablePointCodeKernel();
}

}  // namespace PoTree
