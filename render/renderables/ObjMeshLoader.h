#pragma once

#include <render/renderables/MeshLoader.h>

#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace Render {

/// See MeshLoader::fromObjFile.
class ObjMeshLoader : public MeshLoader {
public:
    explicit ObjMeshLoader(std::filesystem::path file, const Math::Point<double, 3>& origin = {0, 0, 0},
                           std::stop_token stop = {}, std::uint64_t memoryLimit = DEFAULT_MEMORY_LIMIT);

    void load(OnPart onPart) override;

private:
    std::filesystem::path mFile;
    Math::Point<double, 3> mOrigin;
    std::stop_token mStop;
    std::uint64_t mMemoryLimit;
};

}  // namespace Render
