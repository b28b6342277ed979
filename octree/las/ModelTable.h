#pragma once

#include <octree/las/SymbolModel.h>

#include <array>
#include <memory>

namespace Las {

/// One model for each of many contexts, few of which are met: each is made when it is first needed.
template <unsigned SYMBOLS, unsigned CONTEXTS>
class ModelTable {
public:
    void reset() { ++mGeneration; }

    unsigned decode(ArithmeticDecoder& decoder, unsigned context) {
        std::unique_ptr<Entry>& entry = mEntries[context];
        if (entry == nullptr) {
            entry = std::make_unique_for_overwrite<Entry>();
        }
        if (entry->generation != mGeneration) {
            entry->model.reset();
            entry->generation = mGeneration;
        }
        return entry->model.decode(decoder);
    }

private:
    struct Entry {
        SymbolModel<SYMBOLS> model;
        unsigned generation = 0;
    };
    unsigned mGeneration = 1;
    std::array<std::unique_ptr<Entry>, CONTEXTS> mEntries;
};

}  // namespace Las
