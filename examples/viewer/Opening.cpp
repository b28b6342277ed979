#include "Opening.h"

#include <graphics/ImagePanoramaLoader.h>
#include <octree/Location.h>

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <string>
#include <utility>
#include <vector>

namespace {

using Part = std::vector<Render::VertexPosNormalTexCoordColor>;

/// Keeps the parts of another loader, which it loads at once.
class MeshInMemory : public Render::MeshLoader {
public:
    explicit MeshInMemory(Render::MeshLoader& source) {
        source.load([this](const Part& part) { mParts.push_back(part); });
    }
    void load(OnPart onPart) override {
        for (const Part& part : mParts) {
            onPart(part);
        }
    }

private:
    std::vector<Part> mParts;
};

Opened openFile(const std::filesystem::path& path, const Math::Point<double, 3>& origin,
                const std::stop_token& stop) {
    std::wstring extension = path.extension().wstring();
    std::transform(extension.begin(), extension.end(), extension.begin(), towlower);
    Opened opened;
    if (extension == L".obj") {
        opened.mesh = std::make_shared<MeshInMemory>(*Render::MeshLoader::fromObjFile(path, origin, stop));
    } else if (extension == L".png" || extension == L".jpg" || extension == L".jpeg") {
        opened.panorama = std::make_shared<Graphics::ImagePanoramaLoader>(
            std::vector{path}, std::vector<std::filesystem::path>(), Graphics::ImagePanoramaOptions(), stop);
    } else {
        opened.store = std::make_shared<Octree::Octree>(Octree::Location::fromPath(path), 1.0, stop);
    }
    return opened;
}

}  // namespace

Opening::Opening(std::filesystem::path path, const Math::Point<double, 3>& origin)
    : mPath(std::move(path)),
      mOpened(std::async(std::launch::async, openFile, mPath, origin, mStop.get_token())) {}

Opening::~Opening() {
    mStop.request_stop();  // The future then waits for the thread.
}

bool Opening::hasEnded() const {
    return mOpened.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}
