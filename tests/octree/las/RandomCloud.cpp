#include <tests/octree/las/RandomCloud.h>

#include <array>
#include <cstring>
#include <iterator>
#include <limits>

namespace Support {

namespace {

class Random {
public:
    explicit Random(std::uint64_t seed) : mState(seed) {}
    /// splitmix64
    std::uint64_t next() {
        mState += 0x9e3779b97f4a7c15U;
        std::uint64_t z = mState;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }
    std::uint64_t below(std::uint64_t count) { return next() % count; }
    bool oneIn(std::uint64_t count) { return below(count) == 0; }

private:
    std::uint64_t mState;
};

/// What follows an integer: mostly the same or near, at times anything or the end of its range.
template <class T>
T nextValue(Random& random, T last, bool isStill) {
    const std::uint64_t dice = random.below(isStill ? 20000 : 20);
    if (dice == 0) {
        return std::numeric_limits<T>::min();
    }
    if (dice == 1) {
        return std::numeric_limits<T>::max();
    }
    if (dice < 5) {
        return static_cast<T>(random.next());
    }
    const auto wrapped = static_cast<std::uint64_t>(last);
    if (dice < 10) {
        return static_cast<T>(wrapped + random.below(1ULL << random.below(15)));
    }
    return dice < 14 ? static_cast<T>(wrapped - random.below(40)) : last;
}

/// Times of four flight lines: repeated for the returns of a pulse, and steps that repeat, grow, jump.
class Clock {
public:
    double next(Random& random, bool isStill) {
        if (random.oneIn(isStill ? 20000 : 30)) {
            mLine = random.below(mTimes.size());
        }
        double& time = mTimes[mLine];
        const std::uint64_t dice = random.below(isStill ? 20000 : 40);
        if (dice == 0) {
            std::uint64_t bits = random.next();
            std::memcpy(&time, &bits, sizeof bits);
        } else if (dice == 1) {
            time = 0.0;
        } else if (dice < 5) {
            std::uint64_t bits = 0;
            std::memcpy(&bits, &time, sizeof bits);
            // Multiples of one step of the double's bits, forward and backward.
            bits += (random.below(1200) - 100) * 977;
            std::memcpy(&time, &bits, sizeof bits);
        } else if (dice < 20) {
            time += 1e-5;
        }
        return time;
    }

private:
    std::size_t mLine = 0;
    std::array<double, 6> mTimes{400000.0, 400100.0, 400200.5, 9e8, -1.0, 3e-3};
};

/// Times whose bits move by multiples of a line's step, for some points in a row by the same.
class SteppingClock {
public:
    double next(Random& random) {
        if (random.oneIn(12)) {
            mLine = random.below(mLines.size());
        }
        Line& line = mLines[mLine];
        if (random.oneIn(8)) {
            static constexpr std::int64_t MULTIPLES[] = {0,   1,   1,  2,  9,   10,  499, 500,
                                                         501, 700, -1, -9, -10, -11, -60};
            line.multiple = MULTIPLES[random.below(std::size(MULTIPLES))];
        }
        if (random.oneIn(50)) {
            line.bits = random.next();
        }
        line.bits += static_cast<std::uint64_t>(line.multiple * 50021) + random.below(4);
        double time = 0.0;
        std::memcpy(&time, &line.bits, sizeof time);
        return time;
    }

private:
    struct Line {
        std::uint64_t bits = 0;
        std::int64_t multiple = 1;
    };
    std::size_t mLine = 0;
    std::array<Line, 6> mLines{};
};

class RecordWriter {
public:
    explicit RecordWriter(const RandomCloud& cloud)
        : mCloud(cloud),
          mRandom(1000 * cloud.format + cloud.count + cloud.extraBytes),
          mIsStill(cloud.kind != RandomCloud::Kind::Wild),
          mExtraBytes(cloud.extraBytes) {}

