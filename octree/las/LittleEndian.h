#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>

#include <octree/las/DataError.h>

namespace Las {

static_assert(std::endian::native == std::endian::little, "Fields are read in place");

template <class T>
T loadAt(const std::byte* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// Reads fields one after another and throws DataError where the bytes end.
class FieldReader {
public:
    /// `what` is the subject of the error: "the header".
    FieldReader(std::span<const std::byte> bytes, const char* what) : mBytes(bytes), mWhat(what) {}

    template <class T>
    T next() {
        return loadAt<T>(take(sizeof(T)).data());
    }
    std::span<const std::byte> take(std::size_t size) {
        if (size > mBytes.size() - mOffset) {
            throw DataError(std::string(mWhat) + " ends at byte " + std::to_string(mBytes.size()));
        }
        mOffset += size;
        return mBytes.subspan(mOffset - size, size);
    }
    /// A text of fixed size, up to its first zero.
    std::string text(std::size_t size) {
        const std::span<const std::byte> bytes = take(size);
        const auto* characters = reinterpret_cast<const char*>(bytes.data());
        return {characters, std::char_traits<char>::find(characters, size, '\0') != nullptr
                                ? std::char_traits<char>::length(characters)
                                : size};
    }
    void skip(std::size_t size) { take(size); }
    std::size_t offset() const { return mOffset; }

private:
    std::span<const std::byte> mBytes;
    const char* mWhat;
    std::size_t mOffset = 0;
};

}  // namespace Las
