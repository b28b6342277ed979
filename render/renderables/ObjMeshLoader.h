#pragma once

#include <render/renderables/MeshLoader.h>

namespace Render {

/// See MeshLoader::fromObjFile.
class ObjMeshLoader : public MeshLoader {
public:
    explicit ObjMeshLoader(std::filesystem::path file, const Math::Point<double, 3>& origin = {0, 0, 0});

    void load(OnPart onPart) override;

private:
    std::filesystem::path mFile;
    Math::Point<double, 3> mOrigin;
};

}  // namespace Render
