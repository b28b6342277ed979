#pragma once

#include <octree/las/ColorDecoder.h>
#include <octree/las/GpsTimeDecoder.h>
#include <octree/las/ReturnLayer.h>

#include <array>
#include <cstdint>

/// How each layer of a chunk codes its values (LASzip for LAS 1.4, one section a layer): start() with the
/// first value, next() to turn the last into the next.
namespace Las::LayerCodings {

/// From the last height of the same return level.
struct Height {
    using Value = std::int32_t;
    void start(Value first) {
        mHeights.fill(first);
        mIntegers.reset();
    }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        value = mIntegers.decode(decoder, mHeights[point.returnLevel], point.heightContext);
        mHeights[point.returnLevel] = value;
    }

private:
    std::array<Value, 8> mHeights{};
    IntegerDecoder<32, 20> mIntegers;
};

struct Classification {
    using Value = std::uint8_t;
    void start(Value) { mModels.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        const unsigned isOnlyReturn = point.returnKind == 3 ? 1 : 0;
        value = static_cast<Value>(mModels.decode(decoder, (value & 31U) * 2 + isOnlyReturn));
    }

private:
    ModelTable<256, 64> mModels;
};

/// Six bits, as in Columns.
struct Flags {
    using Value = std::uint8_t;
    void start(Value) { mModels.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext&, Value& value) {
        value = static_cast<Value>(mModels.decode(decoder, value));
    }

private:
    ModelTable<64, 64> mModels;
};

/// From the last intensity of the same kind of return.
struct Intensity {
    using Value = std::uint16_t;
    void start(Value first) {
        mIntensities.fill(first);
        mIntegers.reset();
    }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        Value& last = mIntensities[point.returnKind * 2U + (point.timeChanged ? 1U : 0U)];
        value = last = static_cast<Value>(mIntegers.decode(decoder, last, point.returnKind));
    }

private:
    std::array<Value, 8> mIntensities{};
    IntegerDecoder<16, 4> mIntegers;
};

struct ScanAngle {
    using Value = std::int16_t;
    void start(Value) { mIntegers.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        if (point.angleChanged) {
            value = static_cast<Value>(mIntegers.decode(decoder, value, point.timeChanged ? 1 : 0));
        }
    }

private:
    IntegerDecoder<16, 2> mIntegers;
};

struct UserData {
    using Value = std::uint8_t;
    void start(Value) { mModels.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext&, Value& value) {
        value = static_cast<Value>(mModels.decode(decoder, value / 4U));
    }

private:
    ModelTable<256, 64> mModels;
};

struct PointSourceId {
    using Value = std::uint16_t;
    void start(Value) { mIntegers.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        if (point.sourceChanged) {
            value = static_cast<Value>(mIntegers.decode(decoder, value));
        }
    }

private:
    IntegerDecoder<16, 1> mIntegers;
};

struct GpsTime {
    using Value = std::uint64_t;
    void start(Value first) { mTimes.start(GpsTimeDecoder::Kind::Layer, first); }
    void next(ArithmeticDecoder& decoder, const PointContext& point, Value& value) {
        if (point.timeChanged) {
            value = mTimes.next(decoder);
        }
    }

private:
    GpsTimeDecoder mTimes;
};

struct Color {
    using Value = Rgb;
    void start(const Value&) { mColors.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext&, Value& value) { mColors.next(decoder, value); }

private:
    ColorDecoder mColors;
};

struct NearInfrared {
    using Value = std::uint16_t;
    void start(Value) { mValues.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext&, Value& value) { mValues.next(decoder, value); }

private:
    NearInfraredDecoder mValues;
};

/// Each extra byte has a layer of its own.
struct ExtraByte {
    using Value = std::uint8_t;
    void start(Value) { mModel.reset(); }
    void next(ArithmeticDecoder& decoder, const PointContext&, Value& value) {
        value = static_cast<Value>((value + mModel.decode(decoder)) & 255U);
    }

private:
    SymbolModel<256> mModel;
};

}  // namespace Las::LayerCodings
