#include <core/Brotli.h>

#include <brotli/encode.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

std::string encode(const std::string& text) {
    std::string encoded(BrotliEncoderMaxCompressedSize(text.size()), '\0');
    size_t size = encoded.size();
    const auto result = BrotliEncoderCompress(5, BROTLI_DEFAULT_WINDOW, BROTLI_DEFAULT_MODE, text.size(),
                                              reinterpret_cast<const uint8_t*>(text.data()), &size,
                                              reinterpret_cast<uint8_t*>(encoded.data()));
    EXPECT_EQ(result, BROTLI_TRUE);
    encoded.resize(size);
    return encoded;
}

/// Grows about a thousandfold when decoded, over many output blocks.
std::string longText() {
    std::string text;
    for (int i = 0; i < 300000; ++i) {
        text += static_cast<char>('a' + i / 1000 % 7);
    }
    return text;
}

TEST(BrotliTest, DecodesWhatWasEncoded) {
    for (const std::string& text : {std::string(), std::string("points"), longText()}) {
        EXPECT_EQ(Core::brotliDecode(encode(text)), text);
    }
}

TEST(BrotliTest, TheLimitIsInclusive) {
    const std::string text = longText();
    EXPECT_EQ(Core::brotliDecode(encode(text), text.size()), text);
    EXPECT_THROW(Core::brotliDecode(encode(text), text.size() - 1), std::runtime_error);
    EXPECT_EQ(Core::brotliDecode(encode(""), 0), "");
}

TEST(BrotliTest, StopsOnTheWay) {
    std::stop_source stop;
    stop.request_stop();
    size_t size = 0;
    EXPECT_EQ(Core::brotliDecode(encode(longText()), longText().size(), size, stop.get_token()), nullptr);
    EXPECT_NE(Core::brotliDecode(encode(longText()), longText().size(), size, {}), nullptr);
    EXPECT_EQ(size, longText().size());
}

TEST(BrotliTest, DamagedDataIsRefused) {
    const std::string good = encode(longText());
    EXPECT_THROW(Core::brotliDecode(""), std::runtime_error);
    EXPECT_THROW(Core::brotliDecode(good.substr(0, good.size() - 1)), std::runtime_error);
    EXPECT_THROW(Core::brotliDecode(good + 'x'), std::runtime_error);
    EXPECT_THROW(Core::brotliDecode(std::string(100, '\xff')), std::runtime_error);
}

}  // namespace
