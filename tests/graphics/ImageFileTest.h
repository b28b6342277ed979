#pragma once

#include <graphics/ImageError.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#if defined(_WIN32)
#include <windows.h>

#define PSAPI_VERSION 2  // In kernel32.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

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

    /// The most that the process has ever had in use, in MiB.
    static size_t peakMemory() {
#if defined(_WIN32)
        PROCESS_MEMORY_COUNTERS counters{};
        GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
        return counters.PeakWorkingSetSize >> 20;
#else
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<size_t>(usage.ru_maxrss) >> 10;
#endif
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
