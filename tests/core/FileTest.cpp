#include <core/File.h>

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <system_error>

namespace {

namespace fs = std::filesystem;

class FileTest : public testing::Test {
protected:
    FileTest()
        : folder(fs::temp_directory_path() / ("lumaro_file_" + std::to_string(std::random_device()()))) {
        fs::create_directories(folder);
    }
    ~FileTest() override {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path folder;
};

TEST_F(FileTest, EveryByteIsReadUnchangedFromAnyName) {
    const std::string bytes("line\r\n\x1a\0end\n", 12);
    const fs::path file = folder / fs::path(u8"пункты-点.bin");
    std::ofstream(file, std::ios::binary) << bytes;
    EXPECT_EQ(Core::readLocalFile(file), bytes);

    std::ofstream(folder / "empty");
    EXPECT_EQ(Core::readLocalFile(folder / "empty"), "");
}

TEST_F(FileTest, FailuresNameTheFile) {
    for (const fs::path& file : {folder / fs::path(u8"нет.bin"), folder}) {
        try {
            Core::readLocalFile(file);
            ADD_FAILURE() << "read " << file;
        } catch (const std::system_error& error) {
            EXPECT_NE(std::string(error.what()).find(Core::pathToUtf8(file)), std::string::npos)
                << error.what();
        }
    }
}

}  // namespace
