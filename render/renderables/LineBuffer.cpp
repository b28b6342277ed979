#include <core/File.h>
#include <render/renderables/LineBuffer.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Render {

namespace {

bool isLineEnd(char c) {
    return c == '\n' || c == '\r';
}

}  // namespace

LineBuffer::LineBuffer(const std::filesystem::path& file, std::stop_token stop)
    : mName(Core::pathToUtf8(file)), mStop(std::move(stop)), mBuffer(2 * maxLineLength) {
    // Some systems open a folder.
    std::error_code code;
    if (!std::filesystem::is_directory(file, code)) {
        mFile.open(file, std::ios::binary);
    }
}

void LineBuffer::fail(const std::string& what) const {
    throw std::runtime_error(mName + ", line " + std::to_string(mLineNumber) + ": " + what);
}

std::string_view LineBuffer::withoutBlanksBefore(std::string_view text) {
    text.remove_prefix(
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isBlank) - text.begin()));
    return text;
}

bool LineBuffer::startsWith(std::string_view line, std::string_view keyword) {
    return line.starts_with(keyword) && line.size() > keyword.size() && isBlank(line[keyword.size()]);
}

bool LineBuffer::hasEndlessExponent(std::string_view line) {
    constexpr std::size_t tooMany = 10;
    for (const char letter : {'e', 'E'}) {
        for (std::size_t e = line.find(letter); e != std::string_view::npos; e = line.find(letter, e + 1)) {
            if (e == 0 || (!isDigit(line[e - 1]) && line[e - 1] != '.')) {
                continue;
            }
            std::string_view digits = line.substr(e + 1);
            if (digits.starts_with('+') || digits.starts_with('-')) {
                digits.remove_prefix(1);
            }
            digits = digits.substr(0, tooMany);
            if (digits.size() == tooMany && std::all_of(digits.begin(), digits.end(), isDigit)) {
                return true;
            }
        }
    }
    return false;
}

LineBuffer::int_type LineBuffer::underflow() {
    for (;;) {
        ++mLineNumber;
        if (mStop.stop_requested()) {
            fail("loading was stopped");
        }
        const Line found = nextLine();
        if (found.lengthWithEnd == 0) {
            return traits_type::eof();
        }
        char* const first = mBuffer.data() + mBegin;
        mBegin += found.lengthWithEnd;
        std::string_view line(first, found.length);
        line = line.substr(0, line.find('\0'));
        mReplacement.clear();
        char* shown = first + (admits(withoutBlanksBefore(line)) ? 0 : found.length);
        if (!mReplacement.empty()) {
            shown = first + found.length - mReplacement.size();
            std::copy(mReplacement.begin(), mReplacement.end(), shown);
        }
        char* const last = first + found.lengthWithEnd;
        if (shown != last) {
            setg(shown, shown, last);
            return traits_type::to_int_type(*shown);
        }
    }
}

/// The line at mBegin; nothing at the end of the file.
LineBuffer::Line LineBuffer::nextLine() {
    Line line;
    for (;;) {
        const char* const begin = mBuffer.data() + mBegin;
        const char* const end = mBuffer.data() + mEnd;
        const char* const stop = std::find_if(begin + line.length, end, isLineEnd);
        line.length = static_cast<std::size_t>(stop - begin);
        if (line.length > maxLineLength) {
            fail("longer than " + std::to_string(maxLineLength) + " bytes");
        }
        // Whether a carriage return stands alone shows in the byte after it.
        if (stop != end && (*stop == '\n' || stop + 1 != end)) {
            line.lengthWithEnd = line.length + (*stop == '\r' && stop[1] == '\n' ? 2 : 1);
            return line;
        }
        if (!readMore()) {
            line.lengthWithEnd = mEnd - mBegin;
            return line;
        }
    }
}

bool LineBuffer::readMore() {
    std::copy(mBuffer.data() + mBegin, mBuffer.data() + mEnd, mBuffer.data());
    mEnd -= std::exchange(mBegin, 0);
    mFile.read(mBuffer.data() + mEnd, static_cast<std::streamsize>(mBuffer.size() - mEnd));
    if (mFile.bad()) {
        fail("cannot be read");
    }
    mEnd += static_cast<std::size_t>(mFile.gcount());
    return mFile.gcount() > 0;
}

}  // namespace Render
