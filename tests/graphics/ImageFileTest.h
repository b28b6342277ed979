#pragma once

#include <graphics/ImageError.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

/// A folder of its own for each test, and files in it.
class ImageFileTest : public testing::Test {
protected:
    ImageFileTest()
        : folder(std::filesystem::temp_directory_path() /
                 ("lumaro_image_" + std::to_string(std::random_device()()))) {
        std::filesystem::create_directories(folder);
    }
    ~ImageFileTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    static void writeBytes(const std::filesystem::path& file, const std::string& bytes) {
        std::ofstream(file, std::ios::binary) << bytes;
    }

    static std::string bytesOf(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }

    /// The text of the exception that the action throws.
    template <class Exception = Graphics::ImageError, class Action>
    static std::string errorOf(Action action) {
        try {
            action();
        } catch (const Exception& error) {
            return error.what();
        }
        return "no error";
    }

    /// Reads the bytes with each of them changed in several ways, and cut off before each of them: an image
    /// or an ImageError, nothing else. Returns how many were errors.
    template <class Read>
    size_t readDamaged(const std::string& good, Read read) {
        const std::filesystem::path file = folder / "damaged";
        size_t errors = 0;
        const auto tryBytes = [&](const std::string& bytes) {
            std::filesystem::remove(file);  // Quicker on some file systems than to write over it.
            writeBytes(file, bytes);
            errors += errorOf([&] { read(file); }) != "no error" ? 1u : 0u;
        };
        for (size_t i = 0; i < good.size(); ++i) {
            for (const unsigned change : {0x01u, 0xffu}) {
                std::string bytes = good;
                bytes[i] = static_cast<char>(static_cast<unsigned char>(bytes[i]) ^ change);
                tryBytes(bytes);
            }
            tryBytes(good.substr(0, i));
        }
        return errors;
    }

    std::filesystem::path folder;
};
