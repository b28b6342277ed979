#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stop_token>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Render {

/// Hands a text file on line by line, looking at each before, for a reader that takes lines of any length and
/// believes what they say. Lines end as that reader sees it: with a line feed, a carriage return or both.
///
/// Throws std::runtime_error naming file and line for a line of more than maxLineLength bytes, when the file
/// cannot be read and when it is stopped; a stream passes it on if its exceptions() have the badbit.
class LineBuffer : public std::streambuf {
public:
    /// Room for a polygon of ten thousand corners with the longest of indices.
    static constexpr std::size_t maxLineLength = std::size_t{512} * 1024;

    explicit LineBuffer(const std::filesystem::path& file, std::stop_token stop = {});

    /// False when there is no such file, and for folders.
    bool isOpen() const { return mFile.is_open(); }
    /// The path for messages.
    const std::string& name() const { return mName; }

protected:
    /// Given a line without the blanks before it and its end, up to the first zero byte. False hides it: an
    /// empty one comes in its place.
    virtual bool admits(std::string_view line) = 0;

    /// Within admits(): what comes in the line's place. Not longer than the line.
    void replaceBy(std::string text) { mReplacement = std::move(text); }
    std::size_t lineNumber() const { return mLineNumber; }
    [[noreturn]] void fail(const std::string& what) const;

    static bool isBlank(char c) { return c == ' ' || c == '\t'; }
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static std::string_view withoutBlanksBefore(std::string_view text);
    /// True for a keyword and a blank after it.
    static bool startsWith(std::string_view line, std::string_view keyword);
    /// A number whose exponent has ten digits or more, where an int ends.
    static bool hasEndlessExponent(std::string_view line);

private:
    struct Line {
        std::size_t length = 0;
        std::size_t lengthWithEnd = 0;
    };

    int_type underflow() override;
    Line nextLine();
    bool readMore();

    std::string mName;
    std::ifstream mFile;
    std::stop_token mStop;
    std::vector<char> mBuffer;
    std::string mReplacement;
    std::size_t mBegin = 0;  // What is read and not yet handed on lies between these.
    std::size_t mEnd = 0;
    std::size_t mLineNumber = 0;
};

}  // namespace Render