    void append(std::string& out) {
        mOut = &out;
        for (std::int32_t& axis : mPosition) {
            step(axis);
            put(axis);
        }
        step(mIntensity);
        put(mIntensity);
        nextReturn();
        mCloud.format < 6 ? appendOldFields() : appendNewFields();
        if (mCloud.format == 2 || mCloud.format == 3 || mCloud.format >= 7) {
            appendColor();
        }
        if (mCloud.format == 8) {
            step(mNearInfrared);
            put(mNearInfrared);
        }
        for (std::uint8_t& byte : mExtraBytes) {
            step(byte);
            put(byte);
        }
    }

private:
    template <class T>
    void step(T& value) {
        value = nextValue(mRandom, value, mIsStill);
    }
    template <class T>
    void put(const T& value) {
        mOut->append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    bool sometimes(std::uint64_t oneIn) { return mRandom.oneIn(mIsStill ? 2000 * oneIn : oneIn); }

    void nextReturn() {
        const std::uint64_t most = mCloud.format < 6 ? 8 : 16;
        if (sometimes(20)) {
            mReturn = mRandom.below(most);
            mReturns = mRandom.below(most);
        } else if (++mReturn > mReturns) {
            mReturn = 1;
            mReturns = mIsStill ? 1 : 1 + mRandom.below(mRandom.below(most - 1) + 1);
        }
        if (mReturn >= most) {
            mReturn = 0;
        }
        if (mReturn <= 1) {
            mTime = mCloud.kind == RandomCloud::Kind::Times ? mSteppingClock.next(mRandom)
                                                            : mClock.next(mRandom, mIsStill);
        }
    }

    void appendOldFields() {
        if (sometimes(5)) {
            mFlags = mRandom.next();
        }
        put(static_cast<std::uint8_t>(mReturn | mReturns << 3U | (mFlags & 3U) << 6U));
        step(mClassification);
        put(mClassification);
        step(mScanAngle);
        put(static_cast<std::int8_t>(mScanAngle));
        appendUserDataAndSource();
        if (mCloud.format == 1 || mCloud.format == 3) {
            put(mTime);
        }
    }

    void appendNewFields() {
        put(static_cast<std::uint8_t>(mReturn | mReturns << 4U));
        if (sometimes(5)) {
            mFlags = mRandom.next();
        }
        if (sometimes(4)) {
            mChannel = mRandom.below(4);
        }
        put(static_cast<std::uint8_t>((mFlags & 0xcfU) | mChannel << 4U));
        step(mClassification);
        put(mClassification);
        step(mUserData);
        put(mUserData);
        step(mScanAngle);
        put(mScanAngle);
        step(mSource);
        put(mSource);
        put(mTime);
    }

    void appendUserDataAndSource() {
        step(mUserData);
        put(mUserData);
        step(mSource);
        put(mSource);
    }

    void appendColor() {
        const bool isGrey = sometimes(3);
        const bool isShifted = sometimes(3);
        for (std::uint16_t& channel : mColor) {
            step(channel);
            if (isGrey) {
                channel = mColor[0];
            } else if (isShifted) {
                channel = static_cast<std::uint16_t>(channel & 0xff00U);
            }
            put(channel);
        }
    }

    const RandomCloud& mCloud;
    Random mRandom;
    bool mIsStill;
    std::string* mOut = nullptr;
    Clock mClock;
    SteppingClock mSteppingClock;
    std::array<std::int32_t, 3> mPosition{};
    std::uint16_t mIntensity = 0;
    std::uint64_t mReturn = 1, mReturns = 1, mFlags = 0, mChannel = 0;
    double mTime = 0.0;
    std::uint8_t mClassification = 0, mUserData = 0;
    std::int16_t mScanAngle = 0;
    std::uint16_t mSource = 0;
    std::array<std::uint16_t, 3> mColor{};
    std::uint16_t mNearInfrared = 0;
    std::vector<std::uint8_t> mExtraBytes;
};

template <class T>
void setAt(std::string& bytes, std::size_t offset, const T& value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

}  // namespace

std::size_t RandomCloud::recordLength() const {
    static constexpr std::size_t LENGTHS[] = {20, 28, 26, 34, 57, 63, 30, 36, 38};
    return LENGTHS[format] + extraBytes;
}

std::string RandomCloud::records() const {
    std::string bytes;
    RecordWriter writer(*this);
    for (std::size_t i = 0; i < count; ++i) {
        writer.append(bytes);
    }
    return bytes;
}

std::string RandomCloud::lasFile() const {
    const bool isNew = format >= 6;
    const auto headerSize = static_cast<std::uint16_t>(isNew ? 375 : 227);
    std::string bytes(headerSize, '\0');
    std::memcpy(bytes.data(), "LASF", 4);
    setAt(bytes, 24, std::uint8_t{1});
    setAt(bytes, 25, static_cast<std::uint8_t>(isNew ? 4 : 2));
    setAt(bytes, 94, headerSize);
    setAt(bytes, 96, std::uint32_t{headerSize});
    setAt(bytes, 104, static_cast<std::uint8_t>(format));
    setAt(bytes, 105, static_cast<std::uint16_t>(recordLength()));
    setAt(bytes, 107, static_cast<std::uint32_t>(isNew ? 0 : count));
    const std::array<double, 6> scaleAndOffset{0.01, 0.001, 0.25, 1000.0, -2000.0, 3.5};
    setAt(bytes, 131, scaleAndOffset);
    if (isNew) {
        setAt(bytes, 247, std::uint64_t{count});
    }
    return bytes + records();
}

const std::vector<EncodedCloud>& encodedClouds() {
    using Kind = RandomCloud::Kind;
    static const std::vector<EncodedCloud> clouds{
        {"format0-chunk50", {0, 230, 0, Kind::Wild}, 50},
        {"format1-extra3-chunk1", {1, 40, 3, Kind::Wild}, 1},
        {"format2-chunk2", {2, 101, 0, Kind::Wild}, 2},
        {"format3-extra5-chunk100", {3, 250, 5, Kind::Wild}, 100},
        {"format3-variable", {3, 125, 0, Kind::Wild}, 0},
        {"format0-still-chunk50000", {0, 100001, 0, Kind::Still}, 50000},
        {"format1-still-chunk50000", {1, 50000, 0, Kind::Still}, 50000},
        {"format1-times", {1, 1500, 0, Kind::Times}, 50000},
        {"format2-variable-many", {2, 80, 0, Kind::Wild}, 0},
        {"format6-times", {6, 1500, 0, Kind::Times}, 700},
        {"format6-chunk80", {6, 300, 0, Kind::Wild}, 80},
        {"format6-still-chunk50000", {6, 54000, 0, Kind::Still}, 50000},
        {"format7-extra2-chunk1", {7, 30, 2, Kind::Wild}, 1},
        {"format7-chunk200", {7, 410, 0, Kind::Wild}, 200},
        {"format7-extra1-version4", {7, 250, 1, Kind::Wild}, 200},
        {"format8-extra4-chunk100", {8, 250, 4, Kind::Wild}, 100},
        {"format8-variable", {8, 125, 1, Kind::Wild}, 0},
        {"format2-one-point", {2, 1, 0, Kind::Wild}, 50000},
        {"format7-one-point", {7, 1, 0, Kind::Wild}, 50000},
        {"format0-no-points", {0, 0, 0, Kind::Wild}, 50000},
        {"format6-no-points", {6, 0, 0, Kind::Wild}, 50000},
    };
    return clouds;
}

}  // namespace Support
