#include <graphics/Pfm.h>

#include <graphics/ImageError.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

namespace Graphics::Pfm {

namespace {

constexpr size_t MAX_HEADER_BYTES = 256;

struct Header {
    size_t width = 0;
    size_t height = 0;
    bool isLittleEndian = false;
    bool endsInReturn = false;  ///< A line feed may follow.
    size_t bytes = 0;
};

/// The header's words: separated by white space, and one byte of it after the last.
class HeaderReader {
public:
    HeaderReader(const std::filesystem::path& file, std::FILE* stream) : mFile(file), mStream(stream) {}

    std::string word() {
        std::string text;
        for (int byte = next();; byte = next()) {
            if (std::isspace(byte) == 0) {
                text += static_cast<char>(byte);
            } else if (!text.empty()) {
                mLast = byte;
                return text;
            }
        }
    }

    size_t side() {
        const std::string text = word();
        size_t value = 0;
        const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (code != std::errc() || end != text.data() + text.size()) {
            throw ImageError(mFile, "cannot be read: \"" + text + "\" in its header is no size");
        }
        return value;
    }

    bool endsInReturn() const { return mLast == '\r'; }
    size_t bytes() const { return mBytes; }

private:
    int next() {
        const int byte = std::getc(mStream);
        if (byte == EOF || byte == 0 || ++mBytes > MAX_HEADER_BYTES) {
            throw ImageError(mFile, "cannot be read: its header has no end");
        }
        return byte;
    }

    const std::filesystem::path& mFile;
    std::FILE* mStream;
    size_t mBytes = 0;
    int mLast = 0;
};

Header readHeader(const std::filesystem::path& file, std::FILE* stream) {
    HeaderReader reader(file, stream);
    const std::string magic = reader.word();
    if (magic == "PF") {
        throw ImageError(file, "a float map of three channels was found where one (\"Pf\") is needed");
    }
    if (magic != "Pf") {
        throw ImageError(file, "cannot be read: it is no portable float map");
    }
    Header header;
    header.width = reader.side();
    header.height = reader.side();
    const std::string text = reader.word();
    double scale = 0.0;
    const auto [end, code] =
        std::from_chars(text.data() + (text.front() == '+' ? 1 : 0), text.data() + text.size(), scale);
    if (code != std::errc() || end != text.data() + text.size() || (scale != 1.0 && scale != -1.0)) {
        throw ImageError(file, "a scale of \"" + text + "\" is not supported, only 1 and -1");
    }
    header.isLittleEndian = scale < 0.0;
    header.endsInReturn = reader.endsInReturn();
    header.bytes = reader.bytes();
    return header;
}

/// Leaves the stream at the first row.
void checkLength(const std::filesystem::path& file, std::FILE* stream, const Header& header) {
    std::error_code code;
    const std::uintmax_t size = std::filesystem::file_size(file, code);
    const std::uintmax_t expected = std::uintmax_t{header.width} * header.height * sizeof(float);
    const bool hasOneMore = !code && size == header.bytes + expected + 1;
    if (hasOneMore && header.endsInReturn && std::getc(stream) == '\n') {
        return;
    }
    if (code || size != header.bytes + expected) {
        throw ImageError(file, "cannot be read: " + std::to_string(header.width) + " x " +
                                   std::to_string(header.height) + " floats do not fill the " +
                                   std::to_string(size) + " bytes of the file");
    }
}

void reverseBytes(uint8_t* row, size_t floats) {
    for (size_t i = 0; i < floats; ++i) {
        std::reverse(row + i * sizeof(float), row + (i + 1) * sizeof(float));
    }
}

}  // namespace

void read(const std::filesystem::path& file, const AllocateRows& allocate, const std::stop_token& stop) {
    const FileStream stream = openImageFile(file);
    const Header header = readHeader(file, stream.get());
    checkImageSize(file, header.width, header.height);
    checkLength(file, stream.get(), header);
    const RowDestination destination = allocate(header.width, header.height);
    const bool isForeign = header.isLittleEndian != (std::endian::native == std::endian::little);
    for (size_t y = header.height; y-- > 0;) {
        if (stop.stop_requested()) {
            throw ImageError(file, std::string("cannot be read: ") + READING_WAS_STOPPED);
        }
        uint8_t* row = static_cast<uint8_t*>(destination.texels) + y * destination.strideBytes;
        if (std::fread(row, sizeof(float), header.width, stream.get()) != header.width) {
            throw ImageError(file, "cannot be read: " + lastFileError());
        }
        if (isForeign) {
            reverseBytes(row, header.width);
        }
    }
}

}  // namespace Graphics::Pfm
