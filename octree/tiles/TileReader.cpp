#include <octree/tiles/TileReader.h>

namespace Tiles {

TileReader::~TileReader() = default;

}  // namespace Tiles
