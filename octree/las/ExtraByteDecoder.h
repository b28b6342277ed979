#pragma once

#include <octree/las/SymbolModel.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Las {

/// Extra bytes (LAZ specification, BYTE version 2): each as the difference from that of the last point.
class ExtraByteDecoder {
public:
    void start(std::span<const std::byte> first) {
        mLast.assign(first.begin(), first.end());
        mModels.resize(first.size());
        for (SymbolModel<256>& model : mModels) {
            model.reset();
        }
    }

    std::span<const std::byte> next(ArithmeticDecoder& decoder) {
        for (std::size_t i = 0; i < mLast.size(); ++i) {
            mLast[i] = static_cast<std::byte>(
                (std::to_integer<unsigned>(mLast[i]) + mModels[i].decode(decoder)) & 255U);
        }
        return mLast;
    }

private:
    std::vector<SymbolModel<256>> mModels;
    std::vector<std::byte> mLast;
};

}  // namespace Las
