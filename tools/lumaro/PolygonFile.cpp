#include <core/File.h>
#include <tools/lumaro/MemoryLimit.h>
#include <tools/lumaro/PolygonFile.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Tool {

namespace {

using Rings = std::vector<Render::PolygonPrismFilter::Ring>;

/// Words, numbers and signs of a text, with the line they are on.
class Scanner {
public:
    Scanner(std::string_view text, const std::filesystem::path& file) : mText(text), mFile(file) {
        if (mText.starts_with("\xEF\xBB\xBF")) {
            mText.remove_prefix(3);
        }
    }

    /// Skips blanks, also to other lines, and comments; true at the end of the text.
    bool isAtEnd() {
        while (!mText.empty() && (isBlank() || mText.front() == '#')) {
            if (mText.front() == '#') {
                mText.remove_prefix(std::min(mText.find('\n'), mText.size()));
            } else {
                next();
            }
        }
        return mText.empty();
    }
    /// Likewise within the line.
    bool isAtLineEnd() {
        while (!mText.empty() && isBlank() && mText.front() != '\n') {
            next();
        }
        return mText.empty() || mText.front() == '\n' || mText.front() == '#';
    }

    bool takeWord(std::string_view upperCase) {
        const std::string_view start = mText.substr(0, upperCase.size());
        const bool isThere =
            std::equal(start.begin(), start.end(), upperCase.begin(), upperCase.end(),
                       [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; });
        mText.remove_prefix(isThere ? upperCase.size() : 0);
        return isThere;
    }
    bool takeSign(char sign) {
        const bool isThere = !isAtEnd() && mText.front() == sign;
        mText.remove_prefix(isThere ? 1 : 0);
        return isThere;
    }
    void require(char sign) {
        if (!takeSign(sign)) {
            fail(std::string("'") + sign + "' is missing" + (mText.empty() ? "" : " before " + word()));
        }
    }

    double number() {
        constexpr double FARTHEST = 1e12;
        double value = 0.0;
        const auto [end, error] = std::from_chars(mText.data(), mText.data() + mText.size(), value);
        const std::string_view rest = mText.substr(static_cast<size_t>(end - mText.data()));
        const bool isWhole = rest.empty() || std::isspace(static_cast<unsigned char>(rest.front())) != 0 ||
                             std::string_view(",)#").find(rest.front()) != std::string_view::npos;
        if (error != std::errc() || !isWhole) {
            fail(mText.empty() ? "a number is missing" : word() + " is not a number");
        }
        if (!(std::abs(value) <= FARTHEST)) {
            fail(word() + " is too far away");
        }
        mText = rest;
        return value;
    }

    [[noreturn]] void fail(const std::string& problem) const {
        throw std::runtime_error(Core::pathToUtf8(mFile) + ", line " + std::to_string(mLine) + ": " +
                                 problem);
    }
    std::string word() const {
        return '\'' + std::string(mText.substr(0, std::min<size_t>(mText.find_first_of(" \t\r\n,()#"), 40))) +
               '\'';
    }

private:
    bool isBlank() const { return std::isspace(static_cast<unsigned char>(mText.front())) != 0; }
    void next() {
        mLine += mText.front() == '\n' ? 1U : 0U;
        mText.remove_prefix(1);
    }

    std::string_view mText;
    const std::filesystem::path& mFile;
    size_t mLine = 1;
};

void requireCorners(const Scanner& scanner, const Render::PolygonPrismFilter::Ring& ring) {
    const bool isClosed = ring.size() > 1 && ring.front() == ring.back();
    if (ring.size() - (isClosed ? 1 : 0) < 3) {
        scanner.fail("a polygon needs three corners");
    }
}

Render::PolygonPrismFilter::Ring readLines(Scanner& scanner) {
    Render::PolygonPrismFilter::Ring ring;
    while (!scanner.isAtEnd()) {
        const double x = scanner.number();
        if (scanner.isAtLineEnd()) {
            scanner.fail("there is one number, not two");
        }
        ring.emplace_back(x, scanner.number());
        if (!scanner.isAtLineEnd()) {
            scanner.fail("more than two numbers: " + scanner.word());
        }
    }
    requireCorners(scanner, ring);
    return ring;
}

Rings readWellKnownText(Scanner& scanner) {
    Rings rings;
    scanner.require('(');
    do {
        scanner.require('(');
        Render::PolygonPrismFilter::Ring ring;
        do {
            scanner.isAtEnd();
            const double x = scanner.number();
            scanner.isAtEnd();
            ring.emplace_back(x, scanner.number());
        } while (scanner.takeSign(','));
        scanner.require(')');
        requireCorners(scanner, ring);
        rings.push_back(std::move(ring));
    } while (scanner.takeSign(','));
    scanner.require(')');
    if (!scanner.isAtEnd()) {
        scanner.fail("there is more after the polygon: " + scanner.word());
    }
    return rings;
}

}  // namespace

Rings readPolygonFile(const std::filesystem::path& file) {
    // Some million corners. What cannot be measured is reported by who reads it.
    constexpr std::uintmax_t maxSize = std::uintmax_t{32} * 1024 * 1024;
    std::error_code code;
    const std::uintmax_t size = std::filesystem::file_size(file, code);
    if (!code && size > maxSize) {
        throw std::runtime_error(Core::pathToUtf8(file) + ": a polygon file has at most " +
                                 std::to_string(maxSize) + " bytes");
    }
    requireMemoryForPolygon(file, code ? 0 : size);
    const std::string text = Core::readLocalFile(file);
    Scanner scanner(text, file);
    scanner.isAtEnd();
    return scanner.takeWord("POLYGON") ? readWellKnownText(scanner) : Rings{readLines(scanner)};
}

}  // namespace Tool
