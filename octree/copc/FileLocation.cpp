#include <core/File.h>
#include <octree/copc/FileLocation.h>
#include <octree/copc/Head.h>

#include <array>
#include <fstream>
#include <system_error>

namespace Copc {

std::string FileLocation::toString() const {
    return Core::pathToUtf8(mFile);
}

bool FileLocation::exists() const {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(mFile, ignored)) {
        return false;  // Opening a pipe would wait for its writer.
    }
    std::array<char, Head::MIN_SIZE> bytes{};
    std::ifstream stream(mFile, std::ios::binary);
    return stream.read(bytes.data(), bytes.size()) && Head::isCopc(std::as_bytes(std::span(bytes)));
}

}  // namespace Copc
