#pragma once

#include <cstdio>
#include <streambuf>

namespace Tool {

/// Lets a std::ostream write to a C stream, which does the buffering. It can be told to write elsewhere,
/// counted from the beginning.
class FileBuffer : public std::streambuf {
public:
    /// Not its owner.
    explicit FileBuffer(std::FILE* file) : mFile(file) {}

protected:
    int_type overflow(int_type byte) override {
        if (traits_type::eq_int_type(byte, traits_type::eof())) {
            return traits_type::not_eof(byte);
        }
        return std::putc(byte, mFile) == EOF ? traits_type::eof() : byte;
    }
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        return static_cast<std::streamsize>(std::fwrite(bytes, 1, static_cast<std::size_t>(count), mFile));
    }
    int sync() override { return std::fflush(mFile) == 0 ? 0 : -1; }
    pos_type seekpos(pos_type place, std::ios_base::openmode) override {
#ifdef _WIN32
        const bool isThere = _fseeki64(mFile, std::streamoff(place), SEEK_SET) == 0;
#else
        const bool isThere = fseeko(mFile, std::streamoff(place), SEEK_SET) == 0;
#endif
        return isThere ? place : pos_type(off_type(-1));
    }

private:
    std::FILE* mFile;
};

}  // namespace Tool
