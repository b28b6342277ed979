#include <core/File.h>
#include <octree/copc/FileLocation.h>
#include <octree/copc/Head.h>

#include <array>
#include <fstream>

namespace Copc {

std::string FileLocation::toString() const {
    return Core::pathToUtf8(mFile);
}

bool FileLocation::exists() const {
    std::array<char, Head::MIN_SIZE> bytes{};
    std::ifstream stream(mFile, std::ios::binary);
    return stream.read(bytes.data(), bytes.size()) && Head::isCopc(std::as_bytes(std::span(bytes)));
}

}  // namespace Copc
