#pragma once

#include <array>
#include <memory>

namespace Las {

/// What a layer knows of each of the four scanner channels: its models, and the last value of the points of
/// that channel. A channel met for the first time starts from the last value of the channel before it.
template <class Models>
class LayerChannels {
public:
    using Value = typename Models::Value;
    struct Selected {
        Models& models;
        Value& last;
    };

    /// With keepsLast, coming back to a channel predicts the next value from the channel left, and stores it
    /// there: version 3 of the items of colours and extra bytes.
    void start(unsigned channel, const Value& first, bool keepsLast) {
        mKeepsLast = keepsLast;
        mUsed = 0;
        mCurrent = channel;
        open(channel, first);
    }

    Selected select(unsigned channel) {
        unsigned lastOf = channel;
        if (channel != mCurrent) {
            if ((mUsed >> channel & 1) == 0) {
                open(channel, mLast[mCurrent]);
            } else if (mKeepsLast) {
                lastOf = mCurrent;
            }
            mCurrent = channel;
        }
        return {*mModels[channel], mLast[lastOf]};
    }

private:
    void open(unsigned channel, const Value& first) {
        if (mModels[channel] == nullptr) {
            mModels[channel] = std::make_unique_for_overwrite<Models>();
        }
        mLast[channel] = first;
        mModels[channel]->start(mLast[channel]);
        mUsed |= 1U << channel;
    }

    std::array<std::unique_ptr<Models>, 4> mModels;
    std::array<Value, 4> mLast{};
    unsigned mUsed = 0, mCurrent = 0;
    bool mKeepsLast = false;
};

}  // namespace Las
