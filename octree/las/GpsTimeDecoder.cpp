#include <octree/las/DataError.h>
#include <octree/las/GpsTimeDecoder.h>

namespace Las {

namespace {

// Multiples of the step: 0 to 500 are coded as themselves, -1 to -10 as 501 to 510.
constexpr unsigned MOST_FORWARD = 500, LAST_BACKWARD = 510;
/// Encoders switch sequences at most once a point.
constexpr int MAX_SWITCHES = 3;
constexpr unsigned MAX_STRAYS = 3;

std::int32_t wrappedProduct(std::int32_t factor, std::int32_t step) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(factor) * static_cast<std::uint32_t>(step));
}

std::uint64_t widened(std::int32_t difference) {
    return static_cast<std::uint64_t>(std::int64_t{difference});
}

}  // namespace

void GpsTimeDecoder::start(Kind kind, std::uint64_t first) {
    const unsigned unchanged = kind == Kind::Item ? 1 : 0;
    mKind = kind;
    mSequences.fill(Sequence());
    mSequences[0].time = first;
    mCurrent = mNewest = 0;
    mFirstStep.reset(5 + unchanged);
    mMultiple.reset(LAST_BACKWARD + 5 + unchanged);
    mIntegers.reset();
}

std::uint64_t GpsTimeDecoder::next(ArithmeticDecoder& decoder) {
    for (int switches = 0;
         !(mSequences[mCurrent].step == 0 ? nextWithoutStep(decoder) : nextWithStep(decoder)); ++switches) {
        if (switches == MAX_SWITCHES) {
            throw DataError("the GPS time has no end");
        }
    }
    return mSequences[mCurrent].time;
}

/// False when the sequence was switched and the time is still to come; so do the next two.
bool GpsTimeDecoder::nextWithoutStep(ArithmeticDecoder& decoder) {
    unsigned symbol = mFirstStep.decode(decoder);
    if (mKind == Kind::Item) {
        if (symbol == 0) {
            return true;
        }
        --symbol;
    }
    if (symbol != 0) {
        return switchOrRestart(decoder, symbol - 1);
    }
    Sequence& sequence = mSequences[mCurrent];
    sequence.step = mIntegers.decode(decoder, 0, FIRST_STEP);
    sequence.time += widened(sequence.step);
    sequence.strays = 0;
    return true;
}

bool GpsTimeDecoder::nextWithStep(ArithmeticDecoder& decoder) {
    unsigned symbol = mMultiple.decode(decoder);
    if (symbol <= LAST_BACKWARD) {
        advanceBySteps(decoder, symbol);
        return true;
    }
    symbol -= LAST_BACKWARD + 1;
    if (mKind == Kind::Item) {
        if (symbol == 0) {
            return true;
        }
        --symbol;
    }
    return switchOrRestart(decoder, symbol);
}

void GpsTimeDecoder::advanceBySteps(ArithmeticDecoder& decoder, unsigned symbol) {
    Sequence& sequence = mSequences[mCurrent];
    if (symbol == 1) {
        sequence.time += widened(mIntegers.decode(decoder, sequence.step, ONE_STEP));
        sequence.strays = 0;
        return;
    }
    const bool isForward = symbol <= MOST_FORWARD;
    const auto multiple =
        isForward ? static_cast<std::int32_t>(symbol) : -static_cast<std::int32_t>(symbol - MOST_FORWARD);
    Context context = FEW_BACK;
    if (symbol == 0) {
        context = NO_STEP;
    } else if (isForward) {
        context = symbol < 10 ? FEW_STEPS : symbol < MOST_FORWARD ? MANY_STEPS : MOST_STEPS;
    } else if (symbol == LAST_BACKWARD) {
        context = MOST_BACK;
    }
    const std::int32_t difference =
        mIntegers.decode(decoder, wrappedProduct(multiple, sequence.step), context);
    sequence.time += widened(difference);
    if (context == NO_STEP || context == MOST_STEPS || context == MOST_BACK) {
        if (++sequence.strays > MAX_STRAYS) {
            sequence.step = difference;
            sequence.strays = 0;
        }
    }
}

/// Symbol 0 begins a sequence with a whole time; 1 to 3 go on with one of the three others.
bool GpsTimeDecoder::switchOrRestart(ArithmeticDecoder& decoder, unsigned symbol) {
    if (symbol != 0) {
        mCurrent = (mCurrent + symbol) & 3;
        return false;
    }
    const auto upper = static_cast<std::int32_t>(mSequences[mCurrent].time >> 32);
    mNewest = (mNewest + 1) & 3;
    const auto newUpper = static_cast<std::uint32_t>(mIntegers.decode(decoder, upper, UPPER_HALF));
    mSequences[mNewest] = {std::uint64_t{newUpper} << 32 | decoder.rawBits(32), 0, 0};
    mCurrent = mNewest;
    return true;
}

}  // namespace Las
