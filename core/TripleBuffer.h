#pragma once

#include <array>
#include <atomic>

namespace Core {

/**
 * Hands the newest value of a T from a writer thread to a reader thread; neither ever waits.
 *
 * Of three slots the writer owns one, the reader one, and one is on its way. The writer fills writeSlot() and
 * calls swapWrite(); the reader calls swapRead() and looks at readSlot(). Values the reader did not fetch in
 * time are skipped. A slot keeps its old contents when it comes back to the writer, so its memory can be used
 * again.
 *
 * One reader thread. Several writers must exclude each other by a lock of their own.
 *
 * A writer may set a sequentially consistent atomic flag after swapWrite() and the reader clear it before
 * swapRead(): no publication is then missed with the flag cleared, on any processor.
 */
template <class T>
class TripleBuffer {
public:
    /// The writer's own slot until its next swapWrite().
    T& writeSlot() { return mSlots[mWrite]; }

    /// Publishes the write slot and takes another one, which holds some earlier value.
    void swapWrite() { mWrite = mReady.exchange(mWrite | NEWER) & INDEX; }

    /// Whether swapRead() would succeed. Stays so until it is called.
    bool hasNewer() const { return (mReady.load() & NEWER) != 0; }

    /// Takes the newest published slot; false, and the read slot stays, when nothing was published since.
    bool swapRead() {
        if (!hasNewer()) {
            return false;
        }
        mRead = mReady.exchange(mRead) & INDEX;
        return true;
    }

    /// The reader's own slot until its next successful swapRead(); a default T before the first.
    T& readSlot() { return mSlots[mRead]; }
    const T& readSlot() const { return mSlots[mRead]; }

private:
    static constexpr unsigned INDEX = 3;
    static constexpr unsigned NEWER = 4;  ///< Set in mReady while the reader has not seen that slot.

    std::array<T, 3> mSlots{};
    unsigned mWrite = 0;  ///< Writer only.
    /// Slot on its way, with NEWER; the only word both threads touch. Sequentially consistent for the flags
    /// that are promised above.
    std::atomic<unsigned> mReady{1};
    unsigned mRead = 2;  ///< Reader only.
};

}  // namespace Core
