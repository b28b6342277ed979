#pragma once

#include <unknwn.h>

#include <cstddef>
#include <vector>

namespace TestSupport {

/// Puts functions of the test's own in the place of a COM object's while it exists. A slot is a function's
/// place in the interface, counted from IUnknown's first.
class ComSpy {
public:
    ComSpy(IUnknown* object, std::size_t tableSize)
        : mTable(reinterpret_cast<void***>(object)), mOriginal(*mTable), mCopy(*mTable, *mTable + tableSize) {
        *mTable = mCopy.data();
    }
    ~ComSpy() { *mTable = mOriginal; }
    ComSpy(const ComSpy&) = delete;
    ComSpy& operator=(const ComSpy&) = delete;

    /// Returns what was in its place.
    template <class Function>
    Function* replace(std::size_t slot, Function* function) {
        mCopy[slot] = reinterpret_cast<void*>(function);
        return reinterpret_cast<Function*>(mOriginal[slot]);
    }

private:
    void*** mTable;
    void** mOriginal;
    std::vector<void*> mCopy;
};

}  // namespace TestSupport
